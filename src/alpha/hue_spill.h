// How much saturation each hue keeps beside a key colour.
#pragma once

#include <cstdint>

namespace kvl {

constexpr int32_t hues = 360;
constexpr int spillFactorBits = 14;
constexpr int32_t keepSaturation = 1 << spillFactorBits;

struct HueSpillTable {
  // In 1/16384. Vector bodies read two entries at once, so one more than there are hues.
  uint16_t factors[hues + 1];
};

// In whole degrees: 0 .. 359 for bytes, and 0 for greys. Sums and products of other colours wrap.
int32_t hueOf(int32_t red, int32_t green, int32_t blue);

HueSpillTable hueSpillTable(int32_t keyHue, int32_t spillStrength);

}  // namespace kvl
