#include "filters/gaussian_blur.h"
#include "filters/modified_selective_blur.h"
#include "filters/selective_blur.h"
#include "filters/selective_sharpen.h"
#include "kvl/kvl.h"

void KVL_GaussianBlur(const BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                      const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  kvl::gaussianBlur(workHeader, workBits, imageHeader, imageBits, radius);
}

void KVL_SelectiveBlur(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                       const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                       int32_t threshold, int32_t radius) {
  kvl::selectiveBlur(sourceHeader, sourceBits, destinationHeader, destinationBits, threshold,
                     radius);
}

void KVL_ModifiedSelectiveBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                               const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits,
                               int32_t threshold, int32_t radius) {
  kvl::modifiedSelectiveBlur(workHeader, workBits, imageHeader, imageBits, threshold, radius);
}

void KVL_SelectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                                int32_t threshold, float gain) {
  kvl::selectiveSharpenSimple(sourceHeader, sourceBits, destinationHeader, destinationBits,
                              threshold, gain);
}

void KVL_ModifiedSelectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader,
                                        const uint8_t* sourceBits,
                                        const BITMAPINFOHEADER* destinationHeader,
                                        uint8_t* destinationBits, int32_t threshold, float gain) {
  kvl::modifiedSelectiveSharpenSimple(sourceHeader, sourceBits, destinationHeader, destinationBits,
                                      threshold, gain);
}

void KVL_SelectiveSharpen(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                          const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                          int32_t threshold, float gain) {
  kvl::selectiveSharpen(sourceHeader, sourceBits, destinationHeader, destinationBits, threshold,
                        gain);
}
