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

// factor * dx + rest of eight pixels, 32.32 fixed point, to the nearest integers, halves away from
// zero: a negative sum is lowered by one unit before its fraction is dropped.
__m256i roundedProducts(const Offsets& dx, int32_t factor, int64_t rest) {
  constexpr int64_t half = int64_t{1} << 31;
  const __m256i f = _mm256_set1_epi64x(factor), r = _mm256_set1_epi64x(rest + half);
  const __m256i zero = _mm256_set1_epi64x(half);
  const __m256i even = _mm256_add_epi64(_mm256_mul_epi32(dx.even, f), r);
  const __m256i odd = _mm256_add_epi64(_mm256_mul_epi32(dx.odd, f), r);
  const __m256i evenRounded = _mm256_add_epi64(even, _mm256_cmpgt_epi64(zero, even));
  const __m256i oddRounded = _mm256_add_epi64(odd, _mm256_cmpgt_epi64(zero, odd));
  return _mm256_blend_epi32(_mm256_srli_epi64(evenRounded, 32), oddRounded, 0xAA);
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

void sumOneComponent(const SampledImage& image, const SimilaritySample* samples, int32_t count,
                     const SampledBlock& block, uint32_t* sums) {
  const Locator locator(image, block, 1);
  const int* pixels = reinterpret_cast<const int*>(image.pixels);
  __m256i sum = _mm256_setzero_si256();
  for (int32_t k = 0; k < count; ++k) {
    const Positions at = locator.locate(samples[k]);
    const __m256i four = _mm256_i32gather_epi32(pixels, at.offset, 1);
    const __m256i columns = _mm256_maddubs_epi16(four, byteWeights(at.down));
    sum = _mm256_add_epi32(sum, _mm256_madd_epi16(columns, wordWeights(at.right)));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums), sum);
}

// Pixels i and i + 4 of eight, a half each.
template <int i>
__m256i bilinearPair(const uint8_t* pixels, const uint32_t* offsets, __m256i downWeights,
                     __m256i rightWeights) {
  const __m256i four =
      _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(pixels + offsets[i + 4]),
                          reinterpret_cast<const __m128i*>(pixels + offsets[i]));
  const __m256i columns = _mm256_maddubs_epi16(four, _mm256_shuffle_epi32(downWeights, i * 0x55));
  const __m256i neighbours =
      _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                       0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
  return _mm256_madd_epi16(_mm256_shuffle_epi8(columns, neighbours),
                           _mm256_shuffle_epi32(rightWeights, i * 0x55));
}

void storePair(uint32_t* sums, int i, __m256i pair) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + i * 4), _mm256_castsi256_si128(pair));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + (i + 4) * 4),
                   _mm256_extracti128_si256(pair, 1));
}

void sumFourComponents(const SampledImage& image, const SimilaritySample* samples, int32_t count,
                       const SampledBlock& block, uint32_t* sums) {
  const Locator locator(image, block, 3);
  __m256i sum0 = _mm256_setzero_si256(), sum1 = sum0, sum2 = sum0, sum3 = sum0;
  alignas(32) uint32_t offsets[pixelsPerBlock];
  for (int32_t k = 0; k < count; ++k) {
    const Positions at = locator.locate(samples[k]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(offsets), at.offset);
    const __m256i down = byteWeights(at.down), right = wordWeights(at.right);
    const uint8_t* p = image.pixels;
    sum0 = _mm256_add_epi32(sum0, bilinearPair<0>(p, offsets, down, right));
    sum1 = _mm256_add_epi32(sum1, bilinearPair<1>(p, offsets, down, right));
    sum2 = _mm256_add_epi32(sum2, bilinearPair<2>(p, offsets, down, right));
    sum3 = _mm256_add_epi32(sum3, bilinearPair<3>(p, offsets, down, right));
  }
  storePair(sums, 0, sum0);
  storePair(sums, 1, sum1);
  storePair(sums, 2, sum2);
  storePair(sums, 3, sum3);
}

}  // namespace

void addSimilarityAvx2(SimilarityKernels& kernels) {
  kernels.oneComponent = sumOneComponent;
  kernels.fourComponents = sumFourComponents;
}

}  // namespace kvl
