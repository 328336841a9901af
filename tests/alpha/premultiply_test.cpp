#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "alpha/premultiply_kernels.h"
#include "alpha/reverse_premultiply_kernels.h"
#include "core/bitmap.h"
#include "core/initialise.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::TestImage;

uint8_t multiplied(int x, int a, bool inBlock) {
  const int rounded = x * a + 127;
  return static_cast<uint8_t>(inBlock ? (rounded + (rounded >> 8)) >> 8
                                      : std::lround(x * a / 255.));
}

uint8_t divided(int x, int a, bool inBlock) {
  if (!inBlock) {
    if (a == 0 || a == 255) return static_cast<uint8_t>(x);
    return static_cast<uint8_t>(std::min(std::floor(x * 255. / a + 0.5), 255.));
  }
  const double reciprocal = a < 2 ? 65535 : std::floor(65536. / a + 0.5);
  const int h = static_cast<int>(std::floor(reciprocal * x / 256));
  return static_cast<uint8_t>(h < 256 ? h : h < 32768 ? 255 : 0);
}

struct Operation {
  const char* name;
  void (*headers)(const BITMAPINFOHEADER*, uint8_t*, const BITMAPINFOHEADER*, const uint8_t*);
  void (*lines)(uint8_t*, int32_t, const uint8_t*, int32_t, int32_t, int32_t);
  uint8_t (*model)(int x, int a, bool inBlock);
  bool keepsClearBlocks;
};

const Operation operations[] = {
    {"premultiply", KVL_PremultiplyAlpha, KVL_PremultiplyAlphaLines, multiplied, false},
    {"reverse", KVL_ReverseAlphaPremul, KVL_ReverseAlphaPremulLines, divided, true}};

void modelRow(const Operation& operation, uint8_t* colour, const uint8_t* alpha, int width) {
  const int inBlocks = instructionSet() >= InstructionSet::ssse3 ? width / 16 * 16 : 0;
  for (int x = 0; x < width; ++x) {
    const bool inBlock = x < inBlocks;
    const uint8_t* block = alpha + x / 16 * 16;
    const bool kept = inBlock && operation.keepsClearBlocks && (block[0] == 0 || block[0] == 255) &&
                      std::all_of(block, block + 16, [&](uint8_t a) { return a == block[0]; });
    for (int c = 0; c < 3 && !kept; ++c) {
      colour[3 * x + c] = operation.model(colour[3 * x + c], alpha[x], inBlock);
    }
  }
}

std::vector<uint8_t> modelled(const Operation& operation, const TestImage& colour,
                              const TestImage& alpha) {
  std::vector<uint8_t> result = colour.bytes();
  for (int y = 0; y < colour.height(); ++y) {
    modelRow(operation, &result[static_cast<size_t>(y) * colour.stride()], alpha.row(y),
             colour.width());
  }
  return result;
}

// Noise, a third of whose blocks are all transparent or all opaque.
void fillMatte(TestImage& alpha, uint64_t seed) {
  alpha.fillRandom(seed);
  test::Random random(seed);
  for (int y = 0; y < alpha.height(); ++y) {
    for (int x = 0; x < alpha.width(); x += 16) {
      const int kind = random.range(0, 5);
      if (kind < 2) {
        std::fill(alpha.row(y) + x, alpha.row(y) + std::min(x + 16, alpha.width()),
                  static_cast<uint8_t>(kind * 255));
      }
    }
  }
}

void expectModel(const Operation& operation, int width, int height, GuardAt guard, uint64_t seed) {
  TestImage colour(width, height, 24, guard), alpha(width, height, 8, guard);
  colour.fillRandom(seed);
  fillMatte(alpha, seed + 1);
  const std::vector<uint8_t> expected = modelled(operation, colour, alpha);
  operation.headers(&colour.header, colour.bits(), &alpha.header, alpha.bits());
  ASSERT_EQ(firstDifference(expected, colour.bytes(), colour.stride()), "")
      << operation.name << " " << width << " x " << height;
}

TEST(Premultiply, RoundsAsWorkedByHand) {
  if (!test::hasLevel(InstructionSet::ssse3)) GTEST_SKIP() << "needs SSSE3";
  const auto result = [](int x, int a, int width) {
    TestImage colour(width, 1), alpha(width, 1, 8);
    colour.fill(static_cast<uint8_t>(x));
    alpha.fill(static_cast<uint8_t>(a));
    KVL_PremultiplyAlphaLines(colour.bits(), 0, alpha.bits(), 0, width, 1);
    return int{colour.bits()[0]};
  };
  initialise();
  for (const auto& [x, a, pixel, block] : {std::tuple{1, 128, 1, 0},
                                           {2, 64, 1, 0},
                                           {8, 16, 1, 0},
                                           {7, 164, 5, 4},
                                           {200, 128, 100, 100},
                                           {255, 255, 255, 255},
                                           {255, 1, 1, 1},
                                           {255, 0, 0, 0}}) {
    EXPECT_EQ(result(x, a, 15), pixel) << x << " " << a;
    EXPECT_EQ(result(x, a, 16), block) << x << " " << a;
  }
}

