#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

struct JpegWriteOptions {
  int32_t sampling;
  int32_t videoRange;
  int32_t bandRows;
};

int32_t jpegWriteRawImage(const KVL_JpegEncoder* encoder, const BITMAPINFOHEADER* header,
                          const uint8_t* bits, const JpegWriteOptions& options,
                          int32_t* rowsWritten);

}  // namespace kvl
