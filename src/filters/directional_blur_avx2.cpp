#include <immintrin.h>

#include "filters/directional_blur_kernels.h"

namespace kvl {
namespace {

__m256i widen(const uint8_t* at) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at)));
}

struct Sums {
  __m256i low;
  __m256i high;
};

void addPair(Sums& sums, const TapPair& pair, ptrdiff_t at, __m256i weights) {
  const __m256i first = widen(pair.first + at), second = widen(pair.second + at);
  sums.low =
      _mm256_add_epi32(sums.low, _mm256_madd_epi16(_mm256_unpacklo_epi16(first, second), weights));
  sums.high =
      _mm256_add_epi32(sums.high, _mm256_madd_epi16(_mm256_unpackhi_epi16(first, second), weights));
}

struct Divider {
  __m256i divisor;
  __m256 reciprocal;
};

// Unsigned. The single-precision quotient is wrong by at most 1, which the remainder tells.
__m256i divide(__m256i sum, const Divider& by) {
  const __m256 half = _mm256_cvtepi32_ps(_mm256_srli_epi32(sum, 1));
  const __m256i guess = _mm256_cvttps_epi32(_mm256_mul_ps(half, by.reciprocal));
  const __m256i rest = _mm256_sub_epi32(sum, _mm256_mullo_epi32(guess, by.divisor));
  const __m256i tooLarge = _mm256_cmpgt_epi32(_mm256_setzero_si256(), rest);
  const __m256i exact = _mm256_cmpgt_epi32(by.divisor, rest);
  // One too small: neither mask is set.
  return _mm256_add_epi32(_mm256_add_epi32(guess, _mm256_set1_epi32(1)),
                          _mm256_add_epi32(exact, tooLarge));
}

__m256i divide(const Sums& sums, const Divider& by) {
  return _mm256_packs_epi32(divide(sums.low, by), divide(sums.high, by));
}

Divider dividerBy(uint32_t divisor) {
  return {_mm256_set1_epi32(static_cast<int>(divisor)),
          _mm256_set1_ps(2.0f / static_cast<float>(divisor))};
}

__m256i weightsOf(const TapPair& pair) {
  return _mm256_set1_epi32(static_cast<int>(static_cast<uint16_t>(pair.firstWeight) |
                                            static_cast<uint32_t>(pair.secondWeight) << 16));
}

// Bytes from `i` on of those that end at `count`.
void storeBytes(uint8_t* out, ptrdiff_t i, ptrdiff_t count, __m256i bytes) {
  if (i + convolutionBlock <= count) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), bytes);
    return;
  }
  uint8_t rest[convolutionBlock];
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(rest), bytes);
  for (ptrdiff_t j = i; j < count; ++j) out[j] = rest[j - i];
}

void convolve(const TapPair* pairs, int32_t pairCount, uint32_t divisor, uint8_t* out,
              ptrdiff_t count) {
  const Divider by = dividerBy(divisor);
  const __m256i half = _mm256_set1_epi32(static_cast<int>(divisor / 2));
  for (ptrdiff_t i = 0; i < count; i += convolutionBlock) {
    Sums left = {half, half}, right = {half, half};
    for (int32_t k = 0; k < pairCount; ++k) {
      const __m256i weights = weightsOf(pairs[k]);
      addPair(left, pairs[k], i, weights);
      addPair(right, pairs[k], i + 16, weights);
    }
    const __m256i bytes =
        _mm256_permute4x64_epi64(_mm256_packus_epi16(divide(left, by), divide(right, by)), 0xD8);
    storeBytes(out, i, count, bytes);
  }
}

void addTo(uint32_t* sums, __m256i values) {
  __m256i* at = reinterpret_cast<__m256i*>(sums);
  _mm256_storeu_si256(at, _mm256_add_epi32(_mm256_loadu_si256(at), values));
}

void accumulate(const TapPair* pairs, int32_t pairCount, uint32_t* sums, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += 16) {
    Sums block = {_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int32_t k = 0; k < pairCount; ++k) addPair(block, pairs[k], i, weightsOf(pairs[k]));
    addTo(sums + i, _mm256_permute2x128_si256(block.low, block.high, 0x20));
    addTo(sums + i + 8, _mm256_permute2x128_si256(block.low, block.high, 0x31));
  }
}

void divideAll(const uint32_t* sums, uint32_t divisor, uint8_t* out, ptrdiff_t count) {
  const Divider by = dividerBy(divisor);
  const __m256i half = _mm256_set1_epi32(static_cast<int>(divisor / 2));
  for (ptrdiff_t i = 0; i < count; i += convolutionBlock) {
    __m256i quotients[4];
    for (int j = 0; j < 4; ++j) {
      const __m256i* at = reinterpret_cast<const __m256i*>(sums + i + 8 * j);
      quotients[j] = divide(_mm256_add_epi32(_mm256_loadu_si256(at), half), by);
    }
    // Packing works within halves: they hold the lower and the upper half of each quotient.
    const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(quotients[0], quotients[1]),
                                              _mm256_packs_epi32(quotients[2], quotients[3]));
    const __m256i inOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    storeBytes(out, i, count, _mm256_permutevar8x32_epi32(bytes, inOrder));
  }
}

}  // namespace

void addDirectionalAvx2(DirectionalKernels& kernels) {
  kernels = {convolve, accumulate, divideAll};
}

}  // namespace kvl
