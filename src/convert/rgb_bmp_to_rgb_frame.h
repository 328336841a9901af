#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void copyRgbBmpToRgbFrame(const BITMAPINFOHEADER* bitmap, POINT sourceAt, uint8_t* frame,
                          POINT frameAt, int32_t frameStride, int32_t frameHeight, SIZE area);

}  // namespace kvl
