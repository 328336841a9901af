// Arithmetic whose results are the same on every platform: integers and the IEEE operations that
// are rounded correctly everywhere. The C library's sine and cosine are not.
#pragma once

#include <cstdint>

namespace kvl {

// The nearest integer, halves to the even one. |value| must be below 2^52.
int64_t roundHalfEven(double value);

// numerator / denominator to the nearest integer, halves away from zero. The denominator is
// positive.
int64_t divideHalfAway(int64_t numerator, int64_t denominator);

// In units of 2^-30.
struct SineCosine {
  int32_t sine;
  int32_t cosine;
};

// The nearest values for an angle in units of 2^-19 degrees.
SineCosine sineCosine(int64_t angle);

// The sine of any |radians| < 2^25, off by less than 2^-50.
double sine(double radians);

}  // namespace kvl
