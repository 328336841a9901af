#include <immintrin.h>

#include "filters/transpose_rgb24.h"

namespace kvl {
namespace {

constexpr int32_t blockSize = 8;
constexpr ptrdiff_t bytesPerPixel = 3;

__m128i load(const uint8_t* from) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

// 8 pixels, one a 32-bit word.
__m256i loadPixels(const uint8_t* from) {
  const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 4,
                                          5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1);
  return _mm256_shuffle_epi8(_mm256_set_m128i(load(from + 8), load(from)), spread);
}

void storePixels(uint8_t* to, __m256i words) {
  const __m256i gather = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0,
                                          1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words, gather),
                                                     _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(packed));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_extracti128_si256(packed, 1));
}

void transposeBlock(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride) {
  __m256i rows[blockSize], pairs[blockSize], quads[blockSize];
  for (int i = 0; i < blockSize; ++i) rows[i] = loadPixels(in + i * inStride);
  for (int i = 0; i < blockSize; i += 2) {
    pairs[i] = _mm256_unpacklo_epi32(rows[i], rows[i + 1]);
    pairs[i + 1] = _mm256_unpackhi_epi32(rows[i], rows[i + 1]);
  }
  for (int i = 0; i < blockSize; i += 4) {
    quads[i] = _mm256_unpacklo_epi64(pairs[i], pairs[i + 2]);
    quads[i + 1] = _mm256_unpackhi_epi64(pairs[i], pairs[i + 2]);
    quads[i + 2] = _mm256_unpacklo_epi64(pairs[i + 1], pairs[i + 3]);
    quads[i + 3] = _mm256_unpackhi_epi64(pairs[i + 1], pairs[i + 3]);
  }
  for (int i = 0; i < 4; ++i) {
    storePixels(out + i * outStride, _mm256_permute2x128_si256(quads[i], quads[i + 4], 0x20));
    storePixels(out + (i + 4) * outStride, _mm256_permute2x128_si256(quads[i], quads[i + 4], 0x31));
  }
}

}  // namespace

// Whole blocks, the last of which overlap the ones before.
void transposeRgb24Avx2(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride,
                        int32_t columns, int32_t rows) {
  if (columns < blockSize || rows < blockSize) {
    transposeRgb24Scalar(in, inStride, out, outStride, columns, rows);
    return;
  }
  for (int32_t y = 0; y < rows; y += blockSize) {
    if (y > rows - blockSize) y = rows - blockSize;
    for (int32_t x = 0; x < columns; x += blockSize) {
      if (x > columns - blockSize) x = columns - blockSize;
      transposeBlock(in + y * inStride + x * bytesPerPixel, inStride,
                     out + x * outStride + y * bytesPerPixel, outStride);
    }
  }
}

}  // namespace kvl
