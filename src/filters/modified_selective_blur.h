#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void modifiedSelectiveBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                           const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits,
                           int32_t threshold, int32_t radius);

}  // namespace kvl
