#include "jpeg/bitmap_kind.h"

#include "core/bitmap.h"

namespace kvl {

BitmapKind jpegBitmapKind(const BITMAPINFOHEADER& header, PackedOrder& order) {
  if (!IsSupportedBitmapFormat(&header)) return BitmapKind::none;
  constexpr uint32_t rgb = 0, subtypeRgb24 = 0xE436EB7D, subtypeRgb8 = 0xE436EB7A;
  switch (header.biCompression) {
    case rgb:
    case subtypeRgb24:
    case subtypeRgb8:
      if (header.biBitCount == 8) return BitmapKind::grey;
      return header.biBitCount == 24 ? BitmapKind::rgb24 : BitmapKind::none;
    case 0x32323456:  // V422
    case 0x32595559:  // YUY2
    case 0x564E5559:  // YUNV
    case 0x56595559:  // YUYV
      order = {0, 1, 2, 3};
      return BitmapKind::packed;
    case 0x55595659:  // YVYU
      order = {0, 3, 2, 1};
      return BitmapKind::packed;
    case 0x59555956:  // VYUY
      order = {1, 2, 3, 0};
      return BitmapKind::packed;
    case 0x32323459:  // Y422
    case 0x564E5955:  // UYNV
    case 0x59565955:  // UYVY
      order = {1, 0, 3, 2};
      return BitmapKind::packed;
    default:
      return BitmapKind::none;
  }
}

}  // namespace kvl
