#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

#include "core/initialise.h"
#include "filters/selective_sharpen_kernels.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::Random;
using test::TestImage;

using Sharpen = decltype(&KVL_SelectiveSharpen);
const Sharpen sharpens[] = {KVL_SelectiveSharpenSimple, KVL_ModifiedSelectiveSharpenSimple,
                            KVL_SelectiveSharpen};

void run(Sharpen sharpen, const TestImage& source, TestImage& destination, int threshold,
         float gain) {
  sharpen(&source.header, source.bits(), &destination.header, destination.bits(), threshold, gain);
}

// Towards zero, within 32 bits; the products of an infinite gain and 0 count as 0.
int64_t trunc32(double value) {
  if (value != value) return 0;
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return -2147483648;
  return static_cast<int64_t>(value);
}

uint8_t model(Sharpen sharpen, int m, const std::vector<int>& neighbours, int threshold,
              float gain) {
  const auto limit = static_cast<int32_t>(static_cast<uint32_t>(threshold) * 8u);
  const double share =
      (double{gain} - 1.0) / (neighbours.empty() ? 1.0 : double(neighbours.size()));
  int contrast = 0, excessSum = 0, sum = 0;
  for (const int n : neighbours) {
    contrast += std::abs(m - n);
    excessSum += std::max(0, std::abs(m - n) - threshold);
    sum += n;
  }
  const float product = static_cast<float>(m) * gain;
  int64_t v = 0;
  if (sharpen == KVL_SelectiveSharpen) {
    const float ratio = static_cast<float>(excessSum) / static_cast<float>(limit);
    const float scaled = gain * (ratio < 1.0f ? ratio : 1.0f);
    const float f = scaled > 1.0f ? scaled : 1.0f;
    v = trunc32(double{static_cast<float>(m)} * double{f});
    for (const int n : neighbours) {
      if (excessSum == 0) break;
      const double e = std::max(0, std::abs(m - n) - threshold);
      v += trunc32(n * ((1.0 - double{f}) * e / excessSum));
    }
  } else if (contrast < limit) {
    return static_cast<uint8_t>(m);
  } else if (sharpen == KVL_SelectiveSharpenSimple) {
    v = trunc32(product);
    for (const int n : neighbours) v += trunc32(n * -share);
  } else {
    v = trunc32(product) + trunc32(sum * -share);
  }
  return static_cast<uint8_t>(std::min<int64_t>(255, std::max<int64_t>(0, v)));
}

std::vector<uint8_t> modelImage(Sharpen sharpen, const TestImage& source,
                                std::vector<uint8_t> expected, int threshold, float gain) {
  for (int y = 0; y < source.height(); ++y) {
    for (int x = 0; x < source.width(); ++x) {
      for (int c = 0; c < 3; ++c) {
        std::vector<int> neighbours;
        for (int row = std::max(0, y - 1); row <= std::min(source.height() - 1, y + 1); ++row) {
          for (int column = std::max(0, x - 1); column <= std::min(source.width() - 1, x + 1);
               ++column) {
            if (row != y || column != x) neighbours.push_back(source.row(row)[3 * column + c]);
          }
        }
        expected[static_cast<size_t>(y) * source.stride() + static_cast<size_t>(3 * x + c)] =
            model(sharpen, source.row(y)[3 * x + c], neighbours, threshold, gain);
      }
    }
  }
  return expected;
}

// A noise image of which `smooth` of 8 bytes lie within a few steps of each other.
void fillMixed(TestImage& image, uint64_t seed, int smooth) {
  image.fillRandom(seed);
  Random random(seed);
  const std::vector<uint8_t> noise = image.bytes();
  for (size_t i = 0; i < noise.size(); ++i) {
    if (random.range(0, 7) < smooth) image.bits()[i] = static_cast<uint8_t>(120 + noise[i] % 9);
  }
}

void expectModel(int width, int height, int threshold, float gain, GuardAt guard, uint64_t seed) {
  for (int which = 0; which < 3; ++which) {
    TestImage source(width, height, 24, guard), destination(width, height, 24, guard);
    fillMixed(source, seed, static_cast<int>(seed % 9));
    destination.fillRandom(seed + 1);
    const std::vector<uint8_t> expected =
        modelImage(sharpens[which], source, destination.bytes(), threshold, gain);
    run(sharpens[which], source, destination, threshold, gain);
    ASSERT_EQ(firstDifference(expected, destination.bytes(), source.stride()), "")
        << "form " << which << ", " << width << " x " << height << ", threshold " << threshold
        << ", gain " << gain;
  }
}

