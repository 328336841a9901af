// Set-up and execution in one call, with a work buffer that lives as long as the library.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

int32_t resizeInOneCall(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                        const double* sourceRect, const BITMAPINFOHEADER* destinationHeader,
                        uint8_t* destinationBits, const RECT* destinationRect, uint32_t flags);

}  // namespace kvl
