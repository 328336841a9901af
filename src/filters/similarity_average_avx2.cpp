#include <immintrin.h>

#include "filters/similarity_average_kernels.h"

namespace kvl {
namespace {

constexpr int positionBits = 6;
constexpr int positionOne = 1 << positionBits;

// Eight pixels' offsets from the centre: the even ones and the odd ones, in the low halves of
// 64-bit elements.
struct Offsets {
  __m256i even;
  __m256i odd;
};

// 32.32 fixed point to the nearest integer, halves away from zero, in the high halves.
__m256i roundOffset(__m256i offset) {
  const __m256i half = _mm256_set1_epi64x(int64_t{1} << 31);
  const __m256i negative = _mm256_cmpgt_epi64(_mm256_setzero_si256(), offset);
  return _mm256_add_epi64(_mm256_add_epi64(offset, half), negative);
}

// The rounded factor * dx + rest of eight pixels.
__m256i roundedProducts(const Offsets& dx, int32_t factor, int64_t rest) {
  const __m256i f = _mm256_set1_epi64x(factor), r = _mm256_set1_epi64x(rest);
  const __m256i even = roundOffset(_mm256_add_epi64(_mm256_mul_epi32(dx.even, f), r));
  const __m256i odd = roundOffset(_mm256_add_epi64(_mm256_mul_epi32(dx.odd, f), r));
  return _mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xAA);
}

__m256i clampPosition(__m256i position, __m256i last) {
  return _mm256_min_epi32(_mm256_max_epi32(position, _mm256_setzero_si256()), last);
}

// Where eight samples lie: the byte offsets of their upper left pixels, and how far they are to the
// right of them and below, 0 .. 63.
struct Positions {
  __m256i offset;
  __m256i right;
  __m256i down;
};

struct Locator {
  Offsets dx;
  int64_t dy;
  __m256i x;
  __m256i y;
  __m256i lastX;
  __m256i lastY;
  __m256i stride;
  int pixelShift;

  Locator(const SampledImage& image, const SampledBlock& block, int shift)
      : dy(block.dy), pixelShift(shift) {
    const __m256i steps = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i all = _mm256_add_epi32(_mm256_set1_epi32(block.dx), _mm256_slli_epi32(steps, 8));
    dx = {all, _mm256_srli_epi64(all, 32)};
    x = _mm256_slli_epi32(_mm256_add_epi32(_mm256_set1_epi32(block.x), steps), positionBits);
    y = _mm256_set1_epi32(block.y * positionOne);
    lastX = _mm256_set1_epi32((image.width - 1) * positionOne);
    lastY = _mm256_set1_epi32((image.height - 1) * positionOne);
    stride = _mm256_set1_epi32(static_cast<int>(image.stride));
  }

  Positions locate(SimilaritySample sample) const {
    const __m256i shiftX = roundedProducts(dx, sample.scale, -(sample.turn * dy));
    const __m256i shiftY = roundedProducts(dx, sample.turn, sample.scale * dy);
    const __m256i atX = clampPosition(_mm256_add_epi32(x, shiftX), lastX);
    const __m256i atY = clampPosition(_mm256_add_epi32(y, shiftY), lastY);
    const __m256i row = _mm256_mullo_epi32(_mm256_srli_epi32(atY, positionBits), stride);
    const __m256i pixel = _mm256_slli_epi32(_mm256_srli_epi32(atX, positionBits), pixelShift);
    const __m256i fraction = _mm256_set1_epi32(positionOne - 1);
    return {_mm256_add_epi32(row, pixel), _mm256_and_si256(atX, fraction),
            _mm256_and_si256(atY, fraction)};
  }
};

// 64 - f in the low 16 bits of each element, f in the high ones.
__m256i wordWeights(__m256i f) {
  return _mm256_sub_epi32(
      _mm256_add_epi32(_mm256_slli_epi32(f, 16), _mm256_set1_epi32(positionOne)), f);
}

// The same in two bytes, twice.
__m256i byteWeights(__m256i f) {
  const __m256i pair = _mm256_sub_epi32(
      _mm256_add_epi32(_mm256_slli_epi32(f, 8), _mm256_set1_epi32(positionOne)), f);
  return _mm256_or_si256(pair, _mm256_slli_epi32(pair, 16));
}

void sumOneByte(const SampledImage& image, const SimilaritySample* samples, int32_t count,
                const SampledBlock& block, uint32_t* sums) {
  const Locator locator(image, block, 0);
  const int* upper = reinterpret_cast<const int*>(image.pixels);
  const int* lower = reinterpret_cast<const int*>(image.pixels + image.stride);
  const __m256i lowHalf = _mm256_set1_epi32(0xFFFF);
  __m256i sum = _mm256_setzero_si256();
  for (int32_t k = 0; k < count; ++k) {
    const Positions at = locator.locate(samples[k]);
    const __m256i top = _mm256_i32gather_epi32(upper, at.offset, 1);
    const __m256i bottom = _mm256_i32gather_epi32(lower, at.offset, 1);
    const __m256i four =
        _mm256_or_si256(_mm256_and_si256(top, lowHalf), _mm256_slli_epi32(bottom, 16));
    const __m256i rows = _mm256_maddubs_epi16(four, byteWeights(at.right));
    sum = _mm256_add_epi32(sum, _mm256_madd_epi16(rows, wordWeights(at.down)));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums), sum);
}

