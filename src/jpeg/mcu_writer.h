// Bitmap rows into rows of MCUs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/component_rows.h"
#include "jpeg/encode_rows.h"
#include "jpeg/layout.h"

namespace kvl {

// Where the samples of a packed 4:2:2 pair lie in its 4 bytes.
struct PackedOrder {
  uint8_t y0, u, y1, v;
};

struct McuWriter {
  JpegLayout layout;
  const uint8_t* top;  // the row at the picture's top
  ptrdiff_t step;      // bytes to the row below
  int bitCount;        // 8, 24, or 16 for packed 4:2:2
  PackedOrder packed;
  const uint8_t* lumaOfByte;  // maps the samples of packed 4:2:2
  const uint8_t* chromaOfByte;
  EncodeRowKernels kernels;

  // What write() needs of `scratch`, in bytes.
  ptrdiff_t scratchBytes() const;

  // Writes row `mcuRow` of the picture's MCUs into row `at` of `rows`.
  void write(int32_t mcuRow, const ComponentRows& rows, int32_t at, uint8_t* scratch) const;
};

}  // namespace kvl
