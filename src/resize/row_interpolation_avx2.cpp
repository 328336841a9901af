#include <immintrin.h>

#include "resize/row_interpolation.h"

namespace kvl {
namespace {

constexpr ptrdiff_t samples = 32;

// 16 samples as 16-bit words. Up to a shift of 8 the sum lies within 0 .. 65535, so that the low 16
// bits of every term are enough.
__m256i interpolateWords(__m256i a, __m256i b, __m256i half, __m256i step, __m128i shift) {
  const __m256i difference = _mm256_sub_epi16(b, a);
  const __m256i sum = _mm256_add_epi16(
      _mm256_add_epi16(half, _mm256_sll_epi16(a, shift)),
      _mm256_add_epi16(_mm256_srai_epi16(difference, 1), _mm256_mullo_epi16(difference, step)));
  return _mm256_srl_epi16(sum, shift);
}

void interpolateAvx2(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count, int shift,
                     int32_t step) {
  constexpr int widestShift = 8;
  const __m256i zero = _mm256_setzero_si256();
  const __m256i half = _mm256_set1_epi16(static_cast<int16_t>(1 << (shift - 1)));
  const __m256i steps = _mm256_set1_epi16(static_cast<int16_t>(step));
  const __m128i bits = _mm_cvtsi32_si128(shift);
  ptrdiff_t i = 0;
  for (; shift <= widestShift && i + samples <= count; i += samples) {
    const __m256i rowA = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + i));
    const __m256i rowB = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + i));
    const __m256i lower = interpolateWords(_mm256_unpacklo_epi8(rowA, zero),
                                           _mm256_unpacklo_epi8(rowB, zero), half, steps, bits);
    const __m256i upper = interpolateWords(_mm256_unpackhi_epi8(rowA, zero),
                                           _mm256_unpackhi_epi8(rowB, zero), half, steps, bits);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_packus_epi16(lower, upper));
  }
  for (; i < count; ++i) {
    const int32_t difference = b[i] - a[i];
    out[i] = static_cast<uint8_t>(
        ((1 << (shift - 1)) + (a[i] << shift) + (difference >> 1) + step * difference) >> shift);
  }
}

}  // namespace

void addRowInterpolationAvx2(RowInterpolationKernels& kernels) {
  kernels.interpolate = interpolateAvx2;
}

}  // namespace kvl
