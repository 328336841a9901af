#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

int32_t convertYuvToRgb24(const GUID* subtype, const uint8_t* source, int32_t sourceStride,
                          SIZE size, uint8_t* destination, int32_t destinationStride,
                          const ColorConversionParams* params);

}  // namespace kvl
