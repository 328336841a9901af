#include "warp/source_box.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/test_image.h"

namespace kvl {
namespace {

std::string text(const RECT& r) {
  return test::text(r.left, ",", r.top, ",", r.right, ",", r.bottom);
}

SourceBox boxOf(const RECT& source, const RECT& destination, const Matrix4x4& matrix) {
  Matrix4x4 inverse = matrix;
  EXPECT_TRUE(invert(inverse));
  return findSourceBox(source, destination, Projection(matrix), inverse);
}

Matrix4x4 affine(double xx, double xy, double yx, double yy, double x, double y) {
  return {xx, xy, 0, 0, yx, yy, 0, 0, 0, 0, 1, 0, x, y, 0, 1};
}

TEST(SourceBox, ShrinksToCornersOfTheDestinationInsideThePicture) {
  const RECT all = RECT{0, 0, 100, 100};
  // The corner (0, 0) shows source (50, 60); a pixel more to the left and above.
  SourceBox box = boxOf(all, all, translation4x4(-50, -60));
  EXPECT_EQ(text(box.whole), "49,59,100,100");
  EXPECT_EQ(box.exact.left, 49);
  EXPECT_EQ(box.exact.bottom, 101);
  // All four corners inside: a window on a larger picture, also upside down, and at four times
  // the size, where a destination pixel is a quarter of one of the source's.
  const RECT large = RECT{0, 0, 1000, 1000};
  EXPECT_EQ(text(boxOf(large, all, translation4x4(-300.5, -400.5)).whole), "299,399,403,503");
  EXPECT_EQ(text(boxOf(large, all, affine(-1, 0, 0, -1, 500, 600)).whole), "399,499,502,602");
  EXPECT_EQ(text(boxOf(large, all, affine(4, 0, 0, 4, -1202, -1602)).whole), "300,400,327,427");
  // A quarter turn: x runs along the source's rows' downward direction.
  EXPECT_EQ(text(boxOf(large, all, affine(0, 1, -1, 0, 600, -200)).whole), "199,499,302,602");
}

// Whatever the destination shows stays in the box: sampled all over it.
TEST(SourceBox, HoldsAllThatTheDestinationShows) {
  const RECT source = RECT{20, 10, 220, 160}, destination = RECT{0, 0, 90, 70};
  for (int i = 0; i < 400; ++i) {
    const double angle = i * 0.37, size = 0.3 + i % 7 * 0.4, tilt = (i % 5 - 2) * 0.0007;
    const double c = size * std::cos(angle), s = size * std::sin(angle);
    Matrix4x4 m = affine(c, s, i % 3 == 0 ? s : -s, i % 3 == 0 ? -c : c, 0, 0);
    Matrix4x4 placed = translation4x4(-60.0 - i % 50, -80);
    postMultiply(placed, m);
    placed[3] = tilt;
    placed[7] = -tilt / 2;
    postMultiply(placed, translation4x4(40 + i % 11, 30));
    const Projection forward(placed);
    if (signOfW(forward, {20, 10, 220, 160}) == 0) continue;
    const SourceBox box = boxOf(source, destination, placed);
    for (double y = 10.5; y < 160; y += 3) {
      for (double x = 20.5; x < 220; x += 3) {
        const Point2D p = forward(x, y);
        if (!(p.x >= 0 && p.x <= 90 && p.y >= 0 && p.y <= 70)) continue;
        ASSERT_TRUE(box.whole.left < x && x < box.whole.right && box.whole.top < y &&
                    y < box.whole.bottom)
            << i << ": " << x << " " << y << " outside " << text(box.whole);
      }
    }
  }
}

TEST(Level, FollowsTheSizeOfASourcePixelsImage) {
  const auto levelAt = [](double size, int32_t bias, bool automatic = true) {
    const Matrix4x4 m = affine(size, 0, 0, size, 0, 0);
    const RECT source = RECT{0, 0, 64, 64};
    const int32_t side = static_cast<int32_t>(64 * size) + 1;
    return chooseLevel(boxOf(source, RECT{0, 0, side, side}, m), Projection(m), bias, automatic, 1);
  };
  // 1 / 1.15^2 = 0.756 is enough, 1 / 1.16^2 = 0.743 is not.
  EXPECT_EQ(levelAt(0.1, 0), 0);
  EXPECT_EQ(levelAt(1.15, 0), 0);
  EXPECT_EQ(levelAt(1.16, 0), 1);
  EXPECT_EQ(levelAt(2.3, 0), 1);
  EXPECT_EQ(levelAt(2.32, 0), 2);
  EXPECT_EQ(levelAt(1, 3), 3);
  EXPECT_EQ(levelAt(0.25, 3), 1);
  EXPECT_EQ(levelAt(1, -3), 0);
  EXPECT_EQ(levelAt(2, 3, false), 3);
  EXPECT_EQ(levelAt(2, -3, false), 0);
}

TEST(Level, StaysWithin200MebibytesOfSubdividedPixels) {
  const auto levelOf = [](int64_t width, int64_t height, int32_t bytesPerPixel) {
    SourceBox box{};
    box.whole = {0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
    return chooseLevel(box, Projection(identity4x4()), 40, false, bytesPerPixel);
  };
  EXPECT_EQ(levelOf(1, 1, 1), 13);  // 8192 x 8192 is 64 MiB
  EXPECT_EQ(levelOf(1, 1, 4), 12);
  EXPECT_EQ(levelOf(10240, 5120, 1), 1);  // exactly 200 MiB
  EXPECT_EQ(levelOf(10244, 5120, 1), 0);
  EXPECT_EQ(levelOf(10240, 5121, 1), 0);
  EXPECT_EQ(levelOf(INT32_MAX, INT32_MAX, 4), 0);
}

}  // namespace
}  // namespace kvl
