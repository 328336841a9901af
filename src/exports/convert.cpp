#include "convert/rgb24_to_y.h"
#include "convert/rgb24_to_yuy2.h"
#include "convert/rgb_bmp_to_rgb_frame.h"
#include "convert/rgb_bmp_to_yuyv_frame.h"
#include "convert/rty_convert.h"
#include "kvl/kvl.h"

void KVL_ConvertRgb24ToYUY2(const uint8_t* src, int32_t srcStride, SIZE srcSize, uint8_t* dst,
                            int32_t dstStride, SIZE dstSize, POINT srcPos, POINT dstPos, SIZE area,
                            const ColorConversionParams* params) {
  kvl::convertRgb24ToYuy2(src, srcStride, srcSize.cy, dst, dstStride, dstSize.cy, srcPos, dstPos,
                          area, params);
}

void KVL_ConvertRgb24ToY(const uint8_t* src, int32_t srcStride, uint8_t* dst, int32_t dstStride,
                         int32_t width, int32_t height, const ColorConversionParams* params) {
  kvl::convertRgb24ToY(src, srcStride, dst, dstStride, width, height, params);
}

void KVL_CopyRgbBmpToRGBFrame(const BITMAPINFOHEADER* bmp, POINT srcPos, uint8_t* dst, POINT dstPos,
                              int32_t dstStride, int32_t dstHeight, SIZE area) {
  kvl::copyRgbBmpToRgbFrame(bmp, srcPos, dst, dstPos, dstStride, dstHeight, area);
}

void KVL_CopyRgbBmpToYUYVFrame(const BITMAPINFOHEADER* bmp, POINT srcPos, uint8_t* dst,
                               SIZE dstSize, int32_t dstStride, POINT dstPos, SIZE area,
                               uint8_t useBt601) {
  kvl::copyRgbBmpToYuyvFrame(bmp, srcPos, dst, dstStride, dstSize.cy, dstPos, area, useBt601 != 0);
}

int32_t KVL_RtyConvert(const RtyConvertRecord* record, const uint8_t* src, uint8_t* dst) {
  return kvl::rtyConvert(record, src, dst);
}
