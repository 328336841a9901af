// Zoom and radial blur: the same samples along another path.
#include "core/exact_math.h"
#include "filters/one_pass_checks.h"
#include "filters/similarity_average_kernels.h"
#include "support/kernel_levels.h"

namespace kvl::test {
namespace {

constexpr long double pi = 3.14159265358979323846264338327950288L;

Filter pathBlur(decltype(KVL_BlurZoom)* blur, double x, double y, double extent) {
  return filterOf([=](auto* source, auto sourceStride, auto* destination, auto stride, auto width,
                      auto height, auto components) {
    blur(source, sourceStride, destination, stride, width, height, x, y, extent, components);
  });
}

Filter zoom(double x, double y, double strength) {
  return pathBlur(KVL_BlurZoom, x, y, strength);
}

Filter radial(double x, double y, double angle) {
  return pathBlur(KVL_BlurRadial, x, y, angle);
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
          sum += f * g * sampleAt(image, u / 64 + right, v / 64 + down, c);
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
  TestImage source = rawImage(5, 1, 1), result = rawImage(5, 1, 1);
  source.assign({0, 10, 40, 80, 240});
  zoom(0, 0, 0.5)(source, result);
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
  TestImage source = rawImage(3, 3, 1), result = rawImage(3, 3, 1);
  source.fill(0).row(0)[1] = 240;
  radial(1, 1, 360)(source, result);
  // Two of the samples are at (1 -+ sin 22.5, 1 - cos 22.5) = 24/64 right or left and 59/64 up:
  // weight 40 * 59 each; two at 59/64 and 24/64: weight 5 * 24 each.
  const int expected = (240 * 2 * (40 * 59 + 5 * 24) + 4096 * 4) / (4096 * 8);
  EXPECT_EQ(expected, 36);
  for (const auto& [x, y] : {std::pair{1, 0}, {0, 1}, {2, 1}, {1, 2}}) {
    EXPECT_EQ(result.row(y)[x], expected) << x << y;
  }
  EXPECT_EQ(result.row(1)[1], 0);
}

TEST(PathBlurs, FollowTheModelAtEveryLevelAndTeamSize) {
  forEverySmallImage([](int width, int height, int components, uint64_t seed) {
    const double x = 0.37 * width, y = 1.81 * height - 5;
    expectModel(zoom(x, y, 0.7), PathModel{x, y, 0.7, false}, width, height, components, seed);
    expectModel(radial(x, y, 40), PathModel{x, y, 40, true}, width, height, components, seed);
  });
  forEachLevelAndTeam([] {
    // Centres in and far outside the image; the last ones reach the largest count of samples.
    expectModel(zoom(60, 9.25, 2), PathModel{60, 9.25, 2, false}, 117, 21, 3, 3);
    expectModel(radial(60, 9.25, 97.3), PathModel{60, 9.25, 97.3, true}, 117, 21, 1, 4);
    expectModel(zoom(-700.03, 1e3, 0.011), PathModel{-700.03, 1e3, 0.011, false}, 61, 19, 4, 5);
    expectModel(zoom(1048576, -1048576, 2), PathModel{1048576, -1048576, 2, false}, 9, 2, 1, 6);
    expectModel(radial(-1048576, 3, 360), PathModel{-1048576, 3, 360, true}, 9, 2, 4, 7);
    // 0.001953125 is half of 1/256: the centre is rounded to even.
    expectModel(zoom(5.001953125, 9, 0.9), PathModel{5.001953125, 9, 0.9, false}, 43, 29, 1, 8);
  });
}

TEST(PathBlurs, CopyAtStrength0AndTakeTooMuchAsTheMost) {
  initialise();
  for (const Filter& filter : {zoom(3, 4, 0), zoom(3, 4, 1e-9), radial(3, 4, 0)}) {
    expectModel(filter, sampleAt, 20, 20, 3, 1);
  }
  expectModel(zoom(3, 4, 1e300), PathModel{3, 4, 2, false}, 20, 20, 3, 1);
  expectModel(radial(3, 4, 1e300), PathModel{3, 4, 360, true}, 20, 20, 3, 1);
}

TEST(PathBlurs, HaveKernelsOfTheirOwnForAvx2) {
  EXPECT_EQ(replaced(similarityKernels), (Replaced{0, 0, 0, 2}));
}

TEST(PathBlurs, ChangeNothingForABadCall) {
  initialise();
  TestImage source = rawImage(20, 9, 1), result = rawImage(20, 9, 1);
  source.fillRandom(1);
  for (const auto blur : {KVL_BlurZoom, KVL_BlurRadial}) {
    BadCalls calls(blur, source.bits(), 20, result.bits(), 20, 20, 9, 3, 4, 0.5, 1);
    expectBadImagesChangeNothing(calls, result);
    calls.with<6>({notANumber, infinity, -infinity, 1048576.5, -1e300});
    calls.with<7>({notANumber, infinity, -infinity, 1048576.5, -1e300});
    calls.with<8>({notANumber, infinity, -infinity, -0.001});
    calls.with<9>(badComponents);
  }
}

}  // namespace
}  // namespace kvl::test
