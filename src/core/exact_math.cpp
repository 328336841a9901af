#include "core/exact_math.h"

#include <cmath>
#include <utility>

namespace kvl {
namespace {

// Taylor series; for |x| up to pi / 4 what is left out is below 1e-18.
double sineSeries(double x) {
  const double x2 = x * x;
  double sum = 0;
  for (int i = 17; i >= 3; i -= 2) sum = (1 - sum) * x2 / (i * (i - 1));
  return x - x * sum;
}

// 1 - cos(x), which keeps more bits than the cosine.
double versineSeries(double x) {
  const double x2 = x * x;
  double sum = 0;
  for (int i = 18; i >= 2; i -= 2) sum = (1 - sum) * x2 / (i * (i - 1));
  return sum;
}

int32_t toFixed(double value) {
  return static_cast<int32_t>(roundHalfEven(value * (1 << 30)));
}

}  // namespace

int64_t roundHalfEven(double value) {
  const double below = std::floor(value);
  const double rest = value - below;
  const auto integer = static_cast<int64_t>(below);
  return integer + (rest > 0.5 || (rest == 0.5 && integer % 2 != 0));
}

int64_t divideHalfAway(int64_t numerator, int64_t denominator) {
  const int64_t magnitude = numerator < 0 ? -numerator : numerator;
  const int64_t quotient = (2 * magnitude + denominator) / (2 * denominator);
  return numerator < 0 ? -quotient : quotient;
}

SineCosine sineCosine(int64_t angle) {
  constexpr int64_t right = int64_t{90} << 19;
  constexpr double radians = 0.017453292519943295 / (1 << 19);
  angle %= 4 * right;
  if (angle < 0) angle += 4 * right;
  const int64_t rest = angle % right;
  const bool pastDiagonal = rest > right / 2;
  const double x = static_cast<double>(pastDiagonal ? right - rest : rest) * radians;
  int32_t sine = toFixed(sineSeries(x)), cosine = (1 << 30) - toFixed(versineSeries(x));
  if (pastDiagonal) std::swap(sine, cosine);
  switch (angle / right) {
    case 0:
      return {sine, cosine};
    case 1:
      return {cosine, -sine};
    case 2:
      return {-sine, -cosine};
    default:
      return {-cosine, sine};
  }
}

double sine(double radians) {
  // A right angle in three parts whose products with a count of 25 bits are exact.
  constexpr double high = 0x1.921FB54p0, middle = 0x4.42D184p-32, low = 0x6.9898CC51701B8p-60;
  const double count = std::floor(radians / high + 0.5);
  const double rest = radians - count * high - count * middle - count * low;
  switch (static_cast<int64_t>(count) & 3) {
    case 0:
      return sineSeries(rest);
    case 1:
      return 1 - versineSeries(rest);
    case 2:
      return -sineSeries(rest);
    default:
      return versineSeries(rest) - 1;
  }
}

}  // namespace kvl
