// A transposing pass over parallel lines: what the separable blurs are made of.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvl {

// Line j of the input, pixel after pixel, becomes column j of the output: pixel i of line j is
// read at in + j * inStride + i * bytesPerPixel and written at
// out + i * outStride + j * bytesPerPixel. The two share no byte.
struct LinePass {
  const uint8_t* in;
  ptrdiff_t inStride;
  uint8_t* out;
  ptrdiff_t outStride;
  int64_t length;  // pixels of a line
  int64_t lines;
  int bytesPerPixel;
};

// A kernel gets so many neighbouring lines at most that a row of its output has this many bytes:
// whole vectors and whole pixels of 1, 3 and 4 bytes.
constexpr int bundleBytes = 96;

}  // namespace kvl