TEST(Premultiply, TreatsClearPixelsByTheirBlock) {
  if (!test::hasLevel(InstructionSet::ssse3)) GTEST_SKIP() << "needs SSSE3";
  initialise();
  TestImage colour(17, 1), alpha(17, 1, 8);
  alpha.fill(0);
  alpha.bits()[3] = 7;
  colour.fill(100);
  colour.bits()[0] = 128;
  colour.bits()[1] = 129;
  colour.bits()[6] = 0;
  KVL_ReverseAlphaPremul(&colour.header, colour.bits(), &alpha.header, alpha.bits());
  EXPECT_EQ(colour.bits()[0], 255);
  EXPECT_EQ(colour.bits()[1], 0);
  EXPECT_EQ(colour.bits()[6], 0);
  EXPECT_EQ(colour.bits()[3 * 16], 100);

  alpha.fill(0);
  colour.fill(100);
  KVL_ReverseAlphaPremul(&colour.header, colour.bits(), &alpha.header, alpha.bits());
  EXPECT_EQ(colour.bits()[0], 100);
  KVL_PremultiplyAlpha(&colour.header, colour.bits(), &alpha.header, alpha.bits());
  EXPECT_EQ(colour.bits()[0], 0);
}

TEST(Premultiply, FollowsItsFormulasForEveryPair) {
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] {
      for (const Operation& operation : operations) {
        TestImage colour(256, 256), alpha(256, 256, 8);
        for (int y = 0; y < 256; ++y) {
          std::fill_n(colour.row(y), colour.stride(), static_cast<uint8_t>(y));
          for (int x = 0; x < 256; ++x) alpha.row(y)[x] = static_cast<uint8_t>(x);
        }
        const std::vector<uint8_t> expected = modelled(operation, colour, alpha);
        operation.lines(colour.bits(), 768, alpha.bits(), 256, 256, 256);
        ASSERT_EQ(firstDifference(expected, colour.bytes(), 768), "") << operation.name;
      }
    });
  }
  int differing = 0;
  for (int i = 0; i < 65536; ++i) {
    const int change = multiplied(i / 256, i % 256, false) - multiplied(i / 256, i % 256, true);
    ASSERT_TRUE(change == 0 || change == 1);
    differing += change;
  }
  EXPECT_EQ(differing, 128);
}

TEST(Premultiply, FollowsItsFormulasForEveryWidth) {
  test::forEachLevelAndTeam([] {
    uint64_t seed = 1;
    for (const Operation& operation : operations) {
      for (int width = 1; width <= 97; width += width < 34 ? 1 : 7) {
        const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
        expectModel(operation, width, static_cast<int>(seed % 5) + 1, guard, seed);
        ++seed;
      }
      expectModel(operation, 1009, 33, GuardAt::end, seed);
    }
  });
}

TEST(Premultiply, ReverseRestoresWhatAlphaHasNotRoundedAway) {
  for (const InstructionSet level : {InstructionSet::scalar, InstructionSet::avx2}) {
    test::atLevel(level, [] {
      TestImage colour(64, 8), alpha(64, 8, 8);
      colour.fillRandom(5);
      for (int i = 0; i < 64 * 8; ++i) alpha.bits()[i] = static_cast<uint8_t>(128 + i % 128);
      const std::vector<uint8_t> before = colour.bytes();
      KVL_PremultiplyAlpha(&colour.header, colour.bits(), &alpha.header, alpha.bits());
      KVL_ReverseAlphaPremul(&colour.header, colour.bits(), &alpha.header, alpha.bits());
      for (size_t i = 0; i < before.size(); ++i) {
        ASSERT_NEAR(colour.bits()[i], before[i], 2) << i;
      }
    });
  }
}

TEST(Premultiply, WalksRowsByTheirSignedStrides) {
  constexpr int width = 37, lines = 5;
  for (const Operation& operation : operations) {
    for (const auto& [colourStride, alphaStride] :
         {std::pair{-120, -40}, {120, 0}, {0, 40}, {60, 20}, {-7, 3}, {111, -37}}) {
      initialise();
      TestImage colour(200, 6), alpha(200, 6, 8);
      colour.fillRandom(3);
      fillMatte(alpha, 4);
      std::vector<uint8_t> expected = colour.bytes();
      const auto first = [&](int stride) { return stride < 0 ? -stride * (lines - 1) : 0; };
      for (int y = 0; y < lines; ++y) {
        modelRow(operation, &expected[static_cast<size_t>(first(colourStride) + y * colourStride)],
                 alpha.bits() + first(alphaStride) + y * alphaStride, width);
      }
      operation.lines(colour.bits() + first(colourStride), colourStride,
                      alpha.bits() + first(alphaStride), alphaStride, width, lines);
      ASSERT_EQ(firstDifference(expected, colour.bytes(), 120), "")
          << operation.name << " " << colourStride << " " << alphaStride;
    }
  }
}

