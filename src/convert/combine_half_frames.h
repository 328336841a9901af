#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void combineHalfFrames(const BITMAPINFOHEADER* header, uint8_t* destination, const uint8_t* source,
                       int32_t secondField);

}  // namespace kvl
