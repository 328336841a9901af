#pragma once

#include <algorithm>
#include <cstdint>

#include "core/bitmap.h"

namespace kvl {

// True when rows 0 .. height - 1 at `image + stride * row`, whose stride may be negative, lie in the
// address space.
inline bool areRowsAddressable(const uint8_t* image, int64_t stride, int64_t height) {
  if (stride >= 0) return isAddressable(image, stride, std::max<int64_t>(height, 0));
  const auto at = static_cast<int64_t>(reinterpret_cast<uintptr_t>(image));
  return isAddressable(image, 1, 1) && -stride <= at / std::max<int64_t>(height, 1);
}

}  // namespace kvl
