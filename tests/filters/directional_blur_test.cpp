#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/initialise.h"
#include "filters/directional_blur_kernels.h"
#include "filters/one_pass_checks.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::expectMirror;
using test::expectModel;
using test::expectUnchanged;
using test::Filter;
using test::RawCall;
using test::TestImage;

Filter directional(double angle, double length) {
  return [=](const RawCall& c) {
    KVL_BlurDirectional(c.source, c.sourceStride, c.destination, c.destinationStride, c.width,
                        c.height, angle, length, c.components);
  };
}

// Sample by sample, for angles that are multiples of 2^-16 degrees and lengths that are of 1/8.
struct LineModel {
  double angle;
  double length;

  int operator()(const TestImage& image, int x, int y, int c) const {
    const long double radians = angle * 3.14159265358979323846264338327950288L / 180;
    const int64_t cosine = std::llround(std::cos(radians) * 1073741824.0L);
    const int64_t sine = std::llround(std::sin(radians) * 1073741824.0L);
    const auto eighths = static_cast<int64_t>(length * 8);
    int64_t sum = 0, weights = 0;
    const int64_t last = eighths / 8 + 1;
    for (int64_t j = -last; j <= last; ++j) {
      const int64_t w = j == 0 ? 8 : std::clamp<int64_t>(eighths + 4 - 8 * std::abs(j), 0, 8);
      if (w == 0) continue;
      // llround rounds halves away from 0; the products are exact in a long double.
      const int64_t u = 32 * x + std::llround(static_cast<long double>(j * cosine) / 67108864);
      const int64_t v = 32 * y + std::llround(static_cast<long double>(j * sine) / 67108864);
      const auto left = static_cast<int64_t>(std::floor(static_cast<double>(u) / 32));
      const auto top = static_cast<int64_t>(std::floor(static_cast<double>(v) / 32));
      const int64_t f = u - 32 * left, g = v - 32 * top;
      const auto at = [&](int64_t dx, int64_t dy) {
        return test::sampleAt(image, left + dx, top + dy, c);
      };
      sum += w * ((32 - g) * ((32 - f) * at(0, 0) + f * at(1, 0)) +
                  g * ((32 - f) * at(0, 1) + f * at(1, 1)));
      weights += w;
    }
    return static_cast<int>((sum + 512 * weights) / (1024 * weights));
  }
};

TEST(DirectionalBlur, SpreadsAPixelAsWorkedByHand) {
  TestImage source = test::rawImage(7, 3, 1), result = test::rawImage(7, 3, 1);
  source.fill(0).row(1)[3] = 240;
  // L = 16: w = 8, 8, 4 for |j| = 0, 1, 2, together 32. The centre takes 8 + 2 * 8 / 2 = 16, each
  // neighbour 8 / 2 + 4 = 8.
  test::apply(directional(0, 2), source, result);
  const int expected[7] = {0, 0, 60, 120, 60, 0, 0};
  for (int x = 0; x < 7; ++x) EXPECT_EQ(result.row(1)[x], expected[x]) << x;
  for (int x = 0; x < 7; ++x) EXPECT_EQ(result.row(0)[x], 0) << x;
  test::apply(directional(-90, 2), source, result);
  EXPECT_EQ(result.row(0)[3], 60);
  EXPECT_EQ(result.row(1)[3], 120);
  EXPECT_EQ(result.row(1)[2], 0);
  // Angles turn from x towards y: 45 degrees joins the upper left to the lower right.
  test::apply(directional(45, 3), source, result);
  EXPECT_EQ(result.row(0)[2], result.row(2)[4]);
  EXPECT_GT(result.row(0)[2], result.row(0)[4] + 30);
}

