#include "jpeg/jpeg_to_dib.h"

#include "core/bitmap.h"

namespace kvl {
namespace {

bool isUsableFormat(const KVL_JpegReadOptions* options) {
  if (options == nullptr) return true;
  const int32_t bits = options->bitCount;
  return (bits == 0 || bits == 8 || bits == 24) && (options->topDown == 0 || options->topDown == 1);
}

uint16_t bitCountOf(const KVL_JpegReadOptions* options, const JpegLayout& layout) {
  if (options != nullptr && options->bitCount != 0) {
    return static_cast<uint16_t>(options->bitCount);
  }
  return layout.colorSpace == KVL_JPEG_GREY ? 8 : 24;
}

}  // namespace

int32_t jpegToDib(const JpegFile& file, BITMAPINFOHEADER* header, uint8_t* bits, size_t* bitsSize,
                  int32_t* rowsRead) {
  if (rowsRead != nullptr) *rowsRead = 0;
  if (!isUsable(file) || !isUsableFormat(file.options) || header == nullptr ||
      bitsSize == nullptr) {
    return KVL_JPEG_INVALID_ARGUMENT;
  }
  JpegPicture picture(file);
  int32_t status = picture.open();
  if (status != KVL_JPEG_OK) return picture.end(status);

  const bool topDown = file.options != nullptr && file.options->topDown != 0;
  const uint16_t bitCount = bitCountOf(file.options, picture.layout());
  const int32_t width = picture.crop().right - picture.crop().left;
  const int32_t height = picture.crop().bottom - picture.crop().top;
  const int64_t stride = CalcStrideFromBitCount(width, bitCount);
  const auto needed = static_cast<uint64_t>(stride * height);
  const uint64_t given = *bitsSize;
  *header = {};
  header->biSize = sizeof *header;
  header->biWidth = width;
  header->biHeight = topDown ? -height : height;
  header->biPlanes = 1;
  header->biBitCount = bitCount;
  header->biSizeImage = needed <= UINT32_MAX ? static_cast<uint32_t>(needed) : 0;
  *bitsSize = static_cast<size_t>(needed);
  if (bits == nullptr || given < needed) {
    status = picture.end(KVL_JPEG_OK);
    return status == KVL_JPEG_OK ? KVL_JPEG_NEEDS_BUFFER : status;
  }
  if (!isAddressable(bits, stride, height)) return picture.end(KVL_JPEG_INVALID_ARGUMENT);

  const PixelTarget target = topDown ? PixelTarget{bits, stride, bitCount}
                                     : PixelTarget{bits + (height - 1) * stride, -stride, bitCount};
  int32_t rows = 0;
  status = picture.end(picture.read(width, height, target, rows));
  if (rowsRead != nullptr) *rowsRead = rows;
  return status;
}

}  // namespace kvl
