#include "filters/averaging_blur.h"
#include "filters/classic_blur.h"
#include "filters/directional_blur.h"
#include "filters/gaussian_blur.h"
#include "filters/modified_selective_blur.h"
#include "filters/radial_blur.h"
#include "filters/selective_blur.h"
#include "filters/selective_sharpen.h"
#include "filters/simple_sharpen.h"
#include "filters/zoom_blur.h"
#include "kvl/kvl.h"

void KVL_GaussianBlur(const BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                      const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  kvl::gaussianBlur(workHeader, workBits, imageHeader, imageBits, radius);
}

void KVL_AveragingBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                       const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  kvl::averagingBlur(workHeader, workBits, imageHeader, imageBits, radius);
}

void KVL_AvgBlurUni(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                    const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits, int32_t x0,
                    int32_t y0, int32_t width, int32_t height, int32_t horizontalRadius,
                    int32_t verticalRadius) {
  kvl::avgBlurUni(sourceHeader, sourceBits, transposedHeader, transposedBits,
                  {x0, y0, width, height}, horizontalRadius, verticalRadius);
}

void KVL_AvgBlurUniFloat(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                         const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                         int32_t x0, int32_t y0, int32_t width, int32_t height,
                         float horizontalRadius, float verticalRadius) {
  kvl::avgBlurUniFloat(sourceHeader, sourceBits, transposedHeader, transposedBits,
                       {x0, y0, width, height}, horizontalRadius, verticalRadius);
}

void KVL_BlurClassicUni(uint8_t* image, uint32_t imageStride, uint8_t* work, uint32_t workStride,
                        uint32_t width, uint32_t height, int32_t threshold, float radius) {
  kvl::blurClassic({image, imageStride}, {work, workStride}, width, height, threshold, radius, 3);
}

void KVL_BlurClassicUni_MultiComp(uint8_t* image, uint32_t imageStride, uint8_t* work,
                                  uint32_t workStride, uint32_t width, uint32_t height,
                                  int32_t threshold, float radius, int32_t components,
                                  int32_t layout) {
  if (layout != 1) return;
  kvl::blurClassic({image, imageStride}, {work, workStride}, width, height, threshold, radius,
                   components);
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

void KVL_BlurZoom(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                  uint32_t destinationStride, uint32_t width, uint32_t height, double centreX,
                  double centreY, double strength, int32_t components) {
  kvl::zoomBlur({source, sourceStride, destination, destinationStride, width, height, components},
                centreX, centreY, strength);
}

void KVL_BlurRadial(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                    uint32_t destinationStride, uint32_t width, uint32_t height, double centreX,
                    double centreY, double angle, int32_t components) {
  kvl::radialBlur({source, sourceStride, destination, destinationStride, width, height, components},
                  centreX, centreY, angle);
}

void KVL_BlurDirectional(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                         uint32_t destinationStride, uint32_t width, uint32_t height, double angle,
                         double length, int32_t components) {
  kvl::directionalBlur(
      {source, sourceStride, destination, destinationStride, width, height, components}, angle,
      length);
}

void KVL_SharpenSimpleUni(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                          uint32_t destinationStride, uint32_t width, uint32_t height,
                          int32_t threshold, float gain) {
  kvl::sharpenSimple({source, sourceStride, destination, destinationStride, width, height, 1},
                     threshold, gain);
}

void KVL_SharpenSimpleUni_MultiComp(const uint8_t* source, uint32_t sourceStride,
                                    uint8_t* destination, uint32_t destinationStride,
                                    uint32_t width, uint32_t height, int32_t threshold, float gain,
                                    int32_t components, int32_t layout) {
  if (layout != 1) return;
  kvl::sharpenSimple(
      {source, sourceStride, destination, destinationStride, width, height, components}, threshold,
      gain);
}
