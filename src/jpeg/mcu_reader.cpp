#include "jpeg/mcu_reader.h"

#include <algorithm>
#include <cstring>

#include "jpeg/colour.h"

namespace kvl {
namespace {

ptrdiff_t pixelStride(const JpegLayout& layout) {
  return marginedStride(layout.width + 2);
}

const uint8_t* componentRow(const McuReader& reader, int c, int32_t j, const McuWindow& window) {
  const JpegComponent& component = reader.layout.components[c];
  const int32_t row = std::clamp(j, 0, component.height - 1);
  return window.rows->row(c, row - window.firstMcuRow * component.rowsPerMcu);
}

void pickNearest(const McuReader& reader, int c, const uint8_t* in, uint8_t* out) {
  const int32_t factor = reader.layout.components[c].horizontal;
  for (int32_t i = 0; i < reader.width; ++i) {
    out[i] = in[(reader.left + i) * factor / reader.layout.horizontalMax];
  }
}

// The samples of component `c` at the pixels of row `y` from the crop's left on.
const uint8_t* pixelsOf(const McuReader& reader, int c, int32_t y, const McuWindow& window,
                        uint8_t* scratch) {
  const JpegLayout& layout = reader.layout;
  const Upsampling upsampling = upsamplingOf(layout, c);
  uint8_t* out = scratch + c * pixelStride(layout) + rowMargin;
  // Of a doubled row: the samples under the crop.
  const int32_t first = reader.left / 2;
  const int32_t count = (reader.left + reader.width + 1) / 2 - first;
  const int32_t j = y / 2, other = y % 2 == 0 ? j - 1 : j + 1;
  switch (upsampling) {
    case Upsampling::none:
      return componentRow(reader, c, y, window) + reader.left;
    case Upsampling::alongRows:
      reader.kernels.doubleRow(componentRow(reader, c, y, window) + first, out, count);
      return out + (reader.left & 1);
    case Upsampling::alongColumns:
      reader.kernels.blendRows(componentRow(reader, c, j, window) + reader.left,
                               componentRow(reader, c, other, window) + reader.left, 1 + y % 2, out,
                               reader.width);
      return out;
    case Upsampling::both:
      reader.kernels.doubleBlended(componentRow(reader, c, j, window) + first,
                                   componentRow(reader, c, other, window) + first, out, count);
      return out + (reader.left & 1);
    case Upsampling::nearest: {
      const int32_t row = y * layout.components[c].vertical / layout.verticalMax;
      pickNearest(reader, c, componentRow(reader, c, row, window), out);
      return out;
    }
  }
  return out;
}

}  // namespace

Upsampling upsamplingOf(const JpegLayout& layout, int component) {
  const JpegComponent& own = layout.components[component];
  const bool sameColumns = own.horizontal == layout.horizontalMax;
  const bool sameRows = own.vertical == layout.verticalMax;
  const bool halfColumns = 2 * own.horizontal == layout.horizontalMax;
  const bool halfRows = 2 * own.vertical == layout.verticalMax;
  if (sameColumns && sameRows) return Upsampling::none;
  if (halfColumns && sameRows) return Upsampling::alongRows;
  if (sameColumns && halfRows) return Upsampling::alongColumns;
  if (halfColumns && halfRows) return Upsampling::both;
  return Upsampling::nearest;
}

ptrdiff_t McuReader::scratchBytes() const {
  return jpegMaxComponents * pixelStride(layout);
}

int32_t McuReader::pixelRowsOf(int32_t mcuRows) const {
  if (mcuRows >= layout.mcuRows) return layout.height;
  // The last row of pixels may need the first row of samples below it.
  return std::max(0, mcuRows * layout.mcuHeight - 1);
}

void McuReader::convertRow(int32_t y, const McuWindow& window, uint8_t* out,
                           uint8_t* scratch) const {
  const uint8_t* first = pixelsOf(*this, 0, y, window, scratch);
  if (layout.colorSpace == KVL_JPEG_GREY || (bitCount == 8 && layout.colorSpace != KVL_JPEG_RGB)) {
    if (bitCount == 8) {
      std::memcpy(out, first, static_cast<size_t>(width));
    } else {
      kernels.interleave(first, first, first, out, width);
    }
    return;
  }
  const uint8_t* second = pixelsOf(*this, 1, y, window, scratch);
  const uint8_t* third = pixelsOf(*this, 2, y, window, scratch);
  if (layout.colorSpace == KVL_JPEG_YCBCR) {
    kernels.toRgb(first, second, third, out, width);
  } else if (bitCount == 24) {
    kernels.interleave(first, second, third, out, width);
  } else {
    for (int32_t x = 0; x < width; ++x) out[x] = lumaOf(first[x], second[x], third[x]);
  }
}

}  // namespace kvl
