#include "filters/classic_blur_kernels.h"
#include "filters/sliding_box_avx2.h"

namespace kvl {
namespace {

class PlainRounding {
 public:
  explicit PlainRounding(const PlainBoxWeights& weights)
      : reciprocal_(_mm256_set1_epi32(static_cast<int>(weights.reciprocal))),
        edge_(_mm256_set1_epi32(weights.edge)) {}

  __m256i operator()(__m256i sum, __m256i outer) const {
    const __m256i edges = _mm256_srli_epi32(
        _mm256_add_epi32(_mm256_mullo_epi32(outer, edge_), _mm256_set1_epi32(1 << 14)), 15);
    const __m256i product = _mm256_mullo_epi32(_mm256_add_epi32(sum, edges), reciprocal_);
    return _mm256_srli_epi32(_mm256_add_epi32(product, _mm256_set1_epi32(1 << 23)), 24);
  }

 private:
  __m256i reciprocal_;
  __m256i edge_;
};

void plainBox(const LinePass& bundle, const PlainBoxWeights& weights) {
  if (weights.reach > narrowReach) {
    slideBox<Border::nothing>(bundle, weights.reach, WideBox(PlainRounding(weights)));
  } else if (weights.edge > 0) {
    const NarrowBox<true> box(weights.reciprocal, weights.edge);
    slideBox<Border::nothing>(bundle, weights.reach, box);
  } else {
    slideBox<Border::nothing>(bundle, weights.reach, NarrowBox<false>(weights.reciprocal, 0));
  }
}

// The selective kernels take centre weight * m + sum of g * v as
// centreWeight * m + sum of g * (v - m): a tap beyond the line's ends then counts nothing when the
// centre stands in for it.

// A centre row and its neighbours up to `extent` away.
class NearRows {
 public:
  explicit NearRows(const LinePass& bundle)
      : last_(bundle.length - 1), rows_(bundle, ring_, ringRows) {}

  const uint8_t* centre(int64_t i, int64_t extent) {
    rows_.makeUpTo(i + extent < last_ ? i + extent : last_);
    return rows_[i];
  }
  const uint8_t* before(int64_t i, int64_t distance) const {
    return rows_[i >= distance ? i - distance : i];
  }
  const uint8_t* after(int64_t i, int64_t distance) const {
    return rows_[i + distance <= last_ ? i + distance : i];
  }

 private:
  int64_t last_;
  LineRows rows_;
  alignas(32) uint8_t ring_[ringRows * rowPitch];
};

static_assert(2 * nearExtent + 2 * turnedPixels <= ringRows);

// Results of the 32-bit sums of four times eight samples, in the order of unpacked bytes.
class SelectiveRounding {
 public:
  explicit SelectiveRounding(const SelectiveLineWeights& weights)
      : reciprocal_(_mm256_set1_epi32(weights.reciprocal)) {}

  __m256i operator()(__m256i a, __m256i b, __m256i c, __m256i d) const {
    return _mm256_packus_epi16(_mm256_packus_epi32(topByte(a), topByte(b)),
                               _mm256_packus_epi32(topByte(c), topByte(d)));
  }

 private:
  __m256i topByte(__m256i sum) const {
    const __m256i product = _mm256_mullo_epi32(sum, reciprocal_);
    return _mm256_srli_epi32(_mm256_add_epi32(product, _mm256_set1_epi32(1 << 23)), 24);
  }

