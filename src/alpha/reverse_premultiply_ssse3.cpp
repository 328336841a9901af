#include <immintrin.h>

#include "alpha/reverse_premultiply_kernels.h"

namespace kvl {
namespace {

// The colour bytes 8 * part .. 8 * part + 7 of a block as words, and where the factors of their
// pixels lie among those of the first or second eight pixels.
struct FactorOfColour {
  alignas(16) uint8_t from[16];
};

constexpr FactorOfColour factorOfColour(int part) {
  FactorOfColour factor{};
  for (int i = 0; i < 16; ++i) {
    const int pixel = (8 * part + i / 2) / 3;
    factor.from[i] = static_cast<uint8_t>(2 * (pixel % 8) + i % 2);
  }
  return factor;
}

constexpr FactorOfColour factorsOfColour[6] = {factorOfColour(0), factorOfColour(1),
                                               factorOfColour(2), factorOfColour(3),
                                               factorOfColour(4), factorOfColour(5)};

inline __m128i load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// min(65535, (65536 + a / 2) / a) of four alphas. The quotient cannot round up to the next integer,
// which is at least 1 / 255 away.
inline __m128i reciprocals(__m128i a) {
  const __m128i numerator = _mm_add_epi32(_mm_set1_epi32(65536), _mm_srli_epi32(a, 1));
  const __m128 quotient = _mm_div_ps(_mm_cvtepi32_ps(numerator), _mm_cvtepi32_ps(a));
  return _mm_cvttps_epi32(_mm_min_ps(quotient, _mm_set1_ps(65535)));
}

// Eight alphas, as words.
inline __m128i reciprocalWords(__m128i a) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i bias = _mm_set1_epi32(32768);
  const __m128i low = _mm_sub_epi32(reciprocals(_mm_unpacklo_epi16(a, zero)), bias);
  const __m128i high = _mm_sub_epi32(reciprocals(_mm_unpackhi_epi16(a, zero)), bias);
  return _mm_xor_si128(_mm_packs_epi32(low, high), _mm_set1_epi16(-32768));
}

// The words of `x` hold a byte each in their upper half.
inline __m128i times(__m128i x, __m128i factors, int part) {
  return _mm_mulhi_epu16(x, _mm_shuffle_epi8(factors, load(factorsOfColour[part].from)));
}

inline void reverseBlock(uint8_t* colour, const uint8_t* alpha) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i a = load(alpha);
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(a, zero)) == 0xFFFF) return;
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(a, _mm_set1_epi8(-1))) == 0xFFFF) return;
  // 0 has the factor of 1.
  const __m128i divisors = _mm_max_epu8(a, _mm_set1_epi8(1));
  const __m128i factors[2] = {reciprocalWords(_mm_unpacklo_epi8(divisors, zero)),
                              reciprocalWords(_mm_unpackhi_epi8(divisors, zero))};
  for (int i = 0; i < 3; ++i) {
    const __m128i x = load(colour + 16 * i);
    const __m128i low = times(_mm_unpacklo_epi8(zero, x), factors[2 * i / 3], 2 * i);
    const __m128i high = times(_mm_unpackhi_epi8(zero, x), factors[(2 * i + 1) / 3], 2 * i + 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(colour + 16 * i), _mm_packus_epi16(low, high));
  }
}

void reverseBlocks(uint8_t* colour, const uint8_t* alpha, int32_t count) {
  for (int32_t i = 0; i < count; ++i, colour += 48, alpha += 16) reverseBlock(colour, alpha);
}

}  // namespace

void addReversePremultiplySsse3(ReversePremultiplyKernels& kernels) {
  kernels = {reverseBlocks};
}

}  // namespace kvl
