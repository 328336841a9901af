#include "core/wide_vector.h"
#include "filters/simple_sharpen_kernels.h"

namespace kvl {
namespace {

constexpr ptrdiff_t block = 32;

struct Words {
  __m256i low;
  __m256i high;
};

Words sumOf(__m256i a, __m256i b) {
  const __m256i ones = _mm256_set1_epi8(1);
  return {_mm256_maddubs_epi16(_mm256_unpacklo_epi8(a, b), ones),
          _mm256_maddubs_epi16(_mm256_unpackhi_epi8(a, b), ones)};
}

Words operator+(Words a, Words b) {
  return {_mm256_add_epi16(a.low, b.low), _mm256_add_epi16(a.high, b.high)};
}

// A magnitude is below 2^11: shifted to 15 bits, the rounded high product is exactly
// (magnitude * gain + 2^10) >> 11.
__m256i sharpen(__m256i centre, __m256i neighbours, __m256i limit, __m256i gain) {
  const __m256i excess = _mm256_sub_epi16(_mm256_slli_epi16(centre, 3), neighbours);
  const __m256i magnitude = _mm256_abs_epi16(excess);
  const __m256i change = _mm256_mulhrs_epi16(_mm256_slli_epi16(magnitude, 4), gain);
  const __m256i gated = _mm256_and_si256(change, _mm256_cmpgt_epi16(magnitude, limit));
  return _mm256_adds_epi16(centre, _mm256_sign_epi16(gated, excess));
}

__m256i sharpenBlock(const uint8_t* above, const uint8_t* centre, const uint8_t* below,
                     ptrdiff_t step, __m256i limit, __m256i gain) {
  const Words neighbours =
      sumOf(load(above - step), load(above)) + sumOf(load(above + step), load(centre - step)) +
      sumOf(load(centre + step), load(below - step)) + sumOf(load(below), load(below + step));
  const __m256i zero = _mm256_setzero_si256();
  const __m256i bytes = load(centre);
  return _mm256_packus_epi16(
      sharpen(_mm256_unpacklo_epi8(bytes, zero), neighbours.low, limit, gain),
      sharpen(_mm256_unpackhi_epi8(bytes, zero), neighbours.high, limit, gain));
}

void sharpenRow(const uint8_t* above, const uint8_t* centre, const uint8_t* below, uint8_t* out,
                ptrdiff_t count, ptrdiff_t step, SharpenSimpleStrength strength) {
  if (count <= 0) return;
  const __m256i limit = _mm256_set1_epi16(static_cast<short>(strength.minExcess - 1));
  const __m256i gain = _mm256_set1_epi16(strength.gain);
  if (count < block) {
    uint8_t in[3][block + 8] = {}, result[block];
    for (ptrdiff_t i = -step; i < count + step; ++i) {
      in[0][i + step] = above[i];
      in[1][i + step] = centre[i];
      in[2][i + step] = below[i];
    }
    store(result, sharpenBlock(in[0] + step, in[1] + step, in[2] + step, step, limit, gain));
    for (ptrdiff_t i = 0; i < count; ++i) out[i] = result[i];
    return;
  }
  for (ptrdiff_t i = 0;; i += block) {
    // The last block overlaps the one before it.
    if (i > count - block) i = count - block;
    store(out + i, sharpenBlock(above + i, centre + i, below + i, step, limit, gain));
    if (i == count - block) return;
  }
}

}  // namespace

void addSharpenSimpleAvx2(SharpenSimpleKernels& kernels) {
  kernels.row = sharpenRow;
}

}  // namespace kvl
