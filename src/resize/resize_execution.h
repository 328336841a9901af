// Carries a set-up record out.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

int32_t executeResize(const ResizeSetup* setup, const uint8_t* sourceBits, uint8_t* destinationBits,
                      uint8_t* work, uint64_t workBytes);

}  // namespace kvl
