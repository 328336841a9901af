// The row kernel of the simple sharpen.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

struct SharpenSimpleStrength {
  // Smallest |8 * centre - sum of neighbours| that is sharpened: 0 .. 2048.
  int16_t minExcess;
  // In 1/256: 0 .. 32767.
  int16_t gain;
};

struct SharpenSimpleKernels {
  // `count` bytes; each row is readable from -step to count + step - 1, where `step` is the
  // distance of neighbouring pixels.
  void (*row)(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* out,
              ptrdiff_t count, ptrdiff_t step, SharpenSimpleStrength strength);
};

SharpenSimpleKernels sharpenSimpleKernels(InstructionSet level);
void addSharpenSimpleAvx2(SharpenSimpleKernels& kernels);

}  // namespace kvl
