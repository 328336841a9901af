// The picture as the library takes it: a header and separate bottom-up rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kvl/kvl.h"

namespace kvl::tool {

struct Size {
  int32_t width = 0;
  int32_t height = 0;

  bool operator==(const Size&) const = default;
};

struct Dib {
  BITMAPINFOHEADER header{};
  std::vector<uint8_t> bits;

  // Makes this a 24-bit image of `size`. Pixels are kept only when the size stays the same.
  void resize(Size size);

  Size size() const { return {header.biWidth, header.biHeight}; }

  // Bytes from one row to the next, a multiple of 4.
  size_t stride() const;

  // The row that is `y` rows below the top one.
  uint8_t* rowFromTop(int32_t y);
  const uint8_t* rowFromTop(int32_t y) const;
};

}  // namespace kvl::tool
