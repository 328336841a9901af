// Rows of 24 bits a pixel from two rows of twice the width, at the width of the file that includes
// it. For vector files only: everything here has internal linkage.
#pragma once

#include "core/wide_vector.h"

namespace kvl {
namespace {

// sums(lower, upper, pairs) combines two rows of four pixels in each lane into two, as six words;
// `pairs` is the order in which shuffling brings the components of neighbours together. Returns how
// many of `count` pixels are done; the rest is less than a step and two pixels.
template <class Sums>
inline ptrdiff_t halveRgb24Steps(const uint8_t* lower, const uint8_t* upper, uint8_t* out,
                                 ptrdiff_t count, const Sums& sums) {
  constexpr ptrdiff_t bytesPerPixel = 3;
  constexpr ptrdiff_t pixelsAtOnce = vectorBytes / 4;
  // Loads and stores of a step reach beyond its pixels, by less than two outputs.
  constexpr ptrdiff_t pixelsTouched = pixelsAtOnce + 2;
  static constexpr int8_t pairsOrder[] = {0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1};
  static constexpr int8_t closeOrder[] = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1};
  const Vector pairs = repeatLane(pairsOrder), close = repeatLane(closeOrder);
  // The second lane takes the pixels after the next four.
  const auto words = [&](ptrdiff_t at) {
    const uint8_t *a = lower + at, *b = upper + at;
    return sums(loadLanes(a, a + toSecondLane(24)), loadLanes(b, b + toSecondLane(24)), pairs);
  };
  ptrdiff_t i = 0;
  for (; i + pixelsTouched <= count; i += pixelsAtOnce) {
    const ptrdiff_t at = 2 * bytesPerPixel * i;
    uint8_t* to = out + bytesPerPixel * i;
    storeLanes(to, to + 12, shuffleBytes(packUnsigned16(words(at), words(at + 12)), close));
  }
  return i;
}

}  // namespace
}  // namespace kvl
