#include "convert/combine_half_frames.h"
#include "convert/shrink_to_half.h"
#include "convert/yuv_to_rgb.h"
#include "kvl/kvl.h"

int32_t KVL_ShrinkToHalf(const GUID* subtype, const uint8_t* src, int32_t srcStride, SIZE srcSize,
                         uint8_t* dst, int32_t dstStride, SIZE dstSize, uint32_t flags) {
  return kvl::shrinkToHalf(subtype, {src, srcStride, srcSize}, {dst, dstStride, dstSize}, flags);
}

void KVL_VoeCombineHalfFramesLpbi(const BITMAPINFOHEADER* bmp, uint8_t* dst, const uint8_t* src,
                                  int32_t secondField) {
  kvl::combineHalfFrames(bmp, dst, src, secondField);
}

int32_t KVL_ConvertYUVToRgb24(const GUID* subtype, const uint8_t* src, int32_t srcStride, SIZE size,
                              uint8_t* dst, int32_t dstStride,
                              const ColorConversionParams* params) {
  return kvl::convertYuvToRgb24(subtype, src, srcStride, size, dst, dstStride, params);
}
