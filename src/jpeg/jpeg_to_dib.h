#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/read_picture.h"
#include "kvl/kvl.h"

namespace kvl {

int32_t jpegToDib(const JpegFile& file, BITMAPINFOHEADER* header, uint8_t* bits, size_t* bitsSize,
                  int32_t* rowsRead);

}  // namespace kvl
