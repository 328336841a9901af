#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void convertRgb24ToYuy2(const uint8_t* source, int32_t sourceStride, int32_t sourceHeight,
                        uint8_t* frame, int32_t frameStride, int32_t frameHeight, POINT sourceAt,
                        POINT frameAt, SIZE area, const ColorConversionParams* colours);

}  // namespace kvl