TEST(Premultiply, TakesTheGeometryOfTheColourHeader) {
  initialise();
  for (const Operation& operation : operations) {
    // Rows of a 32-bit header are 4 bytes a pixel apart; the alpha header only tells its row size.
    TestImage colour(19, 4, 32), alpha(23, 4, 8);
    colour.fillRandom(1);
    alpha.fillRandom(2);
    std::vector<uint8_t> expected = colour.bytes();
    for (int y = 0; y < 4; ++y) {
      modelRow(operation, &expected[static_cast<size_t>(y) * colour.stride()], alpha.row(y), 19);
    }
    colour.header.biHeight = -4;
    alpha.header.biHeight = 1;
    operation.headers(&colour.header, colour.bits(), &alpha.header, alpha.bits());
    ASSERT_EQ(firstDifference(expected, colour.bytes(), colour.stride(), 4), "") << operation.name;
  }
}

TEST(Premultiply, ChangesNothingForABadCall) {
  initialise();
  for (const Operation& operation : operations) {
    TestImage colour(20, 20), alpha(20, 20, 8);
    colour.fillRandom(4);
    alpha.fillRandom(5);
    const std::vector<uint8_t> before = colour.bytes();
    const auto expectUnchanged = [&](const std::string& what) {
      EXPECT_EQ(firstDifference(before, colour.bytes(), colour.stride()), "")
          << operation.name << ", " << what;
    };
    const auto call = [&](const BITMAPINFOHEADER& c, const BITMAPINFOHEADER& a) {
      operation.headers(&c, colour.bits(), &a, alpha.bits());
    };
    operation.headers(nullptr, colour.bits(), &alpha.header, alpha.bits());
    operation.headers(&colour.header, nullptr, &alpha.header, alpha.bits());
    operation.headers(&colour.header, colour.bits(), nullptr, alpha.bits());
    operation.headers(&colour.header, colour.bits(), &alpha.header, nullptr);
    operation.lines(nullptr, 60, alpha.bits(), 20, 20, 20);
    operation.lines(colour.bits(), 60, nullptr, 20, 20, 20);
    expectUnchanged("null");
    for (const auto& [width, lines] :
         {std::pair{0, 20}, {-1, 20}, {INT32_MIN, 20}, {20, 0}, {20, -1}, {20, INT32_MIN}}) {
      operation.lines(colour.bits(), 60, alpha.bits(), 20, width, lines);
      expectUnchanged(std::to_string(width) + " x " + std::to_string(lines));
    }
    const int32_t lowest = INT32_MIN;
    operation.lines(colour.bits(), lowest, alpha.bits(), 20, 20, INT32_MAX);
    operation.lines(colour.bits(), 60, alpha.bits(), lowest, 20, INT32_MAX);
    expectUnchanged("strides that lead below the address space");
    for (const auto& [width, height] : {std::pair{20, 0},
                                        {0, 20},
                                        {20, INT32_MIN},
                                        {INT32_MAX, INT32_MAX},
                                        {INT32_MAX, -INT32_MAX}}) {
      call(test::makeHeader(width, height), alpha.header);
      expectUnchanged(std::to_string(width) + " x " + std::to_string(height));
    }
    call(test::makeHeader(20, 20, 0), alpha.header);
    call(colour.header, test::makeHeader(0, 20, 8));
    call(colour.header, test::makeHeader(20, 20, 24, 0x41424752));
    call(test::makeHeader(20, 20, 24, 0x32595559), alpha.header);
    call(test::makeHeader(INT32_MAX, INT32_MAX, 65535), alpha.header);
    expectUnchanged("row sizes");

    g_strideOverflow = 0;
    call(colour.header, test::makeHeader(-20, 20, 8));
    operation.headers(nullptr, colour.bits(), &alpha.header, alpha.bits());
    EXPECT_EQ(g_strideOverflow, 0);
    call(test::makeHeader(-20, 20), alpha.header);
    EXPECT_EQ(g_strideOverflow, 1);
    expectUnchanged("negative widths");
    g_strideOverflow = 0;
  }
}

template <class Kernels>
void expectReplaced(Kernels (*kernels)(InstructionSet)) {
  EXPECT_EQ(kernels(InstructionSet::sse2).blocks, nullptr);
  EXPECT_NE(kernels(InstructionSet::ssse3).blocks, nullptr);
  EXPECT_EQ(kernels(InstructionSet::sse41).blocks, kernels(InstructionSet::ssse3).blocks);
  EXPECT_NE(kernels(InstructionSet::avx2).blocks, kernels(InstructionSet::ssse3).blocks);
}

TEST(PremultiplyKernels, EachVectorLevelReplacesTheBlocks) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  expectReplaced(premultiplyKernels);
  expectReplaced(reversePremultiplyKernels);
}

}  // namespace
}  // namespace kvl
