#include "jpeg/decompress.h"

#include <algorithm>

#include "core/bitmap.h"
#include "jpeg/bitmap_kind.h"

namespace kvl {
namespace {

// Fills `target` and the size of the rectangle; false where the bitmap cannot receive a picture.
bool placeTarget(const JpegDestination& destination, PixelTarget& target, SIZE& size) {
  if (destination.header == nullptr || destination.bits == nullptr) return false;
  const BITMAPINFOHEADER& header = *destination.header;
  PackedOrder unused;
  const BitmapKind kind = jpegBitmapKind(header, unused);
  if (kind != BitmapKind::grey && kind != BitmapKind::rgb24) return false;
  if (header.biWidth < 1 || header.biHeight == 0 || header.biHeight == INT32_MIN) return false;

  const int32_t rows = header.biHeight < 0 ? -header.biHeight : header.biHeight;
  const int64_t pixelBytes = header.biBitCount / 8;
  const int64_t stride =
      destination.stride != 0 ? destination.stride : static_cast<int64_t>(CalcDibStride(&header));
  if (stride < header.biWidth * pixelBytes || !isAddressable(destination.bits, stride, rows)) {
    return false;
  }
  RECT rect = {0, 0, header.biWidth, rows};
  if (destination.rect != nullptr) {
    const RECT& asked = *destination.rect;
    if (asked.left < 0 || asked.top < 0 || asked.right > rect.right || asked.bottom > rect.bottom ||
        asked.left >= asked.right || asked.top >= asked.bottom) {
      return false;
    }
    rect = asked;
  }
  const bool bottomUp = header.biHeight > 0;
  const int64_t firstRow = bottomUp ? int64_t{rows} - 1 - rect.top : rect.top;
  target = {destination.bits + firstRow * stride + rect.left * pixelBytes,
            bottomUp ? -stride : stride, header.biBitCount};
  size = {rect.right - rect.left, rect.bottom - rect.top};
  return true;
}

}  // namespace

int32_t jpegDecompress(const JpegFile& file, const JpegDestination& destination,
                       int32_t* rowsRead) {
  if (rowsRead != nullptr) *rowsRead = 0;
  PixelTarget target;
  SIZE size;
  if (!isUsable(file) || !placeTarget(destination, target, size)) return KVL_JPEG_INVALID_ARGUMENT;

  JpegPicture picture(file);
  int32_t rows = 0;
  int32_t status = picture.open();
  if (status == KVL_JPEG_OK) {
    const RECT& crop = picture.crop();
    status = picture.read(std::min<int32_t>(size.cx, crop.right - crop.left),
                          std::min<int32_t>(size.cy, crop.bottom - crop.top), target, rows);
  }
  status = picture.end(status);
  if (rowsRead != nullptr) *rowsRead = rows;
  return status;
}

}  // namespace kvl
