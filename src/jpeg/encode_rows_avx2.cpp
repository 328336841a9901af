#include <cstring>

#include "core/wide_vector.h"
#include "jpeg/encode_rows.h"

namespace kvl {
namespace {

constexpr ptrdiff_t blockPixels = 32;
constexpr ptrdiff_t bytesPerPixel = 3;

inline __m256i pairOf(int low, int high) {
  return _mm256_set1_epi32(
      static_cast<int>(static_cast<unsigned>(high) << 16 | (static_cast<unsigned>(low) & 0xFFFF)));
}

struct EightPixels {
  __m256i y, cb, cr;
};

// 38470 does not fit in 16 signed bits and is split over two products; 32768 does with its sign
// changed, so the chroma sums are negated.
inline EightPixels convertEight(const uint8_t* bgr) {
  const __m256i redGreen = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(2, -1, 1, -1, 5, -1, 4, -1, 8, -1, 7, -1, 11, -1, 10, -1));
  const __m256i blueGreen = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, -1, 1, -1, 3, -1, 4, -1, 6, -1, 7, -1, 9, -1, 10, -1));
  const __m256i in = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(bgr + 12),
                                         reinterpret_cast<const __m128i*>(bgr));
  const __m256i rg = _mm256_shuffle_epi8(in, redGreen);
  const __m256i bg = _mm256_shuffle_epi8(in, blueGreen);
  const __m256i y = _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(rg, pairOf(19595, 22086)),
                                                      _mm256_madd_epi16(bg, pairOf(7471, 16384))),
                                     _mm256_set1_epi32(32768));
  const __m256i bias = _mm256_set1_epi32((128 << 16) + 32767);
  const __m256i cb =
      _mm256_sub_epi32(bias, _mm256_add_epi32(_mm256_madd_epi16(rg, pairOf(11059, 21709)),
                                              _mm256_madd_epi16(bg, pairOf(-32768, 0))));
  const __m256i cr =
      _mm256_sub_epi32(bias, _mm256_add_epi32(_mm256_madd_epi16(rg, pairOf(-32768, 27439)),
                                              _mm256_madd_epi16(bg, pairOf(5329, 0))));
  return {_mm256_srli_epi32(y, 16), _mm256_srli_epi32(cb, 16), _mm256_srli_epi32(cr, 16)};
}

// The packs work on 16-byte lanes; the permutation restores the order of the pixels.
inline __m256i toBytes(__m256i a, __m256i b, __m256i c, __m256i d) {
  const __m256i packed = _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
  return _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// Reads 4 bytes beyond the 32 pixels.
inline void convertBlock(const uint8_t* bgr, uint8_t* y, uint8_t* cb, uint8_t* cr) {
  const EightPixels a = convertEight(bgr);
  const EightPixels b = convertEight(bgr + 8 * bytesPerPixel);
  const EightPixels c = convertEight(bgr + 16 * bytesPerPixel);
  const EightPixels d = convertEight(bgr + 24 * bytesPerPixel);
  store(y, toBytes(a.y, b.y, c.y, d.y));
  store(cb, toBytes(a.cb, b.cb, c.cb, d.cb));
  store(cr, toBytes(a.cr, b.cr, c.cr, d.cr));
}

void colours(const uint8_t* bgr, ptrdiff_t count, uint8_t* y, uint8_t* cb, uint8_t* cr) {
  ptrdiff_t i = 0;
  for (; i + blockPixels + 2 <= count; i += blockPixels) {
    convertBlock(bgr + i * bytesPerPixel, y + i, cb + i, cr + i);
  }
  // At most 33 pixels are left.
  uint8_t rest[(2 * blockPixels + 2) * bytesPerPixel] = {};
  memcpy(rest, bgr + i * bytesPerPixel, static_cast<size_t>((count - i) * bytesPerPixel));
  for (ptrdiff_t j = 0; i + j < count; j += blockPixels) {
    convertBlock(rest + j * bytesPerPixel, y + i + j, cb + i + j, cr + i + j);
  }
}

inline __m256i pairSums(__m256i v) {
  return _mm256_maddubs_epi16(v, _mm256_set1_epi8(1));
}

// 16-bit lanes of 0, 1, 0, 1, ...
inline __m256i oddLanes() {
  return _mm256_set1_epi32(1 << 16);
}

inline __m256i packInOrder(__m256i low, __m256i high) {
  return _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8);
}

void halve(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += 32) {
    const __m256i low = _mm256_add_epi16(pairSums(load(in + 2 * i)), oddLanes());
    const __m256i high = _mm256_add_epi16(pairSums(load(in + 2 * i + 32)), oddLanes());
    store(out + i, packInOrder(_mm256_srli_epi16(low, 1), _mm256_srli_epi16(high, 1)));
  }
}

inline __m256i quarterSixteen(const uint8_t* a, const uint8_t* b) {
  const __m256i bias = _mm256_add_epi16(oddLanes(), _mm256_set1_epi16(1));
  const __m256i sums = _mm256_add_epi16(pairSums(load(a)), pairSums(load(b)));
  return _mm256_srli_epi16(_mm256_add_epi16(sums, bias), 2);
}

void quarter(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += 32) {
    store(out + i, packInOrder(quarterSixteen(a + 2 * i, b + 2 * i),
                               quarterSixteen(a + 2 * i + 32, b + 2 * i + 32)));
  }
}

}  // namespace

void addEncodeRowsAvx2(EncodeRowKernels& kernels) {
  kernels = {colours, halve, quarter};
}

}  // namespace kvl
