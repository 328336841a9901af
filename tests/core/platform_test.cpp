#include "core/platform.h"

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

namespace kvl {
namespace {

using Sides = std::tuple<int, int, int, int>;

Sides sides(const RECT& r) {
  return {r.left, r.top, r.right, r.bottom};
}

TEST(Rectangles, IntersectAsWindowsDoes) {
  RECT result = {9, 9, 9, 9};
  EXPECT_TRUE(intersectRect(result, {0, 0, 10, 10}, {5, -5, 20, 5}));
  EXPECT_EQ(sides(result), Sides(5, 0, 10, 5));
  EXPECT_TRUE(intersectRect(result, result, {0, 0, 6, 6})) << "the result may be an input";
  EXPECT_EQ(sides(result), Sides(5, 0, 6, 5));
  EXPECT_FALSE(intersectRect(result, {0, 0, 10, 10}, {10, 0, 20, 10}));
  EXPECT_EQ(sides(result), Sides(0, 0, 0, 0));
  result = {1, 2, 3, 4};
  EXPECT_FALSE(intersectRect(result, {0, 0, 10, 10}, {8, 2, 3, 6})) << "an inverted rectangle";
  EXPECT_EQ(sides(result), Sides(0, 0, 0, 0));

  EXPECT_FALSE(isRectEmpty({0, 0, 1, 1}));
  EXPECT_TRUE(isRectEmpty({0, 0, 0, 1}));
  EXPECT_TRUE(isRectEmpty({INT32_MAX, 0, INT32_MIN, 1}));
}

}  // namespace
}  // namespace kvl
