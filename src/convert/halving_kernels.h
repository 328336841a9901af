// The row kernels of the halving.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// `count` outputs, each from two neighbouring units of row a and the two of row b below them. All
// units of both rows are readable; out overlaps no input.
using HalvingKernel = void (*)(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count);

// A kernel's outputs of 2 x 2 averages are rounded down in scalar code. Vector code rounds up twice,
// first between the rows: up(up(a0, b0), up(a1, b1)) with up(x, y) = (x + y + 1) >> 1. It takes
// whole blocks from the start of the row and leaves the rest to scalar code.
struct HalvingKernels {
  HalvingKernel average;  // bytes, in blocks of 16
  HalvingKernel sample;   // bytes: the first of the four, alike at every level
  HalvingKernel pairs;    // pairs of bytes, in blocks of 8
  HalvingKernel yuy2;     // words of two pixels, in blocks of 4
  HalvingKernel rgb24;    // pixels of 3 bytes, always rounded down
  HalvingKernel rgb32;    // pixels of 4 bytes, in blocks of 4
};

HalvingKernels halvingKernels(InstructionSet level);
void addHalvingSsse3(HalvingKernels& kernels);
void addHalvingAvx2(HalvingKernels& kernels);

// What is left after the last block.
const HalvingKernels& scalarHalving();

}  // namespace kvl
