// The picture as the library takes it: a header and separate bottom-up rows, and the alpha in a
// plane of its own.
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
  // A byte a pixel, bottom-up too; empty for a picture without alpha.
  std::vector<uint8_t> alpha;

  // Makes this a 24-bit image of `size`. Pixels are kept only when the size stays the same; another
  // size has no alpha.
  void resize(Size size);

  // Gives the image an alpha plane, unless it has one.
  void addAlpha();
  bool hasAlpha() const { return !alpha.empty(); }

  Size size() const { return {header.biWidth, header.biHeight}; }

  // Bytes from one row to the next, a multiple of 4.
  size_t stride() const;

  size_t alphaStride() const;
  BITMAPINFOHEADER alphaHeader() const;

  // The row that is `y` rows below the top one.
  uint8_t* rowFromTop(int32_t y);
  const uint8_t* rowFromTop(int32_t y) const;
  uint8_t* alphaFromTop(int32_t y);
  const uint8_t* alphaFromTop(int32_t y) const;
};

}  // namespace kvl::tool
