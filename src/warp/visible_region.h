// Which part of a source rectangle a projection carries into a destination rectangle.
#pragma once

#include <array>
#include <cstddef>

#include "warp/matrix4x4.h"

namespace kvl {

struct Box {
  double left, top, right, bottom;
};

// a * x + b * y + c >= 0
struct HalfPlane {
  double a, b, c;
};

// Where the projection puts points within left <= x <= right, top <= y <= bottom, in coordinates of
// its plane. Valid where w has the sign of `wSign`.
std::array<HalfPlane, 4> preimageOf(const Box& destination, const Projection& projection,
                                    double wSign);

// 1 or -1 where w has that sign in all of the box, else 0.
double signOfW(const Projection& projection, const Box& box);

class ConvexPolygon {
 public:
  explicit ConvexPolygon(const Box& box);
  // At most four times.
  void clip(const HalfPlane& half);
  bool empty() const { return count_ == 0; }
  Box bounds() const;
  Box projectedBounds(const Projection& projection) const;

 private:
  // A clip adds one corner, and at most half as many again where rounding makes the shape ragged.
  static constexpr size_t capacity = 32;
  size_t count_;
  std::array<Point2D, capacity> corners_;
};

// The range of x in which the line of that y lies in all half-planes; empty where first > last.
struct Interval {
  double first, last;
};
Interval lineWithin(const std::array<HalfPlane, 4>& halves, double y);

}  // namespace kvl
