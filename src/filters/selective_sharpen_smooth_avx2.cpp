#include "core/wide_vector.h"
#include "filters/selective_sharpen_kernels.h"

namespace kvl {
namespace {

// The lower 8 bytes of both lanes as 16-bit numbers, or the upper ones; and the same of 16-bit
// numbers to 32. Packing restores the order.
template <bool upper>
__m256i widen8(__m256i bytes) {
  const __m256i zero = _mm256_setzero_si256();
  return upper ? _mm256_unpackhi_epi8(bytes, zero) : _mm256_unpacklo_epi8(bytes, zero);
}

template <bool upper>
__m256i widen16(__m256i numbers) {
  const __m256i zero = _mm256_setzero_si256();
  return upper ? _mm256_unpackhi_epi16(numbers, zero) : _mm256_unpacklo_epi16(numbers, zero);
}

__m256d lowerDoubles(__m256 a) {
  return _mm256_cvtps_pd(_mm256_castps256_ps128(a));
}

__m256d upperDoubles(__m256 a) {
  return _mm256_cvtps_pd(_mm256_extractf128_ps(a, 1));
}

// trunc(a * b), the product in double precision.
__m256i truncatedProduct(__m256 a, __m256 b) {
  const __m128i lower = _mm256_cvttpd_epi32(_mm256_mul_pd(lowerDoubles(a), lowerDoubles(b)));
  const __m128i upper = _mm256_cvttpd_epi32(_mm256_mul_pd(upperDoubles(a), upperDoubles(b)));
  return _mm256_set_m128i(upper, lower);
}

// The lowest and the highest result that single precision leaves possible. They differ where a
// neighbour's product lies close to a whole number.
struct Bounds {
  __m256i lowest, highest;
};

class Smooth {
 public:
  Smooth(const SharpenGain& gain, const SharpenNeighbours& neighbours)
      : threshold_(
            _mm256_set1_epi8(static_cast<char>(gain.threshold < 255 ? gain.threshold : 255))),
        limit_(_mm256_set1_ps(static_cast<float>(gain.contrastLimit))),
        gain_(_mm256_set1_ps(gain.gain)),
        neighbours_(neighbours) {}

  // 32 results in `out`, without those of the bytes whose bits are returned.
  uint32_t sharpen(const uint8_t* in, uint8_t* out) {
    centre_ = load(in);
    __m256i anyExcess = _mm256_setzero_si256();
    for (int i = 0; i < neighbours_.count; ++i) {
      const __m256i n = load(in + neighbours_.offsets[i]);
      const __m256i difference =
          _mm256_or_si256(_mm256_subs_epu8(n, centre_), _mm256_subs_epu8(centre_, n));
      neighbour_[i] = n;
      excess_[i] = _mm256_subs_epu8(difference, threshold_);
      anyExcess = _mm256_or_si256(anyExcess, excess_[i]);
    }
    if (_mm256_testz_si256(anyExcess, anyExcess)) {
      store(out, centre_);
      return 0;
    }
    const Bounds low = sharpenHalf<false>();
    const Bounds high = sharpenHalf<true>();
    const __m256i lowest = _mm256_packus_epi16(low.lowest, high.lowest);
    const __m256i highest = _mm256_packus_epi16(low.highest, high.highest);
    store(out, lowest);
    return ~static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(lowest, highest)));
  }

 private:
  template <bool upperBytes>
  Bounds sharpenHalf() {
    __m256i excessSum = _mm256_setzero_si256();
    for (int i = 0; i < neighbours_.count; ++i) {
      const __m256i excess = widen8<upperBytes>(excess_[i]);
      excessSum = _mm256_add_epi16(excessSum, excess);
      product_[i] = _mm256_mullo_epi16(widen8<upperBytes>(neighbour_[i]), excess);
    }
    const __m256i m = widen8<upperBytes>(centre_);
    const Bounds low = sharpenQuarter<false>(widen16<false>(m), widen16<false>(excessSum));
    const Bounds high = sharpenQuarter<true>(widen16<true>(m), widen16<true>(excessSum));
    return {_mm256_packs_epi32(low.lowest, high.lowest),
            _mm256_packs_epi32(low.highest, high.highest)};
  }

  template <bool upperNumbers>
  Bounds sharpenQuarter(__m256i centre, __m256i excessSum) const {
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 sum = _mm256_cvtepi32_ps(excessSum);
    const __m256 ratio = _mm256_min_ps(one, _mm256_div_ps(sum, limit_));
    const __m256 f = _mm256_max_ps(one, _mm256_mul_ps(gain_, ratio));
    if (_mm256_movemask_ps(_mm256_cmp_ps(f, one, _CMP_GT_OQ)) == 0) return {centre, centre};

    // The pull of n * e, three roundings away from the exact one, moved well past their error.
    constexpr float margin = 1.0f / (1 << 20);
    const __m256 pull = _mm256_div_ps(_mm256_sub_ps(f, one), _mm256_max_ps(one, sum));
    const __m256 weakest = _mm256_mul_ps(pull, _mm256_set1_ps(1.0f - margin));
    const __m256 strongest = _mm256_mul_ps(pull, _mm256_set1_ps(1.0f + margin));
    const __m256i pushed = truncatedProduct(_mm256_cvtepi32_ps(centre), f);
    Bounds bounds{pushed, pushed};
    for (int i = 0; i < neighbours_.count; ++i) {
      const __m256 product = _mm256_cvtepi32_ps(widen16<upperNumbers>(product_[i]));
      bounds.lowest =
          _mm256_sub_epi32(bounds.lowest, _mm256_cvttps_epi32(_mm256_mul_ps(product, strongest)));
      bounds.highest =
          _mm256_sub_epi32(bounds.highest, _mm256_cvttps_epi32(_mm256_mul_ps(product, weakest)));
    }
    return bounds;
  }

  __m256i threshold_;
  __m256 limit_;
  __m256 gain_;
  const SharpenNeighbours& neighbours_;
  __m256i centre_;
  __m256i neighbour_[maxSharpenNeighbours];
  __m256i excess_[maxSharpenNeighbours];
  // n * e of 16 bytes.
  __m256i product_[maxSharpenNeighbours];
};

void smoothAvx2(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  constexpr float largestGain = 1 << 20;
  if (count < vectorBytes || !(gain.gain <= largestGain) || gain.contrastLimit == 0) {
    smoothSharpenScalar(in, out, count, neighbours, gain);
    return;
  }
  Smooth smooth(gain, neighbours);
  for (ptrdiff_t i = 0; i < count; i += vectorBytes) {
    if (i > count - vectorBytes) i = count - vectorBytes;
    for (uint32_t open = smooth.sharpen(in + i, out + i); open != 0; open &= open - 1) {
      const ptrdiff_t at = i + __builtin_ctz(open);
      smoothSharpenScalar(in + at, out + at, 1, neighbours, gain);
    }
  }
}

}  // namespace

void addSmoothSharpenAvx2(SharpenKernels& kernels) {
  kernels.smooth = smoothAvx2;
}

}  // namespace kvl
