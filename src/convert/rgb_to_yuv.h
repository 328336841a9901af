// RGB to YUV for one pixel, and what the conversions take from a colour-matrix block.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

// A row of factors for red, green and blue.
template <class Number>
struct RgbFactors {
  Number red;
  Number green;
  Number blue;
};

struct RgbToYuv {
  RgbFactors<int32_t> luma, u, v;
  // Those of the vector bodies, in units of 1/256.
  RgbFactors<int16_t> narrowLuma, narrowU, narrowV;
  int32_t shift;
  int32_t rounding;
  int32_t chromaRounding;
  int16_t lumaOffset;
  int16_t uOffset;
  int16_t vOffset;
};

// Studio range. The truncated factors of U and V do not sum to 0, and no offset centres them.
extern const ColorConversionParams bt601Studio;
extern const ColorConversionParams bt709Studio;

template <class Number>
RgbFactors<Number> factorsFrom(const Number* three) {
  return {three[0], three[1], three[2]};
}

// `Block` is ColorConversionParams or a record that holds the same fields.
template <class Block>
RgbToYuv rgbToYuvOf(const Block& block) {
  return {factorsFrom(block.rgbToYuvInt),
          factorsFrom(block.rgbToYuvInt + 3),
          factorsFrom(block.rgbToYuvInt + 6),
          factorsFrom(block.rgbToYuvShort),
          factorsFrom(block.rgbToYuvShort + 3),
          factorsFrom(block.rgbToYuvShort + 6),
          block.shift,
          block.rounding,
          block.chromaRounding,
          block.yOffset,
          block.uOffset,
          block.vOffset};
}

// (factors * pixel + rounding) >> shift in 32 bits that wrap, of a pixel in the order B, G, R. As
// the processor does, of the shift only the low 5 bits count.
inline int32_t weigh(const RgbFactors<int32_t>& factors, const uint8_t* pixel, uint32_t rounding,
                     int32_t shift) {
  const uint32_t sum = static_cast<uint32_t>(factors.red) * pixel[2] +
                       static_cast<uint32_t>(factors.green) * pixel[1] +
                       static_cast<uint32_t>(factors.blue) * pixel[0] + rounding;
  return static_cast<int32_t>(sum) >> (shift & 31);
}

// Without the offsets.
inline int32_t lumaOf(const RgbToYuv& colours, const uint8_t* pixel) {
  return weigh(colours.luma, pixel, static_cast<uint32_t>(colours.rounding), colours.shift);
}
inline int32_t chromaOf(const RgbToYuv& colours, const RgbFactors<int32_t>& factors,
                        const uint8_t* pixel) {
  const uint32_t rounding =
      static_cast<uint32_t>(colours.chromaRounding) + static_cast<uint32_t>(colours.rounding);
  return weigh(factors, pixel, rounding, colours.shift);
}

// a + b in 32 bits that wrap.
inline int32_t addWrapping(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

}  // namespace kvl
