#pragma once

#include <cstdint>

namespace kvl {

// Rows of 8-bit samples or 24-bit pixels; the stride is in bytes.
struct KeyedImage {
  uint8_t* mask;
  int64_t maskStride;
  uint8_t* image;
  int64_t imageStride;
  int32_t width;
  int32_t height;
};

struct KeyColour {
  int32_t red;
  int32_t green;
  int32_t blue;
};

// In per cent of the distance between black and white.
struct KeyTolerances {
  int32_t low;
  int32_t high;
};

// See KVL_CalcAlphaBmpForMix_ColorBox.
void colourKey(const KeyedImage& image, KeyColour key, KeyTolerances tolerances,
               int32_t spillStrength);

}  // namespace kvl
