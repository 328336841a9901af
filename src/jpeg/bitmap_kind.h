// Which bitmaps the JPEG routines take.
#pragma once

#include <cstdint>

#include "jpeg/mcu_writer.h"
#include "kvl/kvl.h"

namespace kvl {

enum class BitmapKind { none, grey, rgb24, packed };

// `order` is set for packed 4:2:2.
BitmapKind jpegBitmapKind(const BITMAPINFOHEADER& header, PackedOrder& order);

}  // namespace kvl
