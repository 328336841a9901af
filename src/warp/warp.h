#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void warpPixels(const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                const RECT* destinationRect, const BITMAPINFOHEADER* sourceHeader,
                const uint8_t* sourceBits, const RECT* sourceRect, const double* matrix,
                KvlWarpHostAllocator* allocator, int32_t supersampleLevel, uint32_t warpFlags);

}  // namespace kvl
