// The vector bodies of the halving, at the width of the file that includes them.
#pragma once

#include "convert/halving_kernels.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

// Every block of a rounded-up average has 16 bytes of output.
constexpr ptrdiff_t blockBytes = 16;

#if defined(__AVX2__)
inline Vector averageUp(Vector a, Vector b) {
  return _mm256_avg_epu8(a, b);
}
inline Vector shuffle(Vector v, Vector order) {
  return _mm256_shuffle_epi8(v, order);
}
inline Vector firstHalves(Vector a, Vector b) {
  return _mm256_unpacklo_epi64(a, b);
}
inline Vector secondHalves(Vector a, Vector b) {
  return _mm256_unpackhi_epi64(a, b);
}
inline Vector inEveryLane(__m128i v) {
  return _mm256_broadcastsi128_si256(v);
}
// Two vectors that were joined half by half in each lane, in the order of memory.
inline Vector inOrder(Vector v) {
  return _mm256_permute4x64_epi64(v, 0xD8);
}
inline Vector evenBytes(Vector v) {
  return _mm256_and_si256(v, splat16(255));
}
inline Vector add16(Vector a, Vector b) {
  return _mm256_add_epi16(a, b);
}
inline Vector quarter16(Vector v) {
  return _mm256_srli_epi16(v, 2);
}
#else
inline Vector averageUp(Vector a, Vector b) {
  return _mm_avg_epu8(a, b);
}
inline Vector shuffle(Vector v, Vector order) {
  return _mm_shuffle_epi8(v, order);
}
inline Vector firstHalves(Vector a, Vector b) {
  return _mm_unpacklo_epi64(a, b);
}
inline Vector secondHalves(Vector a, Vector b) {
  return _mm_unpackhi_epi64(a, b);
}
inline Vector inEveryLane(__m128i v) {
  return v;
}
inline Vector inOrder(Vector v) {
  return v;
}
inline Vector evenBytes(Vector v) {
  return _mm_and_si128(v, splat16(255));
}
inline Vector add16(Vector a, Vector b) {
  return _mm_add_epi16(a, b);
}
inline Vector quarter16(Vector v) {
  return _mm_srli_epi16(v, 2);
}
#endif

// Which bytes of 16 are averaged with which: byte i of the first eight with byte i of the last.
struct Plane {
  static constexpr ptrdiff_t unitBytes = 1;
  static __m128i order() {
    return _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
  }
  static HalvingKernel rest() { return scalarHalving.average; }
};

struct Pairs {
  static constexpr ptrdiff_t unitBytes = 2;
  static __m128i order() {
    return _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15);
  }
  static HalvingKernel rest() { return scalarHalving.pairs; }
};

struct Yuy2 {
  static constexpr ptrdiff_t unitBytes = 4;
  static __m128i order() {
    return _mm_setr_epi8(0, 1, 4, 3, 8, 9, 12, 11, 2, 5, 6, 7, 10, 13, 14, 15);
  }
  static HalvingKernel rest() { return scalarHalving.yuy2; }
};

struct Rgb32 {
  static constexpr ptrdiff_t unitBytes = 4;
  static __m128i order() {
    return _mm_setr_epi8(0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15);
  }
  static HalvingKernel rest() { return scalarHalving.rgb32; }
};

// A vector of output from two of each row.
inline Vector halve(const uint8_t* a, const uint8_t* b, Vector order) {
  const Vector first = shuffle(averageUp(load(a), load(b)), order);
  const Vector second = shuffle(averageUp(load(a + vectorBytes), load(b + vectorBytes)), order);
  return inOrder(averageUp(firstHalves(first, second), secondHalves(first, second)));
}

template <class Layout>
void average(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  const Vector order = inEveryLane(Layout::order());
  const ptrdiff_t bytes = count * Layout::unitBytes;
  ptrdiff_t i = 0;
#pragma GCC unroll 4
  for (; i + vectorBytes <= bytes; i += vectorBytes)
    store(out + i, halve(a + 2 * i, b + 2 * i, order));
#if defined(__AVX2__)
  if (i + blockBytes <= bytes) {
    const Vector sorted = shuffle(averageUp(load(a + 2 * i), load(b + 2 * i)), order);
    const Vector halves = inOrder(sorted);
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(out + i),
        _mm_avg_epu8(_mm256_castsi256_si128(halves), _mm256_extracti128_si256(halves, 1)));
    i += blockBytes;
  }
#endif
  if (i < bytes) Layout::rest()(a + 2 * i, b + 2 * i, out + i, count - i / Layout::unitBytes);
}

void sample(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  ptrdiff_t i = 0;
#pragma GCC unroll 4
  for (; i + vectorBytes <= count; i += vectorBytes) {
    const Vector first = evenBytes(load(a + 2 * i));
    const Vector second = evenBytes(load(a + 2 * i + vectorBytes));
    store(out + i, inOrder(packUnsigned16(first, second)));
  }
  if (i < count) scalarHalving.sample(a + 2 * i, b + 2 * i, out + i, count - i);
}

// Four pixels of 3 bytes in the first 12 bytes of each lane, the lanes `lanes` bytes apart.
inline Vector loadPixels(const uint8_t* p, ptrdiff_t lanes) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
#if defined(__AVX2__)
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + lanes));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
#else
  (void)lanes;
  return low;
#endif
}

inline void storePixels(uint8_t* p, Vector v, ptrdiff_t lanes) {
#if defined(__AVX2__)
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p + lanes), _mm256_extracti128_si256(v, 1));
#else
  (void)lanes;
  store(p, v);
#endif
}

// The 2 x 2 sums of four pixels of two rows, as six words a lane, divided by 4.
inline Vector quarterSums(const uint8_t* a, const uint8_t* b, Vector pairs, Vector ones) {
  constexpr ptrdiff_t lanes = 24;
  const Vector sumA = multiplyAddPairs8(shuffle(loadPixels(a, lanes), pairs), ones);
  const Vector sumB = multiplyAddPairs8(shuffle(loadPixels(b, lanes), pairs), ones);
  return quarter16(add16(sumA, sumB));
}

void averageRgb24(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  constexpr ptrdiff_t bytesPerPixel = 3;
  constexpr ptrdiff_t pixelsAtOnce = vectorBytes / 4;
  // Loads and stores of a step reach beyond its pixels, by less than two outputs.
  constexpr ptrdiff_t pixelsTouched = pixelsAtOnce + 2;
  const Vector pairs =
      inEveryLane(_mm_setr_epi8(0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1));
  const Vector close =
      inEveryLane(_mm_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1));
  const Vector ones = splat8(1);
  ptrdiff_t i = 0;
  for (; i + pixelsTouched <= count; i += pixelsAtOnce) {
    const ptrdiff_t at = 2 * bytesPerPixel * i;
    const Vector first = quarterSums(a + at, b + at, pairs, ones);
    const Vector second = quarterSums(a + at + 12, b + at + 12, pairs, ones);
    storePixels(out + bytesPerPixel * i, shuffle(packUnsigned16(first, second), close), 12);
  }
  const ptrdiff_t at = 2 * bytesPerPixel * i;
  scalarHalving.rgb24(a + at, b + at, out + bytesPerPixel * i, count - i);
}

HalvingKernels vectorKernels() {
  return {average<Plane>, sample, average<Pairs>, average<Yuy2>, averageRgb24, average<Rgb32>};
}

}  // namespace
}  // namespace kvl
