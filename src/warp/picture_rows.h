// The rows of a bitmap, counted from the top of the picture.
#pragma once

#include <cstdint>

#include "core/bitmap.h"

namespace kvl {

// Plain RGB, also under the codes of the 8- and 24-bit media subtypes, is stored bottom-up when its
// height is positive; all else is stored top-down.
inline bool isBottomUp(const BITMAPINFOHEADER& header) {
  constexpr uint32_t plainRgb = 0, subtypeRgb8 = 0xE436EB7A, subtypeRgb24 = 0xE436EB7D;
  const uint32_t code = header.biCompression;
  return header.biHeight >= 1 && (code == plainRgb || code == subtypeRgb8 || code == subtypeRgb24);
}

struct PictureRows {
  PictureRows() = default;
  PictureRows(const BITMAPINFOHEADER& header, uint8_t* data)
      : bits(data),
        stride(static_cast<int64_t>(CalcDibStride(&header))),
        height(header.biHeight < 0 ? -int64_t{header.biHeight} : int64_t{header.biHeight}),
        bottomUp(isBottomUp(header)) {}

  uint8_t* row(int64_t fromTop) const {
    return bits + (bottomUp ? height - 1 - fromTop : fromTop) * stride;
  }
  bool isAddressable() const { return kvl::isAddressable(bits, stride, height); }

  uint8_t* bits = nullptr;
  int64_t stride = 0;
  int64_t height = 0;
  bool bottomUp = false;
};

}  // namespace kvl
