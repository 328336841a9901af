#include "filters/gaussian_blur.h"
#include "kvl/kvl.h"

void KVL_GaussianBlur(const BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                      const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  kvl::gaussianBlur(workHeader, workBits, imageHeader, imageBits, radius);
}
