// Colour matrices: those that the library fills, and any.
#pragma once

#include "strided_rows.h"

namespace kvl::fuzz {

inline ColorConversionParams colourBlock(Case& test) {
  ColorConversionParams block;
  const bool any = test.oneIn(4);
  if (any) fillWithNoise(test, &block, sizeof block);
  if (!any || test.oneIn(2)) {
    KVL_FillColorConversionParams(&block, test.byte() % 3, test.byte() % 2);
  }
  if (test.hostile() && test.oneIn(2)) {
    block.shift = test.integer(0, 31);
    block.rounding = test.integer(0, 65535);
    block.chromaRounding = test.integer(0, 65535);
    block.yOffset = static_cast<int16_t>(test.integer(-300, 300));
    block.uOffset = static_cast<int16_t>(test.integer(-300, 300));
    block.rgbToYuvInt[test.byte() % 9] = test.integer(-256, 256);
    block.rgbToYuvShort[test.byte() % 9] = static_cast<int16_t>(test.integer(-256, 256));
    block.lumaFactor = static_cast<int16_t>(test.integer(-1, 20000));
  }
  return block;
}

}  // namespace kvl::fuzz
