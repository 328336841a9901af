// The block kernel of the reverse premultiplication.
#pragma once

#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

struct ReversePremultiplyKernels {
  // `count` blocks of 16 pixels. A block whose alphas are all 0 or all 255 stays as it is. In any
  // other each x, those of alpha 0 and 255 too, becomes h = (R * x) >> 8 with
  // R = min(65535, (65536 + a / 2) / a), or 65535 for a = 0; but 255 where h > 255 and 0 where
  // h > 32767. Null where the level has none.
  void (*blocks)(uint8_t* colour, const uint8_t* alpha, int32_t count);
};

ReversePremultiplyKernels reversePremultiplyKernels(InstructionSet level);
void addReversePremultiplySsse3(ReversePremultiplyKernels& kernels);
void addReversePremultiplyAvx2(ReversePremultiplyKernels& kernels);

}  // namespace kvl
