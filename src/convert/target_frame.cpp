#include "convert/target_frame.h"

#include "core/bitmap.h"

namespace kvl {

bool areRowsAddressable(const void* first, int64_t stride, int64_t rows) {
  if (stride >= 0) return isAddressable(first, stride, rows);
  if (rows <= 0) return rows == 0;
  const auto at = reinterpret_cast<uintptr_t>(first);
  const auto step = static_cast<uintptr_t>(-stride), steps = static_cast<uintptr_t>(rows - 1);
  if (steps > at / step) return false;
  return isAddressable(reinterpret_cast<const void*>(at - steps * step), -stride, rows);
}

bool isUsable(const TargetFrame& frame) {
  return frame.stride != 0 && frame.height > 0 &&
         areRowsAddressable(frame.top, frame.stride, frame.height);
}

RowRange rowsInside(int64_t top, int64_t rows, int64_t height) {
  const int64_t first = std::max<int64_t>(0, -top);
  const int64_t last = std::min(rows, height - top);
  if (first >= last) return {0, 0};
  return {static_cast<int32_t>(first), static_cast<int32_t>(last)};
}

void Range::clip(int64_t start, int64_t step, int64_t limit) {
  if (start < 0) first = std::max(first, (step - 1 - start) / step);
  last = std::min(last, limit < start ? 0 : (limit - start) / step);
}

}  // namespace kvl
