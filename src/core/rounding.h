#pragma once

#include <cstdint>

namespace kvl {

// Rounds down for a bias of exactly 0.0, up for exactly 1.0, else to nearest with halves away from
// zero. Rounding down and up forgive 0.000001. Saturates; not-a-number gives -2147483648.
int32_t RoundToInt(double value, double roundingBias);

}  // namespace kvl
