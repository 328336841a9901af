// The row kernel of the grey conversions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// out[i] = (77 * in[3 * i] + 151 * in[3 * i + 1] + 28 * in[3 * i + 2]) >> 8
using GreyKernel = void (*)(const uint8_t* in, uint8_t* out, ptrdiff_t count);

GreyKernel greyKernel(InstructionSet level);
void greyRowSsse3(const uint8_t* in, uint8_t* out, ptrdiff_t count);
void greyRowAvx2(const uint8_t* in, uint8_t* out, ptrdiff_t count);

}  // namespace kvl
