#include "core/wide_vector.h"
#include "filters/selective_sharpen_kernels.h"

namespace kvl {
namespace {

// 16-bit numbers in the order in which unpacking leaves them, so that packing restores it.
struct Halves {
  __m256i low, high;
};

Halves widen(__m256i bytes) {
  const __m256i zero = _mm256_setzero_si256();
  return {_mm256_unpacklo_epi8(bytes, zero), _mm256_unpackhi_epi8(bytes, zero)};
}

Halves add(Halves a, Halves b) {
  return {_mm256_add_epi16(a.low, b.low), _mm256_add_epi16(a.high, b.high)};
}

// a + b of bytes.
Halves addPairs(__m256i a, __m256i b) {
  const __m256i ones = _mm256_set1_epi8(1);
  return {_mm256_maddubs_epi16(_mm256_unpacklo_epi8(a, b), ones),
          _mm256_maddubs_epi16(_mm256_unpackhi_epi8(a, b), ones)};
}

__m256i difference(__m256i a, __m256i b) {
  return _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a));
}

// trunc(m * gain) in single precision, for results of at most 16 bits.
class Centre {
 public:
  explicit Centre(float gain) : gain_(_mm256_set1_ps(gain)) {}

  Halves product(__m256i m) const {
    const Halves wide = widen(m);
    return {productHalf(wide.low), productHalf(wide.high)};
  }

 private:
  __m256i productHalf(__m256i m) const {
    const __m256i zero = _mm256_setzero_si256();
    return _mm256_packs_epi32(productQuarter(_mm256_unpacklo_epi16(m, zero)),
                              productQuarter(_mm256_unpackhi_epi16(m, zero)));
  }
  __m256i productQuarter(__m256i m) const {
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(m), gain_));
  }

  __m256 gain_;
};

// The sum over the neighbours of the truncated product of each with the share.
template <bool shareBelow1>
class EachProduct {
 public:
  EachProduct(const SharpenGain& gain, const SharpenNeighbours& neighbours)
      : whole_(_mm256_set1_epi16(static_cast<int16_t>(gain.multiplier[neighbours.count].whole))),
        fraction_(
            _mm256_set1_epi16(static_cast<int16_t>(gain.multiplier[neighbours.count].fraction))),
        neighbours_(neighbours) {}

  Halves sum(const uint8_t* in) const {
    Halves products{_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int i = 0; i < neighbours_.count; ++i) {
      const Halves n = widen(load(in + neighbours_.offsets[i]));
      products = add(products, {product(n.low), product(n.high)});
    }
    return products;
  }

 private:
  __m256i product(__m256i n) const {
    const __m256i part = _mm256_mulhi_epu16(n, fraction_);
    return shareBelow1 ? part : _mm256_add_epi16(part, _mm256_mullo_epi16(n, whole_));
  }

  __m256i whole_;
  __m256i fraction_;
  const SharpenNeighbours& neighbours_;
};

// The truncated product of the sum of 8 neighbours and the share.
class SumProduct {
 public:
  SumProduct(const SharpenGain& gain, const SharpenNeighbours& neighbours)
      : neighbours_(neighbours) {
    const double share = gain.share[maxSharpenNeighbours];
    const auto whole = static_cast<int32_t>(share);
    // A float less 1, divided by 8, has no more than 26 bits behind the point.
    const auto fraction = static_cast<uint32_t>((share - whole) * 4294967296.0);
    whole_ = _mm256_set1_epi16(static_cast<int16_t>(whole));
    upper_ = _mm256_set1_epi16(static_cast<int16_t>(fraction >> 16));
    lower_ = _mm256_set1_epi16(static_cast<int16_t>(fraction & 0xFFFF));
  }

  Halves sum(const uint8_t* in) const {
    Halves sums{_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int i = 0; i < maxSharpenNeighbours; i += 2) {
      sums = add(
          sums, addPairs(load(in + neighbours_.offsets[i]), load(in + neighbours_.offsets[i + 1])));
    }
    return {product(sums.low), product(sums.high)};
  }

 private:
  // The upper half of the fraction's product, plus the carry of what lies below it.
  __m256i product(__m256i sum) const {
    const __m256i carriedIn = _mm256_mulhi_epu16(sum, lower_);
    const __m256i middle = _mm256_add_epi16(_mm256_mullo_epi16(sum, upper_), carriedIn);
    const __m256i noCarry = _mm256_cmpeq_epi16(_mm256_max_epu16(middle, carriedIn), middle);
    const __m256i whole =
        _mm256_add_epi16(_mm256_mullo_epi16(sum, whole_), _mm256_mulhi_epu16(sum, upper_));
    return _mm256_add_epi16(whole, _mm256_add_epi16(noCarry, _mm256_set1_epi16(1)));
  }

