// Transposition of a tile of 24-bit pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// Pixel x of row y becomes pixel y of row x. The strides are in bytes; nothing but the
// columns * rows pixels is read or written. The two tiles must not overlap.
using TransposeRgb24Kernel = void (*)(const uint8_t* in, ptrdiff_t inStride, uint8_t* out,
                                      ptrdiff_t outStride, int32_t columns, int32_t rows);

void transposeRgb24Scalar(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride,
                          int32_t columns, int32_t rows);
void transposeRgb24Avx2(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride,
                        int32_t columns, int32_t rows);
TransposeRgb24Kernel transposeRgb24Kernel(InstructionSet level);

}  // namespace kvl
