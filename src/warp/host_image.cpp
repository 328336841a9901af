#include "warp/host_image.h"

#include <cstddef>

namespace kvl {
namespace {

// What hosts note in their own bookkeeping of images.
constexpr int32_t imageFlags = 8;
constexpr char callerFile[] = "StretchAlgorithms";
constexpr int32_t callerLine = 3553;

GUID mediaSubtype(int32_t bytesPerPixel) {
  GUID subtype = {0xE436EB7A, 0x524F, 0x11CE, {0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
  if (bytesPerPixel == 3) subtype.Data1 = 0xE436EB7D;
  if (bytesPerPixel == 4) subtype.Data1 = 0xE436EB7E;
  return subtype;
}

}  // namespace

HostImage::HostImage(KvlWarpHostAllocator* allocator, int32_t bytesPerPixel, int32_t width,
                     int32_t height, int32_t threads) {
  const int32_t spareRows = 2 * threads + 1;
  KvlWarpImageRequest request = {};
  request.size = sizeof request;
  request.subtype = mediaSubtype(bytesPerPixel);
  request.width = request.imageWidth = width;
  request.height = request.imageHeight = height + spareRows;
  request.paddedWidth = (width + 15) & ~15;

  const KvlWarpHostAllocatorOperations* operations = allocator->operations;
  if (operations == nullptr || operations->createImage == nullptr) return;
  KvlWarpHostImage* created = nullptr;
  const int32_t status =
      operations->createImage(allocator, &created, &request, imageFlags, callerFile, callerLine);
  if (status < 0 || created == nullptr || created->operations == nullptr) return;
  image_ = created;

  BITMAPINFOHEADER* header = image_->operations->getHeader(image_);
  uint8_t* bits = image_->operations->getBits(image_);
  if (header == nullptr || bits == nullptr) return;
  const int64_t given = header->biHeight < 0 ? -int64_t{header->biHeight} : header->biHeight;
  if (given != 0 && given < height) return;
  header->biHeight = header->biHeight < 1 ? -height : height;

  PictureRows rows(*header, bits);
  if (rows.stride < int64_t{width} * bytesPerPixel || !rows.isAddressable()) return;
  // The picture begins at a boundary of 16 bytes, for which the spare rows are room enough unless
  // the rows are tiny.
  const auto past = static_cast<int64_t>(reinterpret_cast<uintptr_t>(bits) & 15);
  if (past != 0 && 16 - past <= rows.stride * spareRows) rows.bits += 16 - past;
  rows_ = rows;
}

HostImage::~HostImage() {
  if (image_ != nullptr) image_->operations->release(image_);
}

}  // namespace kvl
