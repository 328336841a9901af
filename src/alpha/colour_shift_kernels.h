// The block kernel of the colour shift.
#pragma once

#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// In the order of the bytes of a pixel: blue, green, red.
struct ColourShiftFactors {
  // A byte v becomes v * scale + offset; 1 and 0 leave it alone.
  float scale[3];
  float offset[3];
  bool preserveByRatio;
};

struct ColourShiftKernels {
  // `count` blocks of 16 pixels in place, in single precision. Null where the level has none.
  void (*blocks)(uint8_t* pixels, int32_t count, const ColourShiftFactors& factors);
};

ColourShiftKernels colourShiftKernels(InstructionSet level);
void addColourShiftSsse3(ColourShiftKernels& kernels);
void addColourShiftAvx2(ColourShiftKernels& kernels);

}  // namespace kvl
