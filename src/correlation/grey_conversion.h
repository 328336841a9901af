// Grey images for the searches.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void convertFrameToGray(const uint8_t* source, int32_t sourceStride, uint8_t* destination,
                        int32_t destinationStride, int32_t width, int32_t height);
void convertToGray(const BITMAPINFOHEADER* source, uint8_t* destination,
                   const CorrelationOptions* options);

}  // namespace kvl
