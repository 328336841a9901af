// Rows of MCUs into bitmap rows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/component_rows.h"
#include "jpeg/decode_rows.h"
#include "jpeg/layout.h"

namespace kvl {

// Component rows of the picture from some row of MCUs on.
struct McuWindow {
  const ComponentRows* rows;
  int32_t firstMcuRow;
};

struct McuReader {
  JpegLayout layout;
  int32_t left;   // of the crop, in pixels
  int32_t width;  // of the crop
  int bitCount;   // 8 or 24
  DecodeRowKernels kernels;

  // What convertRow() needs of `scratch`, in bytes.
  ptrdiff_t scratchBytes() const;

  // How many rows of pixels, from the top, can be made of that many rows of MCUs.
  int32_t pixelRowsOf(int32_t mcuRows) const;

  // Row `y` of the picture, cropped. The window holds its samples and those of the row of MCUs
  // above; samples before and after each row repeat its ends.
  void convertRow(int32_t y, const McuWindow& window, uint8_t* out, uint8_t* scratch) const;
};

// How samples of a component become pixels.
enum class Upsampling { none, alongRows, alongColumns, both, nearest };

Upsampling upsamplingOf(const JpegLayout& layout, int component);

}  // namespace kvl
