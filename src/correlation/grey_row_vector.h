// The vector body of the grey conversion, at the width of the file that includes it.
#pragma once

#include "core/wide_vector.h"
#include "correlation/grey_kernels.h"

namespace kvl {
namespace {

constexpr ptrdiff_t bytesPerPixel = 3;

constexpr ptrdiff_t pixelsPerLane = 16;
constexpr ptrdiff_t pixelsPerStep = laneCount * pixelsPerLane;

// Byte pairs are multiplied by signed bytes into signed 16 bits, so 151 is split between the two
// pairs that a green byte stands in: 77 + 51 and 28 + 100 both stay below 2^15 / 255.
struct GreyWeights {
  // (b0, b1) of four pixels, then (b2, b1) of the same.
  Vector order = repeatLane(_mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, 1, 5, 4, 8, 7, 11, 10));
  Vector weights =
      repeatLane(_mm_setr_epi8(77, 51, 77, 51, 77, 51, 77, 51, 28, 100, 28, 100, 28, 100, 28, 100));
};

// Grey of four pixels a lane: their two partial sums.
inline Vector partsOfFour(const uint8_t* in, const GreyWeights& w) {
  const Vector pixels = loadLanes(in, in + toSecondLane(pixelsPerLane * bytesPerPixel));
  return multiplyAddPairs8(shuffleBytes(pixels, w.order), w.weights);
}

// Grey of eight pixels a lane, in 16-bit lanes.
inline Vector greyOfEight(const uint8_t* in, const GreyWeights& w) {
  const Vector first = partsOfFour(in, w);
  const Vector second = partsOfFour(in + 4 * bytesPerPixel, w);
  return shiftRightUnsigned16<8>(add16(unpackLow64(first, second), unpackHigh64(first, second)));
}

void greyRow(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  const GreyWeights w;
  ptrdiff_t i = 0;
  // The last of the loads reaches four bytes beyond its pixels.
  for (; i + pixelsPerStep + 2 <= count; i += pixelsPerStep) {
    const uint8_t* from = in + i * bytesPerPixel;
    store(out + i, packUnsigned16(greyOfEight(from, w), greyOfEight(from + 8 * bytesPerPixel, w)));
  }
  for (; i < count; ++i) {
    const uint8_t* pixel = in + i * bytesPerPixel;
    out[i] = static_cast<uint8_t>((77 * pixel[0] + 151 * pixel[1] + 28 * pixel[2]) >> 8);
  }
}

}  // namespace
}  // namespace kvl
