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

}  // namespace kvl