__m256i loadTwo(const uint8_t* low, const uint8_t* high) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(low))),
      _mm_loadl_epi64(reinterpret_cast<const __m128i*>(high)), 1);
}

// Pixels i and i + 4 of eight, a half each.
template <int i>
__m256i bilinearPair(const uint8_t* pixels, ptrdiff_t stride, const uint32_t* offsets,
                     __m256i downWeights, __m256i rightWeights) {
  const uint8_t* a = pixels + offsets[i];
  const uint8_t* b = pixels + offsets[i + 4];
  const __m256i columns = _mm256_unpacklo_epi8(loadTwo(a, b), loadTwo(a + stride, b + stride));
  const __m256i blended =
      _mm256_maddubs_epi16(columns, _mm256_shuffle_epi32(downWeights, i * 0x55));
  const __m256i neighbours =
      _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                       0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
  return _mm256_madd_epi16(_mm256_shuffle_epi8(blended, neighbours),
                           _mm256_shuffle_epi32(rightWeights, i * 0x55));
}

void storePair(uint32_t* sums, int i, __m256i pair) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + i * 4), _mm256_castsi256_si128(pair));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + (i + 4) * 4),
                   _mm256_extracti128_si256(pair, 1));
}

void sumFourBytes(const SampledImage& image, const SimilaritySample* samples, int32_t count,
                  const SampledBlock& block, uint32_t* sums) {
  const Locator locator(image, block, 2);
  __m256i sum0 = _mm256_setzero_si256(), sum1 = sum0, sum2 = sum0, sum3 = sum0;
  alignas(32) uint32_t offsets[pixelsPerBlock];
  for (int32_t k = 0; k < count; ++k) {
    const Positions at = locator.locate(samples[k]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(offsets), at.offset);
    const __m256i down = byteWeights(at.down), right = wordWeights(at.right);
    const uint8_t* p = image.pixels;
    sum0 = _mm256_add_epi32(sum0, bilinearPair<0>(p, image.stride, offsets, down, right));
    sum1 = _mm256_add_epi32(sum1, bilinearPair<1>(p, image.stride, offsets, down, right));
    sum2 = _mm256_add_epi32(sum2, bilinearPair<2>(p, image.stride, offsets, down, right));
    sum3 = _mm256_add_epi32(sum3, bilinearPair<3>(p, image.stride, offsets, down, right));
  }
  storePair(sums, 0, sum0);
  storePair(sums, 1, sum1);
  storePair(sums, 2, sum2);
  storePair(sums, 3, sum3);
}

}  // namespace

void addSimilarityAvx2(SimilarityKernels& kernels) {
  kernels.oneByte = sumOneByte;
  kernels.fourBytes = sumFourBytes;
}

}  // namespace kvl
