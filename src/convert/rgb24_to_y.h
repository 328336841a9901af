#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void convertRgb24ToY(const uint8_t* source, int32_t sourceStride, uint8_t* plane,
                     int32_t planeStride, int32_t width, int32_t height,
                     const ColorConversionParams* colours);

}  // namespace kvl
