#include "filters/averaging_blur_kernels.h"
#include "filters/sliding_box_avx2.h"

namespace kvl {
namespace {

// min(255, ...) is left to the saturating pack.
class FractionalRounding {
 public:
  explicit FractionalRounding(const BoxWeights& weights)
      : full_(_mm256_set1_epi32(static_cast<int>(weights.full))),
        edge_(_mm256_set1_epi32(static_cast<int>(weights.edge))),
        half_(_mm256_set1_epi32(1 << (weights.shift - 1))),
        shift_(_mm_cvtsi32_si128(weights.shift)) {}

  __m256i operator()(__m256i sum, __m256i outer) const {
    const __m256i weighted =
        _mm256_add_epi32(_mm256_mullo_epi32(sum, full_), _mm256_mullo_epi32(outer, edge_));
    return _mm256_srl_epi32(_mm256_add_epi32(weighted, half_), shift_);
  }

 private:
  __m256i full_;
  __m256i edge_;
  __m256i half_;
  __m128i shift_;
};

void blurLines(const LinePass& bundle, const BoxWeights& weights) {
  // Up to this reach no average is above 255, so that it keeps its value as the top byte of a
  // product with a reciprocal in units of 1 / 2^24.
  if (weights.edge == 0 && weights.full != 0 && weights.reach <= narrowReach) {
    const NarrowBox<false> box(weights.full << (24 - weights.shift), 0);
    slideBox<Border::repeatEnd>(bundle, weights.reach, box);
  } else {
    slideBox<Border::repeatEnd>(bundle, weights.reach, WideBox(FractionalRounding(weights)));
  }
}

}  // namespace

void addAveragingBlurAvx2(AveragingBlurKernels& kernels) {
  kernels.blurLines = blurLines;
}

}  // namespace kvl
