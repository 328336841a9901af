#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

// See KVL_ApplyRGBColorShift.
void colourShift(const BITMAPINFOHEADER* header, uint8_t* bits, float red, float green, float blue,
                 bool preserveByRatio);

}  // namespace kvl
