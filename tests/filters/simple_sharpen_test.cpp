#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/initialise.h"
#include "filters/one_pass_checks.h"
#include "filters/simple_sharpen_kernels.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::expectModel;
using test::expectUnchanged;
using test::Filter;
using test::RawCall;
using test::TestImage;

Filter sharpen(int32_t threshold, float gain, int32_t layout = 1) {
  return [=](const RawCall& c) {
    KVL_SharpenSimpleUni_MultiComp(c.source, c.sourceStride, c.destination, c.destinationStride,
                                   c.width, c.height, threshold, gain, c.components, layout);
  };
}

Filter sharpenPlane(int32_t threshold, float gain) {
  return [=](const RawCall& c) {
    KVL_SharpenSimpleUni(c.source, c.sourceStride, c.destination, c.destinationStride, c.width,
                         c.height, threshold, gain);
  };
}

struct SharpenModel {
  int threshold;
  double gain;

  int operator()(const TestImage& image, int x, int y, int c) const {
    const int centre = test::sampleAt(image, x, y, c);
    int excess = 9 * centre;
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) excess -= test::sampleAt(image, x + dx, y + dy, c);
    }
    if (std::abs(excess) < 8 * threshold) return centre;
    const double units = std::min(std::nearbyint(gain * 256), 32767.0);
    return static_cast<int>(std::clamp(centre + std::round(excess * units / 2048), 0.0, 255.0));
  }
};

TEST(SharpenSimple, PushesAPixelAsWorkedByHand) {
  TestImage source = test::rawImage(3, 3, 1), result = test::rawImage(3, 3, 1);
  source.fill(100).row(1)[1] = 120;
  // The middle exceeds its neighbours' mean by 20; the others fall short of theirs by 20 / 8 = 2.5.
  test::apply(sharpenPlane(20, 0.5f), source, result);
  EXPECT_EQ(result.row(1)[1], 130);
  EXPECT_EQ(result.row(0)[0], 100);
  test::apply(sharpenPlane(21, 0.5f), source, result);
  EXPECT_EQ(result.row(1)[1], 120);
  // 0.5 * -2.5 = -1.25 and 1 * -2.5, a half that goes away from 0.
  test::apply(sharpenPlane(2, 0.5f), source, result);
  EXPECT_EQ(result.row(0)[0], 99);
  test::apply(sharpenPlane(2, 1.0f), source, result);
  EXPECT_EQ(result.row(0)[0], 97);
  EXPECT_EQ(result.row(1)[1], 140);
  test::apply(sharpenPlane(3, 100.0f), source, result);
  EXPECT_EQ(result.row(0)[0], 100);
  EXPECT_EQ(result.row(1)[1], 255);
}

TEST(SharpenSimple, FollowsTheModelForEverySmallSize) {
  for (const InstructionSet level : test::availableLevels()) {
    SCOPED_TRACE(test::levelName(level));
    test::atLevel(level, [] {
      uint64_t seed = 1;
      for (int width = 1; width <= 40; ++width) {
        for (const int height : {1, 2, 3, 19}) {
          for (const int components : {1, 3, 4}) {
            const int threshold = static_cast<int>(seed % 5) * 13;
            const float gain = 0.37f * static_cast<float>(seed % 7 + 1);
            expectModel(sharpen(threshold, gain), SharpenModel{threshold, gain}, width, height,
                        components, seed++);
          }
          expectModel(sharpenPlane(9, 1.5f), SharpenModel{9, 1.5}, width, height, 1, seed);
        }
      }
    });
  }
}

TEST(SharpenSimple, FollowsTheModelAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    for (const auto& [threshold, gain] : {std::pair{0, 1.0f},
                                          {1, 0.01f},
                                          {254, 3.0f},
                                          {255, 127.9f},
                                          {256, 9.0f},
                                          {INT32_MAX, 9.0f},
                                          {5, 1e30f},
                                          {0, std::numeric_limits<float>::infinity()}}) {
      expectModel(sharpen(threshold, gain), SharpenModel{std::min(threshold, 1000), gain}, 211, 31,
                  3, 7);
    }
  });
}

TEST(SharpenSimple, MirrorsAndInvertsWithTheImage) {
  initialise();
  for (const bool horizontally : {true, false}) {
    test::expectMirror(sharpen(4, 1.7f), sharpen(4, 1.7f), horizontally, 3);
  }
  TestImage image = test::rawImage(53, 17, 3), inverse = test::rawImage(53, 17, 3);
  TestImage result = test::rawImage(53, 17, 3), inverseResult = test::rawImage(53, 17, 3);
  image.fillRandom(8);
  for (size_t i = 0; i < image.bytes().size(); ++i) {
    inverse.bits()[i] = static_cast<uint8_t>(255 - image.bits()[i]);
  }
  test::apply(sharpen(4, 0.7f), image, result);
  test::apply(sharpen(4, 0.7f), inverse, inverseResult);
  for (int y = 0; y < image.height(); ++y) {
    for (size_t x = 0; x < image.rowBytes(); ++x) {
      ASSERT_EQ(result.row(y)[x], 255 - inverseResult.row(y)[x]) << x << " " << y;
    }
  }
}

TEST(SharpenSimple, HasAVectorBodyOfItsOwn) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  EXPECT_NE(sharpenSimpleKernels(InstructionSet::avx2).row,
            sharpenSimpleKernels(InstructionSet::scalar).row);
}

TEST(SharpenSimple, CopiesAtGain0) {
  initialise();
  test::expectCopy(sharpen(0, 0.0f));
  test::expectCopy(sharpen(0, 0.001f));
}

TEST(SharpenSimple, ChangesNothingForABadCall) {
  initialise();
  test::expectBadImagesChangeNothing(sharpen(2, 1.0f));
  test::expectBadImagesChangeNothing(sharpenPlane(2, 1.0f), false);
  for (const float gain :
       {-0.5f, std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()}) {
    expectUnchanged(sharpen(2, gain), "gain");
    expectUnchanged(sharpenPlane(2, gain), "gain");
  }
  for (const int32_t threshold : {-1, INT32_MIN}) {
    expectUnchanged(sharpen(threshold, 1.0f), "threshold");
    expectUnchanged(sharpenPlane(threshold, 1.0f), "threshold");
  }
  for (const int32_t layout : {0, 2, -1}) expectUnchanged(sharpen(2, 1.0f, layout), "layout");
}

}  // namespace
}  // namespace kvl