TEST(DirectionalBlur, FollowsTheModelForEverySmallSize) {
  for (const InstructionSet level : test::availableLevels()) {
    SCOPED_TRACE(test::levelName(level));
    test::atLevel(level, [] {
      uint64_t seed = 1;
      for (int width = 1; width <= 33; ++width) {
        for (const int height : {1, 2, 5, 33 - width % 7}) {
          const int components = seed % 3 == 0 ? 1 : seed % 3 == 1 ? 3 : 4;
          const double angle = 17.25 * static_cast<double>(seed % 41) - 360;
          const double length = 0.625 + static_cast<double>(seed % 29) * 0.875;
          expectModel(directional(angle, length), LineModel{angle, length}, width, height,
                      components, seed++);
        }
      }
    });
  }
}

TEST(DirectionalBlur, FollowsTheModelAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    uint64_t seed = 1;
    for (const auto& [angle, length] : {std::pair{0.0, 30.0},
                                        {90.0, 30.0},
                                        {180.0, 5.5},
                                        {270.0, 61.0},
                                        {45.0, 12.125},
                                        {17.0, 40.0},
                                        {107.0, 40.0},
                                        {-33.5, 90.0}}) {
      for (const int components : {1, 3, 4}) {
        expectModel(directional(angle, length), LineModel{angle, length}, 51, 13, components,
                    seed++);
      }
    }
    expectModel(directional(31, 1024), LineModel{31, 1024}, 23, 3, 3, 9);
    expectModel(directional(0, 1024), LineModel{0, 1024}, 40, 1, 3, 9);
    expectModel(directional(90, 1024), LineModel{90, 1024}, 1, 40, 3, 9);
  });
}

TEST(DirectionalBlur, KeepsFlatImagesFlat) {
  test::forEachLevelAndTeam([] {
    for (const double angle : {0.0, 17.0, 45.0, 90.0, 133.0}) {
      for (const double length : {0.75, 33.0, 1024.0}) {
        for (const int value : {1, 127, 255}) {
          TestImage image = test::rawImage(41, 7, 3), result = test::rawImage(41, 7, 3);
          image.fill(static_cast<uint8_t>(value));
          result.fill(static_cast<uint8_t>(value));
          const std::vector<uint8_t> expected = result.bytes();
          test::apply(directional(angle, length), image, result);
          ASSERT_EQ(test::firstDifference(expected, result.bytes(), result.stride()), "")
              << angle << " " << length << " " << value;
        }
      }
    }
  });
}

TEST(DirectionalBlur, MirrorsWithTheImage) {
  initialise();
  for (const double angle : {0.0, 17.0, 45.0, 62.3, 90.0, 170.00001}) {
    for (const int components : {1, 4}) {
      expectMirror(directional(angle, 14.3), directional(180 - angle, 14.3), true, components);
      expectMirror(directional(angle, 14.3), directional(-angle, 14.3), false, components);
    }
  }
}

TEST(DirectionalBlur, HasVectorBodiesOfItsOwn) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const DirectionalKernels scalar = directionalKernels(InstructionSet::scalar);
  const DirectionalKernels vector = directionalKernels(InstructionSet::avx2);
  EXPECT_NE(vector.convolve, scalar.convolve);
  EXPECT_NE(vector.accumulate, scalar.accumulate);
  EXPECT_NE(vector.divide, scalar.divide);
}

TEST(DirectionalBlur, CopiesShortLengthsAndTakesLongOnesAsTheLongest) {
  initialise();
  for (const double length : {0.0, 0.25, 0.5}) test::expectCopy(directional(17, length));
  expectModel(directional(17, 1e300), LineModel{17, 1024}, 20, 9, 3, 1);
  expectModel(directional(17 + 360 * 1048576.0, 9), LineModel{17, 9}, 20, 9, 3, 1);
}

TEST(DirectionalBlur, ChangesNothingForABadCall) {
  initialise();
  test::expectBadImagesChangeNothing(directional(17, 5));
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double bad : {nan, infinity, -infinity}) {
    expectUnchanged(directional(bad, 5), "angle");
    expectUnchanged(directional(17, bad), "length");
  }
  expectUnchanged(directional(17, -1), "length");
}

}  // namespace
}  // namespace kvl
