// Rows between two neighbouring rows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// The factor is 2^shift, shift being 1 .. 15; step is 0 .. factor - 1. With d = b[i] - a[i],
//
//   out[i] = (factor / 2 + a[i] * factor + floor(d / 2) + step * d) >> shift
//
// which lies at (step + 0.5) / factor of the way from a to b. out overlaps no input.
struct RowInterpolationKernels {
  void (*interpolate)(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count, int shift,
                      int32_t step);
};

RowInterpolationKernels rowInterpolationKernels(InstructionSet level);
void addRowInterpolationAvx2(RowInterpolationKernels& kernels);

// One sample of it.
inline uint8_t interpolateSample(uint8_t a, uint8_t b, int shift, int32_t step) {
  const int32_t difference = b - a;
  return static_cast<uint8_t>(
      ((1 << (shift - 1)) + (a << shift) + (difference >> 1) + step * difference) >> shift);
}

}  // namespace kvl
