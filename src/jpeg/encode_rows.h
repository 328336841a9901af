// The row kernels that make component rows out of pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// Rows other than `bgr` have rowMargin bytes to spare at their end, which may be read and, of
// outputs, overwritten.
struct EncodeRowKernels {
  // Y, Cb and Cr of `count` 24-bit pixels.
  void (*colours)(const uint8_t* bgr, ptrdiff_t count, uint8_t* y, uint8_t* cb, uint8_t* cr);
  // out[i] = (in[2i] + in[2i + 1] + (i & 1)) >> 1
  void (*halve)(const uint8_t* in, uint8_t* out, ptrdiff_t count);
  // out[i] = (a[2i] + a[2i + 1] + b[2i] + b[2i + 1] + 1 + (i & 1)) >> 2
  void (*quarter)(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count);
};

EncodeRowKernels encodeRowKernels(InstructionSet level);
void addEncodeRowsAvx2(EncodeRowKernels& kernels);

}  // namespace kvl
