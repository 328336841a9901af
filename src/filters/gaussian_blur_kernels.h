// The row kernels of the Gaussian blur.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// `weights` is a row of GaussianKernelTable, w[0] .. w[radius] in 1/65536: those of radius 1 sum to
// 65536 and those of larger radii fit in 16 signed bits, which vector bodies rely on. Every tap of
// the `count` outputs is readable; out overlaps no input.
struct GaussianKernels {
  // out[i] = min(255, sum over d = -radius .. radius of weights[|d|] * in[i + 3 * d] >> 16)
  void (*horizontal)(const uint8_t* in, uint8_t* out, ptrdiff_t count, const int32_t* weights,
                     int radius);
  // The same down a column: rows[radius] is the row of the outputs.
  void (*vertical)(const uint8_t* const* rows, uint8_t* out, ptrdiff_t count,
                   const int32_t* weights, int radius);
};

GaussianKernels gaussianKernels(InstructionSet level);
void addGaussianSsse3(GaussianKernels& kernels);
void addGaussianAvx2(GaussianKernels& kernels);

}  // namespace kvl
