#include "warp/rim.h"

#include <algorithm>

#include "core/rounding.h"

namespace kvl {
namespace {

// What lies within a pixel of a cell's centre, carried to the source: the smallest box around it.
struct Surroundings {
  double left, top, right, bottom;

  Surroundings(const Matrix4x4& inverse, double x, double y) {
    const Point2D start = projectBack(inverse, {x - 0.5, y - 0.5});
    left = right = start.x;
    top = bottom = start.y;
    for (const Point2D& corner :
         {Point2D{x + 1.5, y - 0.5}, {x - 0.5, y + 1.5}, {x + 1.5, y + 1.5}}) {
      const Point2D p = projectBack(inverse, corner);
      if (p.x < left) left = p.x;
      if (p.y < top) top = p.y;
      if (p.x > right) right = p.x;
      if (p.y > bottom) bottom = p.y;
    }
  }

  // Whether that took anything away.
  bool clip(const RECT& box) {
    const bool changes =
        left < box.left || top < box.top || right > box.right || bottom > box.bottom;
    left = std::max<double>(left, box.left);
    top = std::max<double>(top, box.top);
    right = std::min<double>(right, box.right);
    bottom = std::min<double>(bottom, box.bottom);
    return changes;
  }

  double area() const { return right > left && bottom > top ? (right - left) * (bottom - top) : 0; }
};

// False for a cell whose surroundings lie within the box.
bool weighCell(uint32_t& weight, uint32_t& keepWeight, const RECT& box, const Matrix4x4& inverse,
               double x, double y) {
  Surroundings around(inverse, x, y);
  const double whole = around.area();
  if (!around.clip(box)) return false;
  const double within = around.area();
  if (within > 0 && whole > 0) {
    const double share = within / whole;
    keepWeight = static_cast<uint32_t>(RoundToInt(((1 - share) * weight) / share, 0.5));
  } else {
    weight = keepWeight = 0;
  }
  return true;
}

}  // namespace

Rim weighRim(const CellRow& row, const CellLayout& layout, const RECT& box,
             const Matrix4x4& inverse, uint32_t* keepWeights) {
  const auto weight = [&](int32_t i) -> uint32_t& {
    return row.cells[ptrdiff_t{i} * layout.words + layout.weightAt];
  };
  // Sums that have wrapped may look negative, and then count as none here.
  const auto hasWeight = [&](int32_t i) { return static_cast<int32_t>(weight(i)) > 0; };
  const auto weigh = [&](int32_t i) {
    return weighCell(weight(i), keepWeights[i], box, inverse, row.left + double{1} * i, row.y);
  };
  Rim rim{0, 0, row.count, row.count};
  while (rim.first < row.count && !hasWeight(rim.first)) ++rim.first;
  rim.interiorFirst = rim.first;
  while (rim.interiorFirst < row.count && weigh(rim.interiorFirst)) ++rim.interiorFirst;
  while (rim.last > rim.interiorFirst && !hasWeight(rim.last - 1)) --rim.last;
  rim.interiorLast = rim.last;
  while (rim.interiorLast > rim.interiorFirst && weigh(rim.interiorLast - 1)) --rim.interiorLast;
  return rim;
}

void resolveRim(const uint32_t* cells, const uint32_t* keepWeights, int32_t channels,
                uint8_t* pixels, int32_t count) {
  const CellLayout layout = cellLayout(channels);
  for (int32_t i = 0; i < count; ++i, cells += layout.words, pixels += channels) {
    const uint64_t weight = cells[layout.weightAt], keep = keepWeights[i];
    if (weight == 0) continue;
    const uint64_t total = weight + keep;
    for (int32_t c = 0; c < channels; ++c) {
      const uint64_t sum = cells[c] + pixels[c] * keep + total / 2;
      pixels[c] = static_cast<uint8_t>(std::min<uint64_t>(sum / total, 255));
    }
  }
}

}  // namespace kvl
