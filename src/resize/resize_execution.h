// Carries a set-up record out.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

// Whose work buffer it is: what a host can look into is cleared first.
enum class WorkOwner { host, library };

int32_t executeResize(const ResizeSetup* setup, const uint8_t* sourceBits, uint8_t* destinationBits,
                      uint8_t* work, uint64_t workBytes, WorkOwner owner);

}  // namespace kvl
