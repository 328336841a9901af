#include "filters/directional_blur.h"
#include "filters/gaussian_blur.h"
#include "filters/radial_blur.h"
#include "filters/simple_sharpen.h"
#include "filters/zoom_blur.h"
#include "kvl/kvl.h"

void KVL_GaussianBlur(const BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                      const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  kvl::gaussianBlur(workHeader, workBits, imageHeader, imageBits, radius);
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
