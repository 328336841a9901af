#include "core/rounding.h"

#include <gtest/gtest.h>

#include <limits>

namespace kvl {
namespace {

TEST(RoundToInt, FollowsItsBiasWithAToleranceOfOneMillionth) {
  EXPECT_EQ(RoundToInt(2.9999995, 0.0), 3);
  EXPECT_EQ(RoundToInt(2.99999, 0.0), 2);
  EXPECT_EQ(RoundToInt(-1.2, 0.0), -2);
  EXPECT_EQ(RoundToInt(-1.0, 0.0), -1);
  EXPECT_EQ(RoundToInt(2.0000001, 1.0), 2);
  EXPECT_EQ(RoundToInt(2.1, 1.0), 3);
  EXPECT_EQ(RoundToInt(-2.1, 1.0), -2);
  EXPECT_EQ(RoundToInt(-2.9999995, 1.0), -3);
  EXPECT_EQ(RoundToInt(2.5, 0.5), 3);
  EXPECT_EQ(RoundToInt(-2.5, 0.5), -3);
  EXPECT_EQ(RoundToInt(2.5, 7.0), 3) << "any other bias rounds to nearest";
}

TEST(RoundToInt, SaturatesAndMapsNotANumberToTheLowest) {
  for (const double bias : {0.0, 0.5, 1.0}) {
    EXPECT_EQ(RoundToInt(3.0e9, bias), 2147483647);
    EXPECT_EQ(RoundToInt(-3.0e9, bias), INT32_MIN);
    EXPECT_EQ(RoundToInt(2147483646.9, bias), bias == 0.0 ? 2147483646 : 2147483647);
    EXPECT_EQ(RoundToInt(-2147483647.9, bias), bias == 1.0 ? -2147483647 : INT32_MIN);
    EXPECT_EQ(RoundToInt(std::numeric_limits<double>::infinity(), bias), 2147483647);
    EXPECT_EQ(RoundToInt(std::numeric_limits<double>::quiet_NaN(), bias), INT32_MIN);
  }
}

}  // namespace
}  // namespace kvl
