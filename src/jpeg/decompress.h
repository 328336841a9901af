#pragma once

#include <cstdint>

#include "jpeg/read_picture.h"
#include "kvl/kvl.h"

namespace kvl {

struct JpegDestination {
  const BITMAPINFOHEADER* header;
  uint8_t* bits;
  int32_t stride;
  const RECT* rect;
};

int32_t jpegDecompress(const JpegFile& file, const JpegDestination& destination, int32_t* rowsRead);

}  // namespace kvl
