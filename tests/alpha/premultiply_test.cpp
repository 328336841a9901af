#include "core/bitmap.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

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
  Random random(seed);
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
  for (const auto& [x, a, pixel, block] :
       {std::tuple{1, 128, 1, 0}, {2, 64, 1, 0}, {7, 164, 5, 4}, {200, 128, 100, 100}}) {
    EXPECT_EQ(result(x, a, 15), pixel) << x << " " << a;
    EXPECT_EQ(result(x, a, 16), block) << x << " " << a;
  }
}

TEST(Premultiply, TreatsClearPixelsByTheirBlock) {
  if (!test::hasLevel(InstructionSet::ssse3)) GTEST_SKIP() << "needs SSSE3";
  initialise();
  const auto reversed = [](uint8_t oneAlpha, uint8_t value) {
    TestImage colour(17, 1), alpha(17, 1, 8);
    alpha.fill(0).bits()[3] = oneAlpha;
    colour.fill(100).bits()[0] = value;
    KVL_ReverseAlphaPremul(&colour.header, colour.bits(), &alpha.header, alpha.bits());
    EXPECT_EQ(colour.bits()[3 * 16], 100) << "after the block";
    return int{colour.bits()[0]};
  };
  // In a block with alpha a clear pixel is divided by almost nothing, and 129 wraps.
  EXPECT_EQ(reversed(7, 128), 255);
  EXPECT_EQ(reversed(7, 129), 0);
  EXPECT_EQ(reversed(0, 129), 129);
}

TEST(Premultiply, FollowsItsFormulasForEveryPair) {
  forEachLevel([] {
    for (const Operation& operation : operations) {
      TestImage colour(256, 256), alpha(256, 256, 8);
      for (int y = 0; y < 256; ++y) {
        std::fill_n(colour.row(y), colour.stride(), static_cast<uint8_t>(y));
        for (int x = 0; x < 256; ++x) alpha.row(y)[x] = static_cast<uint8_t>(x);
      }
      const std::vector<uint8_t> expected = modelled(operation, colour, alpha);
      operation.lines(colour.bits(), 768, alpha.bits(), 256, 256, 256);
      expectBytes(expected, colour, operation.name);
    }
  });
}

TEST(Premultiply, FollowsItsFormulasForEveryWidth) {
  forEachLevelAndTeam([] {
    for (const Operation& operation : operations) {
      for (int width = 1; width <= 97; width += width < 34 ? 1 : 7) {
        TestImage colour(width, width % 5 + 1, 24, guardOf(width));
        TestImage alpha(width, width % 5 + 1, 8, guardOf(width));
        colour.fillRandom(width);
        fillMatte(alpha, width + 1);
        const std::vector<uint8_t> expected = modelled(operation, colour, alpha);
        operation.headers(&colour.header, colour.bits(), &alpha.header, alpha.bits());
        expectBytes(expected, colour, text(operation.name, " ", width));
      }
    }
  });
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
      expectBytes(expected, colour, text(operation.name, " ", colourStride, " ", alphaStride));
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
    expectBytes(expected, colour, operation.name);
  }
}

TEST(Premultiply, ChangesNothingForABadCall) {
  initialise();
  for (const Operation& operation : operations) {
    TestImage colour(20, 20), alpha(20, 20, 8);
    colour.fillRandom(4);
    alpha.fillRandom(5);
    BadCalls lines(operation.lines, colour.bits(), 60, alpha.bits(), 20, 20, 20);
    lines.watch(colour).eachNull();
    lines.with<4>({0, -1, INT32_MIN});
    lines.with<5>({0, -1, INT32_MIN});
    lines.call({colour.bits(), INT32_MIN, alpha.bits(), 20, 20, INT32_MAX}, "below address 0");
    lines.call({colour.bits(), 60, alpha.bits(), INT32_MIN, 20, INT32_MAX}, "below address 0");

    BadCalls headers(operation.headers, &colour.header, colour.bits(), &alpha.header, alpha.bits());
    headers.watch(colour).eachNull();
    g_strideOverflow = 0;
    headers.with<0>({makeHeader(20, 0), makeHeader(0, 20), makeHeader(20, INT32_MIN),
                     makeHeader(INT32_MAX, INT32_MAX), makeHeader(INT32_MAX, -INT32_MAX),
                     makeHeader(20, 20, 0), makeHeader(20, 20, 24, 0x32595559),
                     makeHeader(INT32_MAX, INT32_MAX, 65535)});
    headers.with<2>(
        {makeHeader(0, 20, 8), makeHeader(20, 20, 24, 0x41424752), makeHeader(-20, 20, 8)});
    EXPECT_EQ(g_strideOverflow, 0);
    headers.with<0>({makeHeader(-20, 20)});
    EXPECT_EQ(g_strideOverflow, 1);
    g_strideOverflow = 0;
  }
}

}  // namespace
}  // namespace kvl::test
