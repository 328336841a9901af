#include "alpha/hue_spill.h"

#include <algorithm>
#include <cmath>

#include "alpha/wrapping.h"
#include "core/exact_math.h"

namespace kvl {
namespace {

uint16_t spillFactor(double suppression) {
  if (suppression <= 0) return keepSaturation;
  if (suppression >= 1) return 0;
  return static_cast<uint16_t>((1 - suppression) * keepSaturation + 0.5);
}

}  // namespace

int32_t hueOf(int32_t red, int32_t green, int32_t blue) {
  const int32_t highest = std::max({red, green, blue});
  const int32_t lowest = std::min({red, green, blue});
  if (highest == lowest) return 0;
  const int32_t spread = wrap(int64_t{highest} - lowest);
  const auto sector = [&](int32_t a, int32_t b, int32_t start) {
    const int32_t sixtieths = wrap((int64_t{a} - b) * 60);
    return wrap(int64_t{wrappingQuotient(sixtieths, spread)} + start);
  };
  const int32_t hue = red == highest     ? sector(green, blue, 0)
                      : green != highest ? sector(red, green, 240)
                                         : sector(blue, red, 120);
  return hue < 0 ? hue + hues : hue;
}

HueSpillTable hueSpillTable(int32_t keyHue, int32_t spillStrength) {
  constexpr double pi = 3.14159265358979323846;
  const double k = std::abs(static_cast<double>(spillStrength) - 100) * 1.5 / 100;
  HueSpillTable table{};
  for (int32_t hue = 0; hue < hues; ++hue) {
    const int32_t degrees = wrap(int64_t{hue} - keyHue + 90);
    // The C library's sine differs between platforms in its last bit.
    table.factors[hue] = spillFactor(sine(degrees * pi / 180) * 1.5 - k);
  }
  return table;
}

bool makeSpillRamp(const HueSpillTable& table, int32_t keyHue, SpillRamp& ramp) {
  if (keyHue < 0 || keyHue >= hues) return false;
  const auto factorAt = [&](int32_t distance) {
    return table.factors[(keyHue + distance + hues) % hues];
  };
  ramp = {};
  ramp.keyHue = keyHue;
  while (ramp.reach < hues / 4 && factorAt(ramp.reach) < keepSaturation) ++ramp.reach;
  for (int32_t distance = 0; distance <= hues / 2; ++distance) {
    const uint16_t factor = factorAt(distance);
    if (factorAt(-distance) != factor) return false;
    if ((factor < keepSaturation) != (distance < ramp.reach)) return false;
    if (distance >= ramp.reach) continue;
    uint8_t* block = ramp.bytes[distance / 16];
    const int32_t scaled = factor << (16 - spillFactorBits);
    block[distance % 16] = static_cast<uint8_t>(scaled);
    block[16 + distance % 16] = static_cast<uint8_t>(scaled >> 8);
  }
  return true;
}

}  // namespace kvl
