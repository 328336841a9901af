#include "warp/source_box.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kvl {
namespace {

constexpr int maxLevel = 15;

using Corners = std::array<Point2D, 4>;

// Left top, right top, left bottom, right bottom.
Corners cornersOf(const Box& box) {
  return {Point2D{box.left, box.top},
          {box.right, box.top},
          {box.left, box.bottom},
          {box.right, box.bottom}};
}

Corners project(const Projection& forward, const Box& box) {
  Corners corners = cornersOf(box);
  for (Point2D& corner : corners) corner = forward(corner.x, corner.y);
  return corners;
}

Box toBox(const RECT& r) {
  return {static_cast<double>(r.left), static_cast<double>(r.top), static_cast<double>(r.right),
          static_cast<double>(r.bottom)};
}

bool isInside(Point2D p, const Box& box) {
  return box.left <= p.x && p.x < box.right && box.top <= p.y && p.y < box.bottom;
}

bool isInside(Point2D p, const Corners& quadrilateral) {
  constexpr size_t round[] = {0, 1, 3, 2, 0};
  bool allPositive = true, allNegative = true;
  for (size_t i = 0; i < 4; ++i) {
    const Point2D from = quadrilateral[round[i]], to = quadrilateral[round[i + 1]];
    const double side = cross(to - from, p - from);
    allPositive = allPositive && side > 0;
    allNegative = allNegative && side < 0;
  }
  return allPositive || allNegative;
}

// Moves each edge of the box to the destination corner that is the outermost point, on that side,
// of what the destination shows. Where w changes its sign in the box, what it shows has no corners
// to go by, and the box stays.
bool shrinkToDestination(Box& box, const Corners& projected, const Box& destination,
                         const Projection& forward, const Matrix4x4& inverse) {
  const double wSign = signOfW(forward, box);
  if (wSign == 0) return false;
  ConvexPolygon shown(box);
  for (const HalfPlane& half : preimageOf(destination, forward, wSign)) shown.clip(half);
  if (shown.empty()) return false;
  const Box visible = shown.bounds();
  // What rounding makes of one point that was found in two ways.
  const double tolerance = 1e-9 * (1 + std::fabs(box.left) + std::fabs(box.right) +
                                   std::fabs(box.top) + std::fabs(box.bottom));
  Box shrunk = box;
  bool moved = false;
  const auto moveTo = [&](double& edge, double outermost, double corner) {
    if (!(std::fabs(corner - outermost) <= tolerance)) return;
    edge = corner;
    moved = true;
  };
  for (const Point2D& corner : cornersOf(destination)) {
    if (!isInside(corner, projected)) continue;
    const Point2D source = projectBack(inverse, corner);
    moveTo(shrunk.left, visible.left, source.x);
    moveTo(shrunk.top, visible.top, source.y);
    moveTo(shrunk.right, visible.right, source.x);
    moveTo(shrunk.bottom, visible.bottom, source.y);
  }
  box = shrunk;
  return moved;
}

// Widens the box by what lies within a pixel of the destination point.
void growAroundPoint(Box& box, Point2D p, const Matrix4x4& inverse) {
  for (const Point2D& around : cornersOf({p.x - 1, p.y - 1, p.x + 1, p.y + 1})) {
    const Point2D source = projectBack(inverse, around);
    if (source.x < box.left) box.left = source.x;
    if (source.y < box.top) box.top = source.y;
    if (source.x > box.right) box.right = source.x;
    if (source.y > box.bottom) box.bottom = source.y;
  }
}

int32_t clampToInt(double value, int32_t lowest, int32_t highest) {
  if (!(value > lowest)) return lowest;
  return value < highest ? static_cast<int32_t>(value) : highest;
}

// Of a pixel of one bit count, rows padded to 4 bytes.
bool fits(int64_t width, int64_t height, int32_t bytesPerPixel) {
  const int64_t stride = (width * bytesPerPixel * 8 + 31) / 32 * 4;
  return stride <= maxEnlargedBytes / height;
}

}  // namespace

SourceBox findSourceBox(const RECT& source, const RECT& destination, const Projection& forward,
                        const Matrix4x4& inverse) {
  Box box = toBox(source);
  const Box target = toBox(destination);
  Corners projected = project(forward, box);
  const bool allInside =
      std::ranges::all_of(projected, [&](Point2D p) { return isInside(p, target); });
  if (!allInside && shrinkToDestination(box, projected, target, forward, inverse)) {
    projected = project(forward, box);
  }
  for (const Point2D& corner : projected) growAroundPoint(box, corner, inverse);

  RECT whole;
  whole.left = clampToInt(std::floor(box.left), source.left, source.right);
  whole.top = clampToInt(std::floor(box.top), source.top, source.bottom);
  whole.right = clampToInt(std::ceil(box.right) + 1, source.left, source.right);
  whole.bottom = clampToInt(std::ceil(box.bottom) + 1, source.top, source.bottom);
  return {box, whole};
}

int chooseLevel(const SourceBox& box, const Projection& forward, int32_t wanted, bool automatic,
                int32_t bytesPerPixel) {
  int level = std::clamp<int32_t>(wanted, 0, maxLevel);
  if (automatic) {
    const Box& b = box.exact;
    double smallest = 1 / projectedPixelArea(forward, b.left, b.top);
    for (const Point2D& at :
         {Point2D{b.right - 1, b.top}, {b.left, b.bottom - 1}, {b.right - 1, b.bottom - 1}}) {
      const double reciprocal = 1 / projectedPixelArea(forward, at.x, at.y);
      if (reciprocal < smallest) smallest = reciprocal;
    }
    double s = smallest * std::ldexp(1.0, -2 * level);
    for (level = 0; s < 0.75 && level < maxLevel; ++level) s *= 4.0;
  }
  while (level > 0 && !fits(box.width() << level, box.height() << level, bytesPerPixel)) --level;
  return level;
}

}  // namespace kvl
