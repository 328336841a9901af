// How much saturation each hue keeps beside a key colour.
#pragma once

#include <cstdint>

namespace kvl {

constexpr int32_t hues = 360;
constexpr int spillFactorBits = 14;
constexpr int32_t keepSaturation = 1 << spillFactorBits;

struct HueSpillTable {
  // In 1/16384.
  uint16_t factors[hues];
};

// In whole degrees: 0 .. 359 for bytes, and 0 for greys. Sums and products of other colours wrap.
int32_t hueOf(int32_t red, int32_t green, int32_t blue);

HueSpillTable hueSpillTable(int32_t keyHue, int32_t spillStrength);

// The same factors by the distance of a hue from the key's, for byte shuffles.
struct SpillRamp {
  static constexpr int32_t blocks = 6;
  int32_t keyHue;
  // The distances below it, at most 90, have a factor below keepSaturation.
  int32_t reach;
  // Low bytes of the factors of sixteen distances, in 1/65536, then their high bytes.
  alignas(32) uint8_t bytes[blocks][32];
};

// False where the table cannot be told so: its key's hue is not that of a colour of bytes.
bool makeSpillRamp(const HueSpillTable& table, int32_t keyHue, SpillRamp& ramp);

}  // namespace kvl
