#include "operations/transposed_lines.h"

#include <algorithm>

namespace kvl::tool {
namespace {

constexpr size_t kPixelBytes = 3;

size_t pictureOffset(const Dib& picture, int32_t x, int32_t y) {
  return static_cast<size_t>(y) * picture.stride() + static_cast<size_t>(x) * kPixelBytes;
}

uint8_t* transposedPixel(TransposedRows scratch, int32_t x, int32_t y) {
  return scratch.bits + static_cast<size_t>(x) * scratch.stride +
         static_cast<size_t>(y) * kPixelBytes;
}

}  // namespace

void presetColumn(const Dib& picture, const Area& area, TransposedRows scratch) {
  if (area.width != 1) return;
  for (int32_t y = area.y; y < area.y + area.height; ++y) {
    std::copy_n(picture.bits.data() + pictureOffset(picture, area.x, y), kPixelBytes,
                transposedPixel(scratch, area.x, y));
  }
}

void takeRow(TransposedRows scratch, const Area& area, Dib& picture) {
  if (area.height != 1) return;
  for (int32_t x = area.x; x < area.x + area.width; ++x) {
    std::copy_n(transposedPixel(scratch, x, area.y), kPixelBytes,
                picture.bits.data() + pictureOffset(picture, x, area.y));
  }
}

}  // namespace kvl::tool
