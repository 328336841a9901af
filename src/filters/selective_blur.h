#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void selectiveBlur(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                   const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                   int32_t threshold, int32_t radius);

}  // namespace kvl
