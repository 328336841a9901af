#include "warp/visible_region.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kvl {
namespace {

double distance(const HalfPlane& half, Point2D p) {
  return half.a * p.x + half.b * p.y + half.c;
}

template <class Map>
Box boundsOf(const Point2D* corners, size_t count, const Map& map) {
  const Point2D start = map(corners[0]);
  Box box{start.x, start.y, start.x, start.y};
  for (size_t i = 1; i < count; ++i) {
    const Point2D p = map(corners[i]);
    box = {std::min(box.left, p.x), std::min(box.top, p.y), std::max(box.right, p.x),
           std::max(box.bottom, p.y)};
  }
  return box;
}

}  // namespace

std::array<HalfPlane, 4> preimageOf(const Box& destination, const Projection& p, double wSign) {
  const double wc = p.wz + p.w0;
  const auto notBelow = [&](double sign, double limit, double x, double y, double constant) {
    return HalfPlane{sign * (x - limit * p.wx), sign * (y - limit * p.wy),
                     sign * (constant - limit * wc)};
  };
  return {notBelow(wSign, destination.left, p.xx, p.xy, p.x0),
          notBelow(-wSign, destination.right, p.xx, p.xy, p.x0),
          notBelow(wSign, destination.top, p.yx, p.yy, p.y0),
          notBelow(-wSign, destination.bottom, p.yx, p.yy, p.y0)};
}

double signOfW(const Projection& projection, const Box& box) {
  const double w[] = {projection.w(box.left, box.top), projection.w(box.right, box.top),
                      projection.w(box.left, box.bottom), projection.w(box.right, box.bottom)};
  if (std::ranges::all_of(w, [](double v) { return v > 0 && std::isfinite(v); })) return 1;
  if (std::ranges::all_of(w, [](double v) { return v < 0 && std::isfinite(v); })) return -1;
  return 0;
}

ConvexPolygon::ConvexPolygon(const Box& box)
    : count_(4),
      corners_{Point2D{box.left, box.top},
               {box.right, box.top},
               {box.right, box.bottom},
               {box.left, box.bottom}} {}

void ConvexPolygon::clip(const HalfPlane& half) {
  std::array<Point2D, capacity> kept{};
  size_t count = 0;
  for (size_t i = 0; i < count_; ++i) {
    const Point2D from = corners_[i], to = corners_[(i + 1) % count_];
    const double fromInside = distance(half, from), toInside = distance(half, to);
    if (fromInside >= 0) kept[count++] = from;
    if ((fromInside >= 0) != (toInside >= 0)) {
      const double t = fromInside / (fromInside - toInside);
      kept[count++] = {from.x + t * (to.x - from.x), from.y + t * (to.y - from.y)};
    }
  }
  corners_ = kept;
  count_ = count;
}

Box ConvexPolygon::bounds() const {
  return boundsOf(corners_.data(), count_, [](Point2D p) { return p; });
}

Box ConvexPolygon::projectedBounds(const Projection& projection) const {
  return boundsOf(corners_.data(), count_, [&](Point2D p) { return projection(p.x, p.y); });
}

Interval lineWithin(const std::array<HalfPlane, 4>& halves, double y) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  Interval inside{-infinity, infinity};
  for (const HalfPlane& half : halves) {
    const double constant = half.b * y + half.c;
    if (half.a > 0) {
      inside.first = std::max(inside.first, -constant / half.a);
    } else if (half.a < 0) {
      inside.last = std::min(inside.last, -constant / half.a);
    } else if (constant < 0) {
      return {1, 0};
    }
  }
  return inside;
}

}  // namespace kvl
