#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void averagingBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                   const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius);

// The part of a bitmap that is blurred, in pixels.
struct BlurRectangle {
  int32_t left;
  int32_t top;
  int32_t width;
  int32_t height;
};

void avgBlurUni(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                const BlurRectangle& rectangle, int32_t horizontalRadius, int32_t verticalRadius);

void avgBlurUniFloat(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                     const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                     const BlurRectangle& rectangle, float horizontalRadius, float verticalRadius);

}  // namespace kvl
