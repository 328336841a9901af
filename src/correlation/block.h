// Where a block of image A meets image B under a displacement. Coordinates have 64 bits, because
// blocks and vectors come from the host in 32.
#pragma once

#include <algorithm>
#include <cstdint>

namespace kvl {

// A displacement vector as searches count it: y counts against the memory order of the rows.
struct Shift {
  int64_t x;
  int64_t y;

  bool operator==(const Shift&) const = default;
};

// Columns [left, right) and memory rows [firstRow, endRow).
struct Area {
  int64_t left;
  int64_t right;
  int64_t firstRow;
  int64_t endRow;

  int64_t columns() const { return right - left; }
  int64_t rows() const { return endRow - firstRow; }
  bool empty() const { return left >= right || firstRow >= endRow; }
};

// A block as the host gives it, in an image of width x height pixels whose rows are stored
// bottom-up. It may reach beyond the image.
struct Block {
  int64_t width;
  int64_t height;
  Area area;

  static Block fromRect(int64_t width, int64_t height, int64_t left, int64_t top, int64_t right,
                        int64_t bottom) {
    return {width, height, {left, right, height - bottom, height - top}};
  }

  // The part of the block in image A that image B covers when it is shifted.
  Area overlap(Shift shift) const {
    const int64_t dx = shift.x;
    const int64_t dy = -shift.y;
    return {std::max({area.left, -dx, int64_t{0}}), std::min({area.right, width, width - dx}),
            std::max({area.firstRow, -dy, int64_t{0}}),
            std::min({area.endRow, height, height - dy})};
  }

  Area insideImage() const { return overlap({0, 0}); }
};

}  // namespace kvl