TEST(SelectiveSharpen, PushesASinglePixelAsWorkedByHand) {
  TestImage source(5, 5), destination(5, 5);
  source.fill(100);
  source.row(2)[2 * 3] = 110;
  for (const Sharpen sharpen : {sharpens[0], sharpens[1]}) {
    run(sharpen, source, destination, 1, 3.0f);
    // 110 * 3 - 8 * (100 / 4), and for a neighbour 300 - 7 * 25 - trunc(110 / 4) or, in one sum,
    // 300 - trunc(810 / 4).
    EXPECT_EQ(destination.row(2)[2 * 3], 130);
    EXPECT_EQ(destination.row(1)[2 * 3], 98);
    EXPECT_EQ(destination.row(0)[2 * 3], 100) << "contrast 0";
    run(sharpen, source, destination, 2, 3.0f);
    EXPECT_EQ(destination.row(2)[2 * 3], 130);
    EXPECT_EQ(destination.row(1)[2 * 3], 100) << "contrast 10 of the 16 that count";
  }
  // E = 8 * 8, so f = 3: 330 - 8 * trunc(100 * (2 * 8 / 64)). A neighbour has E = 8, f = 1.5:
  // 150 - trunc(110 * 0.5).
  run(sharpens[2], source, destination, 2, 3.0f);
  EXPECT_EQ(destination.row(2)[2 * 3], 130);
  EXPECT_EQ(destination.row(1)[2 * 3], 95);
  EXPECT_EQ(destination.row(0)[0], 100);
}

TEST(SelectiveSharpen, TruncatesEachNeighbourOrTheirSum) {
  TestImage source(3, 3), destination(3, 3);
  source.fill(7);
  source.row(1)[3] = 50;
  // q = 1/8: eight times trunc(7 / 8) = 0 against trunc(56 / 8) = 7.
  run(sharpens[0], source, destination, 1, 2.0f);
  EXPECT_EQ(destination.row(1)[3], 100);
  run(sharpens[1], source, destination, 1, 2.0f);
  EXPECT_EQ(destination.row(1)[3], 93);
}

TEST(SelectiveSharpen, LimitsResultsToAByte) {
  TestImage source(5, 3), destination(5, 3);
  for (const Sharpen sharpen : sharpens) {
    source.fill(0);
    source.row(1)[2 * 3] = 255;
    run(sharpen, source, destination, 1, 2.0f);
    EXPECT_EQ(destination.row(1)[2 * 3], 255);
    EXPECT_EQ(destination.row(1)[1 * 3], 0);
    source.fill(255);
    source.row(1)[2 * 3] = 3;
    run(sharpen, source, destination, 1, 2.0f);
    EXPECT_EQ(destination.row(1)[2 * 3], 0);
    EXPECT_EQ(destination.row(1)[1 * 3], 255);
  }
}

TEST(SelectiveSharpen, CopiesFlatImagesAndAtGain1) {
  test::forEachLevelAndTeam([] {
    for (const Sharpen sharpen : sharpens) {
      TestImage source(70, 19), destination(70, 19);
      for (const float gain : {1.0f, 1.7f, 200.0f}) {
        source.fill(213);
        if (gain == 1.0f) source.fillRandom(1);
        std::vector<uint8_t> expected = destination.bytes();
        for (int y = 0; y < 19; ++y) {
          std::copy_n(source.row(y), source.rowBytes(),
                      expected.begin() + static_cast<ptrdiff_t>(source.stride()) * y);
        }
        run(sharpen, source, destination, 1, gain);
        ASSERT_EQ(firstDifference(expected, destination.bytes(), source.stride()), "") << gain;
      }
    }
  });
}

