// The block kernel of the premultiplication.
#pragma once

#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

struct PremultiplyKernels {
  // `count` blocks of 16 pixels: x becomes ((x * a + 127) * 257) >> 16. Null where the level has
  // none.
  void (*blocks)(uint8_t* colour, const uint8_t* alpha, int32_t count);
};

PremultiplyKernels premultiplyKernels(InstructionSet level);
void addPremultiplySsse3(PremultiplyKernels& kernels);
void addPremultiplyAvx2(PremultiplyKernels& kernels);

}  // namespace kvl
