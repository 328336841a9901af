// The frame that a rectangle is placed in, and how much of the rectangle lies inside.
#pragma once

#include <algorithm>
#include <cstdint>

#include "core/parallel.h"
#include "kvl/kvl.h"

namespace kvl {

// Rows of |stride| bytes each; a negative stride walks towards lower addresses.
struct TargetFrame {
  uint8_t* top;
  int64_t stride;
  int32_t height;

  uint8_t* row(int64_t y) const { return top + y * stride; }
  int64_t rowBytes() const { return stride < 0 ? -stride : stride; }
};

// isAddressable() for rows that may walk either way.
bool areRowsAddressable(const void* first, int64_t stride, int64_t rows);

bool isUsable(const TargetFrame& frame);

// Which of `rows` rows that start at row `top` lie inside a frame or bitmap of `height` rows.
RowRange rowsInside(int64_t top, int64_t rows, int64_t height);

// The whole numbers i of [first, last).
struct Range {
  int64_t first;
  int64_t last;

  int64_t count() const { return std::max<int64_t>(0, last - first); }
  // Keeps those for which [start + i * step, start + (i + 1) * step) lies in [0, limit).
  void clip(int64_t start, int64_t step, int64_t limit);
};

// fill(uint8_t* at, uint64_t bytes) for the frame above and below a rectangle, and only where there
// are rows above.
template <class Fill>
void fillBands(const TargetFrame& frame, int32_t top, int32_t rows, const Fill& fill) {
  if (top <= 0) return;
  const auto fillRows = [&](int64_t first, int64_t last) {
    if (first >= last) return;
    if (frame.stride > 0) {
      fill(frame.row(first), static_cast<uint64_t>((last - first) * frame.stride));
      return;
    }
    for (int64_t y = first; y < last; ++y) {
      fill(frame.row(y), static_cast<uint64_t>(frame.rowBytes()));
    }
  };
  fillRows(0, std::min(top, frame.height));
  fillRows(std::max<int64_t>(0, int64_t{top} + rows), frame.height);
}

}  // namespace kvl