TEST(SelectiveSharpen, FollowsTheCutFormulaForEverySmallSize) {
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] {
      Random random(1);
      uint64_t seed = 1;
      for (int width = 1; width <= 33; ++width) {
        for (int height = 1; height <= 33; height += width % 4 + 1) {
          const float gain = 1.0f + static_cast<float>(random.range(0, 5000)) / 1000.0f;
          expectModel(width, height, random.range(1, 40), gain,
                      seed % 2 != 0 ? GuardAt::end : GuardAt::start, seed);
          ++seed;
        }
      }
    });
  }
}

TEST(SelectiveSharpen, GivesTheSameBytesAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    uint64_t seed = 1;
    // Gains whose products fall on, just above and just below whole numbers, and on both sides of
    // every bound of the narrow sums.
    for (const float gain : {1.00001f, 1.1f, 1.3f, 1.5f, 2.0f, 4.25f, 17.0f, 128.0f,
                             std::nextafter(128.0f, 129.0f), 1e5f}) {
      for (const int threshold : {1, 6, 20}) {
        expectModel(60 + threshold, 9, threshold, gain, GuardAt::end, seed++);
      }
    }
    expectModel(211, 37, 12, 1.37f, GuardAt::start, 50);
  });
}

TEST(SelectiveSharpen, IsDefinedForAnyGainAndThreshold) {
  const float infinity = std::numeric_limits<float>::infinity();
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [&] {
      for (const float gain : {1.5f, 8421505.0f, 1e9f, FLT_MAX, infinity}) {
        for (const int threshold : {1, 254, 255, 256, (1 << 28) - 1, 1 << 28, 1 << 29, INT32_MAX}) {
          expectModel(47, 5, threshold, gain, GuardAt::end, 3);
        }
      }
    });
  }
}

TEST(SelectiveSharpen, HasBodiesOfItsOwnForAvx2) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const SharpenKernels vector = sharpenKernels(InstructionSet::avx2);
  EXPECT_NE(vector.simple, simpleSharpenScalar);
  EXPECT_NE(vector.modifiedSimple, modifiedSimpleSharpenScalar);
  EXPECT_NE(vector.smooth, smoothSharpenScalar);
}

TEST(SelectiveSharpen, ChangesNothingForABadCall) {
  initialise();
  for (const Sharpen sharpen : sharpens) {
    TestImage source(20, 20), destination(20, 20);
    source.fillRandom(4);
    const std::vector<uint8_t> before = destination.bytes();
    const auto expectUnchanged = [&](const std::string& what) {
      EXPECT_EQ(firstDifference(before, destination.bytes(), destination.stride()), "") << what;
    };
    for (const float gain :
         {std::nextafter(1.0f, 0.0f), 0.0f, -2.0f, -std::numeric_limits<float>::infinity(),
          std::numeric_limits<float>::quiet_NaN()}) {
      run(sharpen, source, destination, 1, gain);
      expectUnchanged("gain " + std::to_string(gain));
    }
    run(sharpen, source, destination, 0, 2.0f);
    run(sharpen, source, destination, INT32_MIN, 2.0f);
    expectUnchanged("threshold");
    sharpen(nullptr, source.bits(), &destination.header, destination.bits(), 1, 2.0f);
    sharpen(&source.header, nullptr, &destination.header, destination.bits(), 1, 2.0f);
    sharpen(&source.header, source.bits(), nullptr, destination.bits(), 1, 2.0f);
    sharpen(&source.header, source.bits(), &destination.header, nullptr, 1, 2.0f);
    expectUnchanged("null");
    source.header.biWidth = 19;
    run(sharpen, source, destination, 1, 2.0f);
    source.header.biWidth = 20;
    source.header.biHeight = 19;
    run(sharpen, source, destination, 1, 2.0f);
    expectUnchanged("sizes that differ");
    const int sizes[][2] = {{20, 0},
                            {20, -20},
                            {0, 20},
                            {-20, 20},
                            {20, INT32_MIN},
                            {715827882, 1},
                            {INT32_MAX, INT32_MAX}};
    for (const auto& [width, height] : sizes) {
      source.header.biWidth = destination.header.biWidth = width;
      source.header.biHeight = destination.header.biHeight = height;
      run(sharpen, source, destination, 1, 2.0f);
      expectUnchanged(std::to_string(width) + " x " + std::to_string(height));
    }
  }
}

}  // namespace
}  // namespace kvl