  __m256i whole_;
  __m256i upper_;
  __m256i lower_;
  const SharpenNeighbours& neighbours_;
};

// All ones where the contrast reaches the limit. Up to 255 a saturated sum of bytes tells.
class NarrowContrast {
 public:
  explicit NarrowContrast(int32_t limit) : limit_(_mm256_set1_epi8(static_cast<char>(limit))) {}

  __m256i reached(const uint8_t* in, __m256i m, const SharpenNeighbours& neighbours) const {
    __m256i contrast = _mm256_setzero_si256();
    for (int i = 0; i < neighbours.count; ++i) {
      contrast = _mm256_adds_epu8(contrast, difference(load(in + neighbours.offsets[i]), m));
    }
    return _mm256_cmpeq_epi8(_mm256_max_epu8(contrast, limit_), contrast);
  }

 private:
  __m256i limit_;
};

class WideContrast {
 public:
  explicit WideContrast(int32_t limit)
      : below_(_mm256_set1_epi16(static_cast<int16_t>(limit - 1))) {}

  __m256i reached(const uint8_t* in, __m256i m, const SharpenNeighbours& neighbours) const {
    Halves contrast{_mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int i = 0; i < neighbours.count; ++i) {
      contrast = add(contrast, widen(difference(load(in + neighbours.offsets[i]), m)));
    }
    return _mm256_packs_epi16(_mm256_cmpgt_epi16(contrast.low, below_),
                              _mm256_cmpgt_epi16(contrast.high, below_));
  }

 private:
  __m256i below_;
};

// Whole vectors, the last of which overlaps the one before.
template <class Contrast, class Products>
void sharpenVectors(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                    const SharpenNeighbours& neighbours, const Contrast& contrast,
                    const Centre& centre, const Products& products) {
  for (ptrdiff_t i = 0; i < count; i += vectorBytes) {
    if (i > count - vectorBytes) i = count - vectorBytes;
    const __m256i m = load(in + i);
    const __m256i reached = contrast.reached(in + i, m, neighbours);
    if (_mm256_testz_si256(reached, reached)) {
      store(out + i, m);
      continue;
    }
    const Halves pushed = centre.product(m);
    const Halves pulled = products.sum(in + i);
    const __m256i sharp = _mm256_packus_epi16(_mm256_sub_epi16(pushed.low, pulled.low),
                                              _mm256_sub_epi16(pushed.high, pulled.high));
    store(out + i, _mm256_blendv_epi8(m, sharp, reached));
  }
}

template <class Products>
void sharpenWhereReached(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                         const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  const Centre centre(gain.gain);
  const Products products(gain, neighbours);
  constexpr int32_t highestContrast = 255 * maxSharpenNeighbours;
  const int32_t limit = gain.contrastLimit < 0                 ? 0
                        : gain.contrastLimit > highestContrast ? highestContrast + 1
                                                               : gain.contrastLimit;
  if (limit <= 255) {
    sharpenVectors(in, out, count, neighbours, NarrowContrast(limit), centre, products);
  } else {
    sharpenVectors(in, out, count, neighbours, WideContrast(limit), centre, products);
  }
}

// Every product and sum fits in 16 bits.
bool fitsNarrow(const SharpenGain& gain) {
  return gain.gain <= 128.0f;
}

void simpleAvx2(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  if (count < vectorBytes || !fitsNarrow(gain) || !gain.multiplier[neighbours.count].exact) {
    simpleSharpenScalar(in, out, count, neighbours, gain);
    return;
  }
  if (gain.multiplier[neighbours.count].whole == 0) {
    sharpenWhereReached<EachProduct<true>>(in, out, count, neighbours, gain);
  } else {
    sharpenWhereReached<EachProduct<false>>(in, out, count, neighbours, gain);
  }
}

void modifiedSimpleAvx2(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                        const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  if (count < vectorBytes || !fitsNarrow(gain) || neighbours.count != maxSharpenNeighbours) {
    modifiedSimpleSharpenScalar(in, out, count, neighbours, gain);
    return;
  }
  sharpenWhereReached<SumProduct>(in, out, count, neighbours, gain);
}

}  // namespace

void addSimpleSharpenAvx2(SharpenKernels& kernels) {
  kernels.simple = simpleAvx2;
  kernels.modifiedSimple = modifiedSimpleAvx2;
}

}  // namespace kvl
