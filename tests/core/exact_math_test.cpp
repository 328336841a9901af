#include "core/exact_math.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kvl {
namespace {

constexpr long double pi = 3.14159265358979323846264338327950288L;

TEST(ExactMath, RoundsHalvesAsNamed) {
  EXPECT_EQ(roundHalfEven(2.5), 2);
  EXPECT_EQ(roundHalfEven(3.5), 4);
  EXPECT_EQ(roundHalfEven(-2.5), -2);
  EXPECT_EQ(roundHalfEven(-0.6), -1);
  EXPECT_EQ(divideHalfAway(5, 2), 3);
  EXPECT_EQ(divideHalfAway(-5, 2), -3);
  EXPECT_EQ(divideHalfAway(-7, 3), -2);
}

TEST(ExactMath, SineAndCosineAreTheNearestValues) {
  constexpr int64_t full = int64_t{360} << 19;
  for (int64_t angle = -full - 77; angle < 2 * full; angle += 49999) {
    const long double x = static_cast<long double>(angle) / 524288 * pi / 180;
    const SineCosine got = sineCosine(angle);
    ASSERT_EQ(got.sine, std::llround(std::sin(x) * 1073741824.0L)) << angle;
    ASSERT_EQ(got.cosine, std::llround(std::cos(x) * 1073741824.0L)) << angle;
  }
  EXPECT_EQ(sineCosine(int64_t{30} << 19).sine, 1 << 29);
  EXPECT_EQ(sineCosine(int64_t{270} << 19).sine, -(1 << 30));
  EXPECT_EQ(sineCosine(int64_t{270} << 19).cosine, 0);
}

TEST(ExactMath, SineIsExactTo50Bits) {
  constexpr double tolerance = 0x1p-50;
  for (double x = -16; x < 16; x += 0.000731) {
    ASSERT_NEAR(sine(x), static_cast<double>(std::sin(static_cast<long double>(x))), tolerance)
        << x;
  }
  // Beyond, the C library of Windows is not exact enough to compare with.
  EXPECT_NEAR(sine(100), -0.5063656411097588, tolerance);
  EXPECT_NEAR(sine(-12345.678), 0.7040813137533816, tolerance);
  EXPECT_NEAR(sine(1000000.125), -0.23047341465154034, tolerance);
  EXPECT_NEAR(sine(33554431.75), -0.8928592614463112, tolerance);
  EXPECT_EQ(sine(0), 0);
}

}  // namespace
}  // namespace kvl
