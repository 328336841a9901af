#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void copyRgbBmpToYuyvFrame(const BITMAPINFOHEADER* bitmap, POINT sourceAt, uint8_t* frame,
                           int32_t frameStride, int32_t frameHeight, POINT frameAt, SIZE area,
                           bool bt601);

}  // namespace kvl
