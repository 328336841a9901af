#include "warp_host.h"

#include <cstdint>
#include <memory>
#include <new>

namespace kvl::tool {
namespace {

struct Image : KvlWarpHostImage {
  BITMAPINFOHEADER header;
  std::unique_ptr<uint8_t[]> bits;
};

uint32_t releaseImage(KvlWarpHostImage* image) {
  delete static_cast<Image*>(image);
  return 0;
}

BITMAPINFOHEADER* headerOf(KvlWarpHostImage* image) {
  return &static_cast<Image*>(image)->header;
}

uint8_t* bitsOf(KvlWarpHostImage* image) {
  return static_cast<Image*>(image)->bits.get();
}

// The tool's pictures have 24 bits. Nothing may throw through the library.
int32_t createImage(KvlWarpHostAllocator*, KvlWarpHostImage** result,
                    const KvlWarpImageRequest* request, int32_t, const char*, int32_t) {
  static const KvlWarpHostImageOperations operations = {nullptr, nullptr, releaseImage, headerOf,
                                                        bitsOf};
  constexpr int32_t outOfMemory = -1;
  std::unique_ptr<Image> image(new (std::nothrow) Image{});
  if (!image) return outOfMemory;
  image->operations = &operations;
  image->header.biSize = sizeof image->header;
  image->header.biWidth = request->width;
  image->header.biHeight = request->height;
  image->header.biPlanes = 1;
  image->header.biBitCount = 24;
  const size_t stride = (static_cast<size_t>(request->width) * 3 + 3) & ~size_t{3};
  image->bits.reset(new (std::nothrow) uint8_t[stride * static_cast<size_t>(request->height)]);
  if (!image->bits) return outOfMemory;
  *result = image.release();
  return 0;
}

}  // namespace

KvlWarpHostAllocator* warpAllocator() {
  static const KvlWarpHostAllocatorOperations operations = {nullptr, nullptr, nullptr, createImage};
  static KvlWarpHostAllocator allocator = {&operations};
  return &allocator;
}

}  // namespace kvl::tool
