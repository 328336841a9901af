#include <cfloat>

#include "support/testing.h"

namespace kvl::test {
namespace {

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

void expectModel(int width, int height, int threshold, float gain, uint64_t seed) {
  for (const Sharpen sharpen : sharpens) {
    TestImage source(width, height, 24, guardOf(seed));
    TestImage destination(width, height, 24, guardOf(seed));
    fillMixed(source, seed, static_cast<int>(seed % 9));
    destination.fillRandom(seed + 1);
    const std::vector<uint8_t> expected =
        modelImage(sharpen, source, destination.bytes(), threshold, gain);
    run(sharpen, source, destination, threshold, gain);
    expectBytes(expected, destination,
                text(width, " x ", height, ", threshold ", threshold, ", gain ", gain));
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

TEST(SelectiveSharpen, FollowsTheCutFormulaAtEveryLevelAndTeamSize) {
  forEverySmallSize(2, [](const SmallSize& s) {
    Random random(s.seed);
    const float gain = 1.0f + static_cast<float>(random.range(0, 5000)) / 1000.0f;
    expectModel(s.width, s.height, random.range(1, 40), gain, s.seed);
  });
  forEachLevelAndTeam([] {
    uint64_t seed = 1;
    // Gains whose products fall on, just above and just below whole numbers, and on both sides of
    // every bound of the narrow sums.
    for (const float gain : {1.0f, 1.00001f, 1.1f, 1.3f, 1.5f, 2.0f, 4.25f, 17.0f, 128.0f,
                             std::nextafter(128.0f, 129.0f), 1e5f}) {
      for (const int threshold : {1, 6, 20})
        expectModel(60 + threshold, 9, threshold, gain, seed++);
    }
    expectModel(211, 37, 12, 1.37f, 50);
  });
}

TEST(SelectiveSharpen, IsDefinedForAnyGainAndThreshold) {
  forEachLevel([] {
    for (const double gain : {1.5, 8421505.0, 1e9, double{FLT_MAX}, infinity}) {
      for (const int threshold : {1, 254, 255, 256, (1 << 28) - 1, 1 << 28, 1 << 29, INT32_MAX}) {
        expectModel(47, 5, threshold, static_cast<float>(gain), 3);
      }
    }
  });
}

TEST(SelectiveSharpen, ChangesNothingForABadCall) {
  initialise();
  for (const Sharpen sharpen : sharpens) {
    TestImage source(20, 20), destination(20, 20);
    BadCalls calls(sharpen, &source.header, source.bits(), &destination.header, destination.bits(),
                   1, 2.0f);
    calls.watch(source.fillRandom(4), destination);
    calls.eachNull();
    calls.with<0>({makeHeader(19, 20), makeHeader(20, 19)});
    calls.with<0, 2>(impossibleSizes);
    calls.with<0, 2>({makeHeader(20, -20)});
    calls.with<4>({0, INT32_MIN});
    calls.with<5>({1 - 1e-7, 0.0, -2.0, -infinity, notANumber});
  }
}

}  // namespace
}  // namespace kvl::test
