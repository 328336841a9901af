#include "alpha/colour_and_alpha.h"
#include "alpha/colour_key.h"
#include "alpha/colour_shift.h"
#include "alpha/premultiply.h"
#include "alpha/reverse_premultiply.h"
#include "kvl/kvl.h"

void KVL_PremultiplyAlpha(const BITMAPINFOHEADER* colourHeader, uint8_t* colourBits,
                          const BITMAPINFOHEADER* alphaHeader, const uint8_t* alphaBits) {
  kvl::premultiply(kvl::colourAndAlpha(colourHeader, colourBits, alphaHeader, alphaBits));
}

void KVL_PremultiplyAlphaLines(uint8_t* colour, int32_t colourStride, const uint8_t* alpha,
                               int32_t alphaStride, int32_t width, int32_t lineCount) {
  kvl::premultiply({colour, colourStride, alpha, alphaStride, width, lineCount});
}

void KVL_ReverseAlphaPremul(const BITMAPINFOHEADER* colourHeader, uint8_t* colourBits,
                            const BITMAPINFOHEADER* alphaHeader, const uint8_t* alphaBits) {
  kvl::reversePremultiply(kvl::colourAndAlpha(colourHeader, colourBits, alphaHeader, alphaBits));
}

void KVL_ReverseAlphaPremulLines(uint8_t* colour, int32_t colourStride, const uint8_t* alpha,
                                 int32_t alphaStride, int32_t width, int32_t lineCount) {
  kvl::reversePremultiply({colour, colourStride, alpha, alphaStride, width, lineCount});
}

void KVL_ApplyRGBColorShift(const BITMAPINFOHEADER* header, uint8_t* bits, float red, float green,
                            float blue, int32_t preserveByRatio) {
  kvl::colourShift(header, bits, red, green, blue, preserveByRatio != 0);
}

void KVL_CalcAlphaBmpForMix_ColorBox(uint8_t* mask, int32_t maskStride, uint8_t* image,
                                     int32_t imageStride, int32_t width, int32_t height,
                                     int32_t keyRed, int32_t keyGreen, int32_t keyBlue,
                                     int32_t lowTolerance, int32_t highTolerance,
                                     uint32_t spillStrength) {
  kvl::colourKey({mask, maskStride, image, imageStride, width, height}, {keyRed, keyGreen, keyBlue},
                 {lowTolerance, highTolerance}, static_cast<int32_t>(spillStrength));
}
