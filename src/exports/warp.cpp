#include "warp/warp.h"

#include "kvl/kvl.h"

void KVL_CalcQvWarpPixel(const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                         const RECT* destinationRect, const BITMAPINFOHEADER* sourceHeader,
                         const uint8_t* sourceBits, const RECT* sourceRect, const double* matrix,
                         KvlWarpHostAllocator* allocator, int32_t supersampleLevel,
                         uint32_t warpFlags) {
  kvl::warpPixels(destinationHeader, destinationBits, destinationRect, sourceHeader, sourceBits,
                  sourceRect, matrix, allocator, supersampleLevel, warpFlags);
}
