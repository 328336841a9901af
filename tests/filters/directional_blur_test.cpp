#include "filters/one_pass_checks.h"

namespace kvl::test {
namespace {

Filter directional(double angle, double length) {
  return filterOf([=](auto* source, auto sourceStride, auto* destination, auto stride, auto width,
                      auto height, auto components) {
    KVL_BlurDirectional(source, sourceStride, destination, stride, width, height, angle, length,
                        components);
  });
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
        return sampleAt(image, left + dx, top + dy, c);
      };
      sum += w * ((32 - g) * ((32 - f) * at(0, 0) + f * at(1, 0)) +
                  g * ((32 - f) * at(0, 1) + f * at(1, 1)));
      weights += w;
    }
    return static_cast<int>((sum + 512 * weights) / (1024 * weights));
  }
};

TEST(DirectionalBlur, SpreadsAPixelAsWorkedByHand) {
  TestImage source = rawImage(7, 3, 1), result = rawImage(7, 3, 1);
  source.fill(0).row(1)[3] = 240;
  // L = 16: w = 8, 8, 4 for |j| = 0, 1, 2, together 32. The centre takes 8 + 2 * 8 / 2 = 16, each
  // neighbour 8 / 2 + 4 = 8.
  directional(0, 2)(source, result);
  const int expected[7] = {0, 0, 60, 120, 60, 0, 0};
  for (int x = 0; x < 7; ++x) EXPECT_EQ(result.row(1)[x], expected[x]) << x;
  for (int x = 0; x < 7; ++x) EXPECT_EQ(result.row(0)[x], 0) << x;
  directional(-90, 2)(source, result);
  EXPECT_EQ(result.row(0)[3], 60);
  EXPECT_EQ(result.row(1)[3], 120);
  EXPECT_EQ(result.row(1)[2], 0);
  // Angles turn from x towards y: 45 degrees joins the upper left to the lower right.
  directional(45, 3)(source, result);
  EXPECT_EQ(result.row(0)[2], result.row(2)[4]);
  EXPECT_GT(result.row(0)[2], result.row(0)[4] + 30);
}

TEST(DirectionalBlur, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEverySmallImage([](int width, int height, int components, uint64_t seed) {
    const double angle = 17.25 * static_cast<double>(seed % 41) - 360;
    const double length = 0.625 + static_cast<double>(seed % 29) * 0.875;
    expectModel(directional(angle, length), LineModel{angle, length}, width, height, components,
                seed);
  });
  forEachLevelAndTeam([] {
    uint64_t seed = 1;
    const std::pair<double, double> lines[] = {{0, 30},      {90, 30}, {180, 5.5}, {270, 61},
                                               {45, 12.125}, {17, 40}, {107, 40},  {-33.5, 90}};
    for (const auto& [angle, length] : lines) {
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

TEST(DirectionalBlur, CopiesShortLengthsAndTakesLongOnesAsTheLongest) {
  initialise();
  for (const double length : {0.0, 0.25, 0.5}) {
    expectModel(directional(17, length), sampleAt, 20, 9, 3, 1);
  }
  expectModel(directional(17, 1e300), LineModel{17, 1024}, 20, 9, 3, 1);
  expectModel(directional(17 + 360 * 1048576.0, 9), LineModel{17, 9}, 20, 9, 3, 1);
}

TEST(DirectionalBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage source = rawImage(20, 9, 1), result = rawImage(20, 9, 1);
  source.fillRandom(1);
  BadCalls calls(KVL_BlurDirectional, source.bits(), 20, result.bits(), 20, 20, 9, 17, 5, 1);
  expectBadImagesChangeNothing(calls, result);
  calls.with<6>({notANumber, infinity, -infinity});
  calls.with<7>({notANumber, infinity, -infinity, -1.0});
  calls.with<8>(badComponents);
}

}  // namespace
}  // namespace kvl::test
