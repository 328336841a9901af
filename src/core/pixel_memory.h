// Fill and copy for whole rows and frames that are written once and read by a later pass.
#pragma once

#include <cstdint>

namespace kvl {

// Both return `destination` and do nothing for a null pointer. From 16 bytes on, and once SSE2 is
// known to be there, whole 16-byte blocks go past the cache where they are aligned.
uint8_t* FastFill(uint8_t* destination, int byteValue, uint64_t count);
// The ranges must not overlap.
uint8_t* FastCopy(uint8_t* destination, const uint8_t* source, uint64_t count);

}  // namespace kvl
