// The luma of JFIF, in integers.
#pragma once

#include <cstdint>

namespace kvl {

inline uint8_t lumaOf(int r, int g, int b) {
  return static_cast<uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
}

}  // namespace kvl
