#include "core/rounding.h"

#include <cmath>

namespace kvl {

int32_t RoundToInt(double value, double roundingBias) {
  if (value >= 2147483647.0) return INT32_MAX;
  if (value <= -2147483648.0 || std::isnan(value)) return INT32_MIN;
  if (value >= 0) {
    if (roundingBias == 0.0) return static_cast<int32_t>(value + 0.000001);
    if (roundingBias == 1.0) return static_cast<int32_t>(value + 0.999999);
    return static_cast<int32_t>(value + 0.5);
  }
  if (roundingBias == 0.0) return static_cast<int32_t>(value - 0.999999);
  if (roundingBias == 1.0) return static_cast<int32_t>(value - 0.000001);
  return static_cast<int32_t>(value - 0.5);
}

}  // namespace kvl
