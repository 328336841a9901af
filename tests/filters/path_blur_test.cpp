// Zoom and radial blur: the same samples along another path.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/exact_math.h"
#include "core/initialise.h"
#include "filters/one_pass_checks.h"
#include "filters/similarity_average_kernels.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::expectCopy;
using test::expectMirror;
using test::expectModel;
using test::expectUnchanged;
using test::Filter;
using test::Model;
using test::RawCall;
using test::TestImage;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr long double pi = 3.14159265358979323846264338327950288L;

Filter zoom(double x, double y, double strength) {
  return [=](const RawCall& c) {
    KVL_BlurZoom(c.source, c.sourceStride, c.destination, c.destinationStride, c.width, c.height, x,
                 y, strength, c.components);
  };
}

Filter radial(double x, double y, double angle) {
  return [=](const RawCall& c) {
    KVL_BlurRadial(c.source, c.sourceStride, c.destination, c.destinationStride, c.width, c.height,
                   x, y, angle, c.components);
  };
}

// A quotient to the nearest integer, halves away from zero.
int64_t away(__int128 numerator, __int128 denominator) {
  const __int128 rounded =
      (2 * (numerator < 0 ? -numerator : numerator) + denominator) / (2 * denominator);
  return static_cast<int64_t>(numerator < 0 ? -rounded : rounded);
}

int64_t even(double value) {
  return static_cast<int64_t>(std::nearbyint(value));
}

// The sum of the samples of a pixel, in its own words.
struct PathModel {
  double centreX;
  double centreY;
  double length;
  bool turns;

  int operator()(const TestImage& image, int x, int y, int c) const {
    const int64_t cx = even(256 * centreX), cy = even(256 * centreY);
    const int64_t dx = 256 * x - cx, dy = 256 * y - cy;
    const int64_t extent = even(65536 * length);
    int64_t q = 0;
    for (const int cornerX : {0, image.width() - 1}) {
      for (const int cornerY : {0, image.height() - 1}) {
        const int64_t ex = 256 * cornerX - cx, ey = 256 * cornerY - cy;
        q = std::max(q, ex * ex + ey * ey);
      }
    }
    int ring = 1;
    while (dx * dx + dy * dy > static_cast<int64_t>(__int128{q} * ring * ring / 64)) ++ring;
    const double perDistance = turns ? static_cast<double>(extent) / 65536.0 * 0.017453292519943295
                                     : static_cast<double>(extent) / 65536.0;
    const double l = perDistance * (std::sqrt(static_cast<double>(q)) / 256.0) * ring / 8;
    const auto n = static_cast<int64_t>(std::min(1024.0, std::ceil(l) + 1));
    int64_t sum = 2048 * n;
    for (int64_t k = 0; k < n; ++k) {
      int64_t along = 0, across = 0;
      if (turns) {
        const long double t =
            static_cast<long double>(away(__int128{4} * extent * (2 * k + 1 - n), n)) / 524288 *
            pi / 180;
        along = std::llround(std::cos(t) * 1073741824.0L) - 1073741824;
        across = std::llround(std::sin(t) * 1073741824.0L);
      } else {
        along = away(__int128{8192} * extent * (2 * k + 1 - n), n);
      }
      const __int128 one = __int128{1} << 32;
      const int64_t u =
          std::clamp<int64_t>(64 * x + away(__int128{along} * dx - __int128{across} * dy, one), 0,
                              64 * (image.width() - 1));
      const int64_t v =
          std::clamp<int64_t>(64 * y + away(__int128{across} * dx + __int128{along} * dy, one), 0,
                              64 * (image.height() - 1));
      for (const int right : {0, 1}) {
        for (const int down : {0, 1}) {
          const int64_t f = right != 0 ? u % 64 : 64 - u % 64;
          const int64_t g = down != 0 ? v % 64 : 64 - v % 64;
          sum += f * g * test::sampleAt(image, u / 64 + right, v / 64 + down, c);
        }
      }
    }
    return static_cast<int>(sum / (4096 * n));
  }
};

TEST(ZoomBlur, AveragesARayAsWorkedByHand) {
  // Centre on the leftmost of five pixels: Q = 1024^2, so pixel 4 lies in ring 8 and at strength
  // 0.5 its blur is 2 pixels long: n = 3 samples, 2/3 of a pixel apart. m / 2^30 = -1/6, 0, 1/6:
  // u = 256 - 43, 256, 256 + 43 clamped to 256.
  TestImage source = test::rawImage(5, 1, 1), result = test::rawImage(5, 1, 1);
  source.assign({0, 10, 40, 80, 240});
  test::apply(zoom(0, 0, 0.5), source, result);
  // Sample 0 is at 213 = 3 * 64 + 21: (43 * 80 + 21 * 240) / 64 = 132.5; (132.5 + 480) / 3 = 204.17
  EXPECT_EQ(result.row(0)[4], 204);
  // Pixel 2 lies on the edge of ring 4: length 1, n = 2, m = -+1/8: u = 128 -+ 16.
  // (48 * 40 + 16 * 10) / 64 = 32.5 and (48 * 40 + 16 * 80) / 64 = 50; their mean is 41.25.
  EXPECT_EQ(result.row(0)[2], 41);
  EXPECT_EQ(result.row(0)[0], 0);
}

