#include <immintrin.h>

#include "warp/warp_kernels.h"

namespace kvl {
namespace {

constexpr int32_t group = 4;  // cells at a time

__m256d toDoubles(__m128i unsignedWords) {
  // Beside the exponent of 2^52, an integer's bits are that of the sum.
  const __m256i exponent = _mm256_set1_epi64x(0x4330000000000000);
  const __m256i bits = _mm256_or_si256(_mm256_cvtepu32_epi64(unsignedWords), exponent);
  return _mm256_sub_pd(_mm256_castsi256_pd(bits), _mm256_castsi256_pd(exponent));
}

// (sum + weight / 2) / weight, at most 255, of whole numbers below 2^32. With half a unit more in
// the dividend the quotient is the same, and so far from a whole number that no rounding of the
// reciprocal and the product can cross one.
struct Divider {
  explicit Divider(__m128i weights)
      : added(_mm256_add_pd(toDoubles(_mm_srli_epi32(weights, 1)), _mm256_set1_pd(0.5))),
        reciprocal(_mm256_div_pd(_mm256_set1_pd(1), toDoubles(weights))) {}

  __m128i operator()(__m128i sums) const {
    const __m256d quotient =
        _mm256_mul_pd(_mm256_add_pd(toDoubles(sums), added), reciprocal);
    return _mm256_cvttpd_epi32(_mm256_min_pd(quotient, _mm256_set1_pd(255)));
  }

  __m256d added, reciprocal;
};

__m128i loadWords(const uint32_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// The 4 x 4 words at p, p + words ..., as one vector a channel.
void loadTransposed(const uint32_t* p, ptrdiff_t words, __m128i* columns) {
  const __m128i a = loadWords(p), b = loadWords(p + words), c = loadWords(p + 2 * words),
                d = loadWords(p + 3 * words);
  const __m128i lowAb = _mm_unpacklo_epi32(a, b), highAb = _mm_unpackhi_epi32(a, b);
  const __m128i lowCd = _mm_unpacklo_epi32(c, d), highCd = _mm_unpackhi_epi32(c, d);
  columns[0] = _mm_unpacklo_epi64(lowAb, lowCd);
  columns[1] = _mm_unpackhi_epi64(lowAb, lowCd);
  columns[2] = _mm_unpacklo_epi64(highAb, highCd);
  columns[3] = _mm_unpackhi_epi64(highAb, highCd);
}

void storeInteger(uint8_t* p, uint32_t value) {
  __builtin_memcpy(p, &value, sizeof value);
}

// Four pixels whose channels lie in the low bytes of one vector each.
template <int32_t channels>
void storePixels(uint8_t* pixels, const __m128i* values) {
  __m128i packed = values[0];
  for (int32_t c = 1; c < channels; ++c) {
    packed = _mm_or_si128(packed, _mm_slli_epi32(values[c], 8 * c));
  }
  if (channels == 4) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), packed);
    return;
  }
  const __m128i order =
      channels == 1
          ? _mm_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1)
          : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  packed = _mm_shuffle_epi8(packed, order);
  if (channels == 1) {
    storeInteger(pixels, static_cast<uint32_t>(_mm_cvtsi128_si32(packed)));
  } else {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(pixels), packed);
    storeInteger(pixels + 8, static_cast<uint32_t>(_mm_extract_epi32(packed, 2)));
  }
}

template <int32_t channels>
void resolveOne(const uint32_t* cell, uint8_t* pixel) {
  const uint64_t weight = cell[cellLayout(channels).weightAt];
  if (weight == 0) return;
  for (int32_t c = 0; c < channels; ++c) {
    const uint64_t value = (cell[c] + weight / 2) / weight;
    pixel[c] = static_cast<uint8_t>(value < 255 ? value : 255);
  }
}

template <int32_t channels>
void resolveRowAvx2(const uint32_t* cells, uint8_t* pixels, int32_t count) {
  constexpr CellLayout layout = cellLayout(channels);
  int32_t i = 0;
  for (; i + group <= count; i += group) {
    __m128i columns[4];
    loadTransposed(cells, layout.words, columns);
    __m128i weights = columns[3];
    if (channels == 4) {
      const uint32_t* at = cells + layout.weightAt;
      weights = _mm_setr_epi32(static_cast<int>(at[0]), static_cast<int>(at[layout.words]),
                               static_cast<int>(at[2 * layout.words]),
                               static_cast<int>(at[3 * layout.words]));
    }
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(weights, _mm_setzero_si128())) == 0) {
      const Divider divide(weights);
      __m128i values[channels];
      for (int32_t c = 0; c < channels; ++c) values[c] = divide(columns[c]);
      storePixels<channels>(pixels, values);
    } else {
      for (int32_t k = 0; k < group; ++k) {
        resolveOne<channels>(cells + k * layout.words, pixels + k * channels);
      }
    }
    cells += group * layout.words;
    pixels += group * channels;
  }
  for (; i < count; ++i, cells += layout.words, pixels += channels) {
    resolveOne<channels>(cells, pixels);
  }
}

}  // namespace

void addResolveAvx2(WarpKernels& kernels, int32_t channels) {
  kernels.resolveRow = channels == 1   ? resolveRowAvx2<1>
                       : channels == 3 ? resolveRowAvx2<3>
                                       : resolveRowAvx2<4>;
}

}  // namespace kvl
