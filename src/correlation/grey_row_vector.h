// The vector body of the grey conversion, at the width of the file that includes it.
#pragma once

#include "core/wide_vector.h"
#include "correlation/grey_kernels.h"

namespace kvl {
namespace {

constexpr ptrdiff_t bytesPerPixel = 3;

#if defined(__AVX2__)

constexpr ptrdiff_t lanes = 2;

// 16 bytes from `p` in the first lane, and 16 that begin `apart` bytes later in the second.
inline Vector loadLanes(const uint8_t* p, ptrdiff_t apart) {
  const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + apart));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
}
inline Vector everyLane(__m128i v) {
  return _mm256_broadcastsi128_si256(v);
}
inline Vector shuffle8(Vector v, Vector order) {
  return _mm256_shuffle_epi8(v, order);
}
inline Vector shiftRight16by8(Vector v) {
  return _mm256_srli_epi16(v, 8);
}
inline Vector add16(Vector a, Vector b) {
  return _mm256_add_epi16(a, b);
}
inline Vector lowHalves(Vector a, Vector b) {
  return _mm256_unpacklo_epi64(a, b);
}
inline Vector highHalves(Vector a, Vector b) {
  return _mm256_unpackhi_epi64(a, b);
}

#else

constexpr ptrdiff_t lanes = 1;

inline Vector loadLanes(const uint8_t* p, ptrdiff_t) {
  return load(p);
}
inline Vector everyLane(__m128i v) {
  return v;
}
inline Vector shuffle8(Vector v, Vector order) {
  return _mm_shuffle_epi8(v, order);
}
inline Vector shiftRight16by8(Vector v) {
  return _mm_srli_epi16(v, 8);
}
inline Vector add16(Vector a, Vector b) {
  return _mm_add_epi16(a, b);
}
inline Vector lowHalves(Vector a, Vector b) {
  return _mm_unpacklo_epi64(a, b);
}
inline Vector highHalves(Vector a, Vector b) {
  return _mm_unpackhi_epi64(a, b);
}

#endif

constexpr ptrdiff_t pixelsPerLane = 16;
constexpr ptrdiff_t pixelsPerStep = lanes * pixelsPerLane;

// Byte pairs are multiplied by signed bytes into signed 16 bits, so 151 is split between the two
// pairs that a green byte stands in: 77 + 51 and 28 + 100 both stay below 2^15 / 255.
struct GreyWeights {
  // (b0, b1) of four pixels, then (b2, b1) of the same.
  Vector order = everyLane(_mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, 1, 5, 4, 8, 7, 11, 10));
  Vector weights =
      everyLane(_mm_setr_epi8(77, 51, 77, 51, 77, 51, 77, 51, 28, 100, 28, 100, 28, 100, 28, 100));
};

// Grey of four pixels a lane: their two partial sums.
inline Vector partsOfFour(const uint8_t* in, const GreyWeights& w) {
  const Vector pixels = loadLanes(in, pixelsPerLane * bytesPerPixel);
  return multiplyAddPairs8(shuffle8(pixels, w.order), w.weights);
}

// Grey of eight pixels a lane, in 16-bit lanes.
inline Vector greyOfEight(const uint8_t* in, const GreyWeights& w) {
  const Vector first = partsOfFour(in, w);
  const Vector second = partsOfFour(in + 4 * bytesPerPixel, w);
  return shiftRight16by8(add16(lowHalves(first, second), highHalves(first, second)));
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
