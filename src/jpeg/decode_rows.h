// The row kernels that make pixels out of component rows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// Rows other than `bgr` have rowMargin bytes to spare before and after them, which may be read and,
// of outputs, overwritten.
struct DecodeRowKernels {
  // Doubles along the row: out[2i] = (3 * in[i] + in[i - 1] + 1) >> 2,
  // out[2i + 1] = (3 * in[i] + in[i + 1] + 2) >> 2. in[-1] and in[count] hold samples.
  void (*doubleRow)(const uint8_t* in, uint8_t* out, ptrdiff_t count);
  // out[i] = (3 * in[i] + other[i] + bias) >> 2, one row of two that lie between `in` and `other`.
  void (*blendRows)(const uint8_t* in, const uint8_t* other, int bias, uint8_t* out,
                    ptrdiff_t count);
  // Both: with t[i] = 3 * in[i] + other[i], out[2i] = (3 * t[i] + t[i - 1] + 8) >> 4,
  // out[2i + 1] = (3 * t[i] + t[i + 1] + 7) >> 4.
  void (*doubleBlended)(const uint8_t* in, const uint8_t* other, uint8_t* out, ptrdiff_t count);
  // 24-bit pixels out of Y, Cb and Cr.
  void (*toRgb)(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* bgr,
                ptrdiff_t count);
  // 24-bit pixels out of R, G and B.
  void (*interleave)(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* bgr,
                     ptrdiff_t count);
};

DecodeRowKernels decodeRowKernels(InstructionSet level);
void addDecodeRowsAvx2(DecodeRowKernels& kernels);

}  // namespace kvl