TEST(RadialBlur, AveragesAFullTurnAsWorkedByHand) {
  // Round the middle of 3 x 3 pixels Q = 2 * 256^2; the middle of each side lies in ring 6, of
  // length 2 pi * 1.414 * 6 / 8 = 6.66, so n = 8 samples stand 22.5 degrees off the axes and 45
  // apart. By symmetry one bright side pixel gives all four the same mean.
  TestImage source = test::rawImage(3, 3, 1), result = test::rawImage(3, 3, 1);
  source.fill(0).row(0)[1] = 240;
  test::apply(radial(1, 1, 360), source, result);
  // Two of the samples are at (1 -+ sin 22.5, 1 - cos 22.5) = 24/64 right or left and 59/64 up:
  // weight 40 * 59 each; two at 59/64 and 24/64: weight 5 * 24 each.
  const int expected = (240 * 2 * (40 * 59 + 5 * 24) + 4096 * 4) / (4096 * 8);
  EXPECT_EQ(expected, 36);
  for (const auto& [x, y] : {std::pair{1, 0}, {0, 1}, {2, 1}, {1, 2}}) {
    EXPECT_EQ(result.row(y)[x], expected) << x << y;
  }
  EXPECT_EQ(result.row(1)[1], 0);
}

TEST(PathBlurs, FollowTheModelForEverySmallSize) {
  for (const InstructionSet level : test::availableLevels()) {
    SCOPED_TRACE(test::levelName(level));
    test::atLevel(level, [] {
      uint64_t seed = 1;
      for (int width = 1; width <= 33; ++width) {
        for (const int height : {1, 2, 5, 33 - width % 7}) {
          const int components = seed % 3 == 0 ? 1 : seed % 3 == 1 ? 3 : 4;
          const double x = 0.37 * width, y = 1.81 * height - 5;
          expectModel(zoom(x, y, 0.7), PathModel{x, y, 0.7, false}, width, height, components,
                      seed);
          expectModel(radial(x, y, 40), PathModel{x, y, 40, true}, width, height, components,
                      seed++);
        }
      }
    });
  }
}

TEST(PathBlurs, FollowTheModelAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    // Centres in and far outside the image; the last ones reach the largest count of samples.
    expectModel(zoom(60, 9.25, 2), PathModel{60, 9.25, 2, false}, 117, 21, 3, 3);
    expectModel(radial(60, 9.25, 97.3), PathModel{60, 9.25, 97.3, true}, 117, 21, 1, 4);
    expectModel(zoom(-700.03, 1e3, 0.011), PathModel{-700.03, 1e3, 0.011, false}, 61, 19, 4, 5);
    expectModel(zoom(1048576, -1048576, 2), PathModel{1048576, -1048576, 2, false}, 9, 2, 1, 6);
    expectModel(radial(-1048576, 3, 360), PathModel{-1048576, 3, 360, true}, 9, 2, 4, 7);
  });
}

TEST(PathBlurs, KeepFlatImagesFlat) {
  const Model same = [](const TestImage& source, int, int, int) { return source.row(0)[0]; };
  test::forEachLevelAndTeam([&] {
    for (const int value : {1, 127, 254, 255}) {
      for (const Filter& filter : {zoom(3.3, 40, 1.7), radial(-100, 5, 359)}) {
        TestImage image = test::rawImage(50, 9, 3), result = test::rawImage(50, 9, 3);
        image.fill(static_cast<uint8_t>(value));
        result.fill(static_cast<uint8_t>(value));
        const std::vector<uint8_t> expected = result.bytes();
        test::apply(filter, image, result);
        ASSERT_EQ(test::firstDifference(expected, result.bytes(), result.stride()), "") << value;
      }
    }
  });
}

TEST(PathBlurs, MirrorWithTheImage) {
  initialise();
  // 0.001953125 is half of 1/256: the centre's rounding must not favour a side.
  for (const double x : {5.001953125, 21.0, -7.4921875, 300.63671875}) {
    const double y = 28 - x / 2;
    for (const int components : {1, 3}) {
      expectMirror(zoom(x, y, 0.9), zoom(42 - x, y, 0.9), true, components);
      expectMirror(zoom(x, y, 0.9), zoom(x, 28 - y, 0.9), false, components);
      expectMirror(radial(x, y, 33.3), radial(42 - x, y, 33.3), true, components);
      expectMirror(radial(x, y, 33.3), radial(x, 28 - y, 33.3), false, components);
    }
  }
}

TEST(PathBlurs, HaveVectorBodiesOfTheirOwn) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const SimilarityKernels scalar = similarityKernels(InstructionSet::scalar);
  const SimilarityKernels vector = similarityKernels(InstructionSet::avx2);
  EXPECT_NE(vector.oneComponent, scalar.oneComponent);
  EXPECT_NE(vector.fourComponents, scalar.fourComponents);
}

TEST(PathBlurs, CopyAtStrength0AndTakeTooMuchAsTheMost) {
  initialise();
  expectCopy(zoom(3, 4, 0));
  expectCopy(zoom(3, 4, 1e-9));
  expectCopy(radial(3, 4, 0));
  expectModel(zoom(3, 4, 1e300), PathModel{3, 4, 2, false}, 20, 20, 3, 1);
  expectModel(radial(3, 4, 1e300), PathModel{3, 4, 360, true}, 20, 20, 3, 1);
}

TEST(PathBlurs, ChangeNothingForABadCall) {
  initialise();
  test::expectBadImagesChangeNothing(zoom(3, 4, 0.5));
  test::expectBadImagesChangeNothing(radial(3, 4, 5));
  for (const double bad : {nan, infinity, -infinity, 1048576.5, -1e300}) {
    expectUnchanged(zoom(bad, 4, 0.5), "centre");
    expectUnchanged(zoom(3, bad, 0.5), "centre");
    expectUnchanged(radial(bad, 4, 5), "centre");
    expectUnchanged(radial(3, bad, 0), "centre");
  }
  for (const double bad : {nan, infinity, -infinity, -0.001}) {
    expectUnchanged(zoom(3, 4, bad), "strength");
    expectUnchanged(radial(3, 4, bad), "angle");
  }
}

}  // namespace
}  // namespace kvl