  __m256i reciprocal_;
};

// What the byte-wide kernel can hold: differences within the threshold in 7 bits and a sign, and
// the sum of the extent's pairs, each at most threshold^2 / 2, in 15 bits and a sign.
bool fitsBytes(const SelectiveLineWeights& weights) {
  const int64_t threshold = weights.threshold;
  return threshold <= 128 && weights.extent * threshold * threshold <= 65534;
}

void selectiveBytes(const LinePass& bundle, const SelectiveLineWeights& weights) {
  NearRows rows(bundle);
  OutputRows out(bundle);
  const SelectiveRounding rounded(weights);
  const __m256i threshold = _mm256_set1_epi8(static_cast<char>(weights.threshold));
  // Pairs of a centre and its sum, times centreWeight and 1.
  const __m256i join = _mm256_set1_epi32(1 << 16 | weights.centreWeight);
  const __m256i zero = _mm256_setzero_si256();
  for (int64_t i = 0; i < bundle.length; ++i) {
    const uint8_t* centre = rows.centre(i, weights.extent);
    uint8_t* results = out.start().first;
    __m256i sums[6] = {};
    for (int64_t d = 1; d <= weights.extent; ++d) {
      const uint8_t* before = rows.before(i, d);
      const uint8_t* after = rows.after(i, d);
      for (int v = 0; v < 3; ++v) {
        const __m256i m = load(centre + 32 * v);
        const __m256i a = load(before + 32 * v), b = load(after + 32 * v);
        const __m256i weightA = _mm256_subs_epu8(
            _mm256_subs_epu8(threshold, _mm256_subs_epu8(a, m)), _mm256_subs_epu8(m, a));
        const __m256i weightB = _mm256_subs_epu8(
            _mm256_subs_epu8(threshold, _mm256_subs_epu8(b, m)), _mm256_subs_epu8(m, b));
        const __m256i stepA = _mm256_sub_epi8(a, m), stepB = _mm256_sub_epi8(b, m);
        sums[2 * v] = _mm256_add_epi16(sums[2 * v],
                                       _mm256_maddubs_epi16(_mm256_unpacklo_epi8(weightA, weightB),
                                                            _mm256_unpacklo_epi8(stepA, stepB)));
        sums[2 * v + 1] = _mm256_add_epi16(
            sums[2 * v + 1], _mm256_maddubs_epi16(_mm256_unpackhi_epi8(weightA, weightB),
                                                  _mm256_unpackhi_epi8(stepA, stepB)));
      }
    }
    for (int v = 0; v < 3; ++v) {
      const __m256i m = load(centre + 32 * v);
      const __m256i low = _mm256_unpacklo_epi8(m, zero), high = _mm256_unpackhi_epi8(m, zero);
      const __m256i result =
          rounded(_mm256_madd_epi16(_mm256_unpacklo_epi16(low, sums[2 * v]), join),
                  _mm256_madd_epi16(_mm256_unpackhi_epi16(low, sums[2 * v]), join),
                  _mm256_madd_epi16(_mm256_unpacklo_epi16(high, sums[2 * v + 1]), join),
                  _mm256_madd_epi16(_mm256_unpackhi_epi16(high, sums[2 * v + 1]), join));
      out.fetchLater(0, v);
      store(results + 32 * v, result);
    }
    out.finish(1);
  }
}

void selectiveWords(const LinePass& bundle, const SelectiveLineWeights& weights) {
  NearRows rows(bundle);
  OutputRows out(bundle);
  const SelectiveRounding rounded(weights);
  const __m256i threshold = _mm256_set1_epi16(static_cast<short>(weights.threshold));
  const __m256i centreWeight = _mm256_set1_epi32(weights.centreWeight);
  const __m256i zero = _mm256_setzero_si256();
  for (int64_t i = 0; i < bundle.length; ++i) {
    const uint8_t* centre = rows.centre(i, weights.extent);
    uint8_t* results = out.start().first;
    for (int v = 0; v < 3; ++v) {
      const __m256i m[2] = {bytesLow(centre + 32 * v), bytesHigh(centre + 32 * v)};
      __m256i sums[4];
      for (int half = 0; half < 2; ++half) {
        sums[2 * half] = _mm256_mullo_epi32(_mm256_unpacklo_epi16(m[half], zero), centreWeight);
        sums[2 * half + 1] = _mm256_mullo_epi32(_mm256_unpackhi_epi16(m[half], zero), centreWeight);
      }
      for (int64_t d = 1; d <= weights.extent; ++d) {
        const uint8_t* before = rows.before(i, d) + 32 * v;
        const uint8_t* after = rows.after(i, d) + 32 * v;
        const __m256i a[2] = {bytesLow(before), bytesHigh(before)};
        const __m256i b[2] = {bytesLow(after), bytesHigh(after)};
        for (int half = 0; half < 2; ++half) {
          const __m256i stepA = _mm256_sub_epi16(a[half], m[half]);
          const __m256i stepB = _mm256_sub_epi16(b[half], m[half]);
          const __m256i weightA = _mm256_subs_epu16(threshold, _mm256_abs_epi16(stepA));
          const __m256i weightB = _mm256_subs_epu16(threshold, _mm256_abs_epi16(stepB));
          sums[2 * half] = _mm256_add_epi32(
              sums[2 * half], _mm256_madd_epi16(_mm256_unpacklo_epi16(weightA, weightB),
                                                _mm256_unpacklo_epi16(stepA, stepB)));
          sums[2 * half + 1] = _mm256_add_epi32(
              sums[2 * half + 1], _mm256_madd_epi16(_mm256_unpackhi_epi16(weightA, weightB),
                                                    _mm256_unpackhi_epi16(stepA, stepB)));
        }
      }
      out.fetchLater(0, v);
      store(results + 32 * v, rounded(sums[0], sums[1], sums[2], sums[3]));
    }
    out.finish(1);
  }
}

void selectiveNear(const LinePass& bundle, const SelectiveLineWeights& weights) {
  if (fitsBytes(weights)) {
    selectiveBytes(bundle, weights);
  } else {
    selectiveWords(bundle, weights);
  }
}

}  // namespace

void addClassicBlurAvx2(ClassicBlurKernels& kernels) {
  kernels.selectiveNear = selectiveNear;
  kernels.plainBox = plainBox;
}

}  // namespace kvl
