// The vector bodies of the halving, at the width of the file that includes them.
#pragma once

#include "convert/halving_kernels.h"
#include "core/rgb24_halves_vector.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

// Every block of a rounded-up average has 16 bytes of output.
constexpr ptrdiff_t blockBytes = 16;

// Which bytes of 16 are averaged with which: byte i of the first eight with byte i of the last.
struct Plane {
  static constexpr ptrdiff_t unitBytes = 1;
  static constexpr int8_t order[] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
  static HalvingKernel rest() { return scalarHalving().average; }
};

struct Pairs {
  static constexpr ptrdiff_t unitBytes = 2;
  static constexpr int8_t order[] = {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15};
  static HalvingKernel rest() { return scalarHalving().pairs; }
};

struct Yuy2 {
  static constexpr ptrdiff_t unitBytes = 4;
  static constexpr int8_t order[] = {0, 1, 4, 3, 8, 9, 12, 11, 2, 5, 6, 7, 10, 13, 14, 15};
  static HalvingKernel rest() { return scalarHalving().yuy2; }
};

struct Rgb32 {
  static constexpr ptrdiff_t unitBytes = 4;
  static constexpr int8_t order[] = {0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15};
  static HalvingKernel rest() { return scalarHalving().rgb32; }
};

// A vector of output from two of each row.
inline Vector halve(const uint8_t* a, const uint8_t* b, Vector order) {
  const Vector first = shuffleBytes(average8(load(a), load(b)), order);
  const Vector second = shuffleBytes(average8(load(a + vectorBytes), load(b + vectorBytes)), order);
  return inOrder(average8(unpackLow64(first, second), unpackHigh64(first, second)));
}

template <class Layout>
void average(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  const Vector order = repeatLane(Layout::order);
  const ptrdiff_t bytes = count * Layout::unitBytes;
  ptrdiff_t i = 0;
#pragma GCC unroll 4
  for (; i + vectorBytes <= bytes; i += vectorBytes)
    store(out + i, halve(a + 2 * i, b + 2 * i, order));
#if defined(__AVX2__)
  if (i + blockBytes <= bytes) {
    const Vector sorted = shuffleBytes(average8(load(a + 2 * i), load(b + 2 * i)), order);
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
  const Vector even = splat16(255);
  ptrdiff_t i = 0;
#pragma GCC unroll 4
  for (; i + vectorBytes <= count; i += vectorBytes) {
    const Vector first = both(load(a + 2 * i), even);
    const Vector second = both(load(a + 2 * i + vectorBytes), even);
    store(out + i, inOrder(packUnsigned16(first, second)));
  }
  if (i < count) scalarHalving().sample(a + 2 * i, b + 2 * i, out + i, count - i);
}

void averageRgb24(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  const Vector ones = splat8(1);
  const ptrdiff_t done =
      halveRgb24Steps(a, b, out, count, [=](Vector lower, Vector upper, Vector pairs) {
        const Vector sumLower = multiplyAddPairs8(shuffleBytes(lower, pairs), ones);
        const Vector sumUpper = multiplyAddPairs8(shuffleBytes(upper, pairs), ones);
        return shiftRightUnsigned16<2>(add16(sumLower, sumUpper));
      });
  scalarHalving().rgb24(a + 6 * done, b + 6 * done, out + 3 * done, count - done);
}

HalvingKernels vectorKernels() {
  return {average<Plane>, sample, average<Pairs>, average<Yuy2>, averageRgb24, average<Rgb32>};
}

}  // namespace
}  // namespace kvl
