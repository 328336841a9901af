#include "alpha/reverse_premultiply_kernels.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

// For the colour bytes 16 * part .. 16 * part + 15 of a block as words: where the factors of their
// pixels lie among those of the eight pixels that each lane is given.
struct FactorOfColour {
  alignas(32) uint8_t from[32];
};

constexpr FactorOfColour factorOfColour(int part) {
  FactorOfColour factor{};
  for (int i = 0; i < 32; ++i) {
    const int pixel = (16 * part + i / 2) / 3;
    factor.from[i] = static_cast<uint8_t>(2 * (pixel % 8) + i % 2);
  }
  return factor;
}

constexpr FactorOfColour factorsOfColour[3] = {factorOfColour(0), factorOfColour(1),
                                               factorOfColour(2)};

inline __m128i loadHalf(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// min(65535, (65536 + a / 2) / a) of eight alphas. The quotient cannot round up to the next
// integer, which is at least 1 / 255 away.
inline __m256i reciprocals(__m256i a) {
  const __m256i numerator = _mm256_add_epi32(_mm256_set1_epi32(65536), _mm256_srli_epi32(a, 1));
  const __m256 quotient = _mm256_div_ps(_mm256_cvtepi32_ps(numerator), _mm256_cvtepi32_ps(a));
  return _mm256_cvttps_epi32(_mm256_min_ps(quotient, _mm256_set1_ps(65535)));
}

// The same of sixteen alphas in words.
inline __m256i reciprocalWords(__m256i a) {
  const __m256i zero = _mm256_setzero_si256();
  return _mm256_packus_epi32(reciprocals(_mm256_unpacklo_epi16(a, zero)),
                             reciprocals(_mm256_unpackhi_epi16(a, zero)));
}

inline __m256i quotients(const uint8_t* colour, __m256i factors, int part) {
  const __m256i x = _mm256_slli_epi16(_mm256_cvtepu8_epi16(loadHalf(colour + 16 * part)), 8);
  return _mm256_mulhi_epu16(x, _mm256_shuffle_epi8(factors, load(factorsOfColour[part].from)));
}

inline void reverseBlock(uint8_t* colour, const uint8_t* alpha) {
  const __m128i a = loadHalf(alpha);
  if (_mm_testz_si128(a, a)) return;
  if (_mm_testc_si128(a, _mm_set1_epi8(-1))) return;
  // 0 has the factor of 1.
  const __m128i divisors = _mm_max_epu8(a, _mm_set1_epi8(1));
  const __m256i factors = reciprocalWords(_mm256_cvtepu8_epi16(divisors));
  // The first is of the first eight pixels, the last of the last eight, the middle of both.
  const __m256i first = quotients(colour, _mm256_permute2x128_si256(factors, factors, 0x00), 0);
  const __m256i middle = quotients(colour, factors, 1);
  const __m256i last = quotients(colour, _mm256_permute2x128_si256(factors, factors, 0x11), 2);
  const __m256i low = _mm256_permute4x64_epi64(_mm256_packus_epi16(first, middle), 0xD8);
  const __m256i high = _mm256_permute4x64_epi64(_mm256_packus_epi16(last, last), 0xD8);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(colour), low);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(colour + 32), _mm256_castsi256_si128(high));
}

void reverseBlocks(uint8_t* colour, const uint8_t* alpha, int32_t count) {
  for (int32_t i = 0; i < count; ++i, colour += 48, alpha += 16) reverseBlock(colour, alpha);
}

}  // namespace

void addReversePremultiplyAvx2(ReversePremultiplyKernels& kernels) {
  kernels = {reverseBlocks};
}

}  // namespace kvl
