#include "core/wide_vector.h"
#include "filters/selective_mean.h"

// With d = n - m and g the weight of a neighbour, the mean is (D * m + sum of g * d) * K >> 16, and
// with e = 65536 - D * K that is m + ((K * sum of g * d - e * m) >> 16).
namespace kvl {
namespace {

// Differences of neighbours that weigh anything fit in a signed byte.
constexpr int32_t maxNarrowThreshold = 127;

// The sums of 32 outputs in 32 bits: [0] and [1] hold what unpacking the lower 8 bytes of both
// lanes gives, [2] and [3] the upper ones.
struct Sums {
  __m256i of[4];
};

struct Halves {
  __m256i low, high;
};

Halves widen(__m256i bytes) {
  const __m256i zero = _mm256_setzero_si256();
  return {_mm256_unpacklo_epi8(bytes, zero), _mm256_unpackhi_epi8(bytes, zero)};
}

class Finish {
 public:
  explicit Finish(const SelectiveWeights& w)
      : reciprocal_(_mm256_set1_epi32(w.reciprocal)),
        lost_(_mm256_set1_epi32(w.normaliser * w.reciprocal - 65536)),
        // A reciprocal of 32768 belongs to threshold 1, whose sums are all 0.
        both_(_mm256_set1_epi32((w.normaliser * w.reciprocal - 65536) * 65536 +
                                (w.reciprocal & 0x7FFF))) {}

  __m256i narrow(__m256i lowSums, __m256i highSums, __m256i centre) const {
    const Halves m = widen(centre);
    return _mm256_packus_epi16(narrowHalf(lowSums, m.low), narrowHalf(highSums, m.high));
  }

  __m256i wide(const Sums& sums, __m256i centre) const {
    const Halves m = widen(centre);
    return _mm256_packus_epi16(wideHalf(sums.of[0], sums.of[1], m.low),
                               wideHalf(sums.of[2], sums.of[3], m.high));
  }

 private:
  __m256i narrowHalf(__m256i sums, __m256i m) const {
    const __m256i low = _mm256_madd_epi16(_mm256_unpacklo_epi16(sums, m), both_);
    const __m256i high = _mm256_madd_epi16(_mm256_unpackhi_epi16(sums, m), both_);
    return _mm256_add_epi16(
        m, _mm256_packs_epi32(_mm256_srai_epi32(low, 16), _mm256_srai_epi32(high, 16)));
  }

  __m256i wideHalf(__m256i lowSums, __m256i highSums, __m256i m) const {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i low = wideQuarter(lowSums, _mm256_unpacklo_epi16(m, zero));
    const __m256i high = wideQuarter(highSums, _mm256_unpackhi_epi16(m, zero));
    return _mm256_add_epi16(m, _mm256_packs_epi32(low, high));
  }

  __m256i wideQuarter(__m256i sums, __m256i m) const {
    const __m256i change =
        _mm256_add_epi32(_mm256_mullo_epi32(sums, reciprocal_), _mm256_madd_epi16(m, lost_));
    return _mm256_srai_epi32(change, 16);
  }

  __m256i reciprocal_;
  __m256i lost_;
  __m256i both_;
};

void addWidened(Sums& sums, int at, __m256i narrow) {
  const __m256i low = _mm256_srai_epi32(_mm256_unpacklo_epi16(narrow, narrow), 16);
  const __m256i high = _mm256_srai_epi32(_mm256_unpackhi_epi16(narrow, narrow), 16);
  sums.of[at] = _mm256_add_epi32(sums.of[at], low);
  sums.of[at + 1] = _mm256_add_epi32(sums.of[at + 1], high);
}

// How a tap is read: everywhere, or replaced by the centre where its mask is 0, which takes its
// part of the mean away.
struct Everywhere {
  __m256i tap(const uint8_t* at, __m256i) const { return load(at); }
};

struct Inside {
  __m256i tap(const uint8_t* at, __m256i centre) const {
    return _mm256_blendv_epi8(centre, load(at), load(at + mask));
  }
  ptrdiff_t mask;
};

// g * d of two neighbours each of 16 outputs, interleaved as bytes.
__m256i narrowProducts(__m256i n, __m256i m, __m256i threshold) {
  const __m256i above = _mm256_subs_epu8(n, m);
  const __m256i below = _mm256_subs_epu8(m, n);
  const __m256i weight = _mm256_subs_epu8(_mm256_subs_epu8(threshold, above), below);
  return _mm256_maddubs_epi16(weight, _mm256_sub_epi8(above, below));
}

// The same of 8 outputs, interleaved as 16-bit numbers.
__m256i wideProducts(__m256i n, __m256i m, __m256i threshold) {
  const __m256i difference = _mm256_sub_epi16(n, m);
  const __m256i weight = _mm256_subs_epu16(threshold, _mm256_abs_epi16(difference));
  return _mm256_madd_epi16(weight, difference);
}

// Sums in 16 bits for as many taps as fit, then in 32.
template <class Reach>
class Narrow {
 public:
  Narrow(const SelectiveWeights& weights, int64_t taps, Reach reach)
      : reach_(reach),
        threshold_(_mm256_set1_epi8(static_cast<char>(weights.threshold))),
        finish_(weights) {
    const int32_t largest = 2 * (weights.threshold * weights.threshold / 4);
    tapsThatFit_ = largest == 0 ? INT32_MAX : INT16_MAX / largest;
    allFit_ = taps <= tapsThatFit_;
  }

  __m256i mean(const uint8_t* centre, const TapRun* runs, int runCount, ptrdiff_t i) const {
    const __m256i m = load(centre + i);
    const __m256i lowCentre = _mm256_unpacklo_epi8(m, m);
    const __m256i highCentre = _mm256_unpackhi_epi8(m, m);
    Sums sums{};
    __m256i lowSums = _mm256_setzero_si256();
    __m256i highSums = _mm256_setzero_si256();
    int32_t room = tapsThatFit_;
    for (const TapRun* run = runs; run != runs + runCount; ++run) {
      const uint8_t* first = run->first + i;
      const uint8_t* second = run->second + i;
      for (int32_t left = run->taps; left > 0;) {
        if (room == 0) {
          addWidened(sums, 0, lowSums);
          addWidened(sums, 2, highSums);
          lowSums = highSums = _mm256_setzero_si256();
          room = tapsThatFit_;
        }
        const int32_t taps = left < room ? left : room;
        for (int32_t tap = 0; tap < taps; ++tap, first += 3, second += 3) {
          const __m256i a = reach_.tap(first, m);
          const __m256i b = reach_.tap(second, m);
          lowSums = _mm256_add_epi16(
              lowSums, narrowProducts(_mm256_unpacklo_epi8(a, b), lowCentre, threshold_));
          highSums = _mm256_add_epi16(
              highSums, narrowProducts(_mm256_unpackhi_epi8(a, b), highCentre, threshold_));
        }
        left -= taps;
        room -= taps;
      }
    }
    if (allFit_) return finish_.narrow(lowSums, highSums, m);
    addWidened(sums, 0, lowSums);
    addWidened(sums, 2, highSums);
    return finish_.wide(sums, m);
  }

 private:
  Reach reach_;
  __m256i threshold_;
  Finish finish_;
  int32_t tapsThatFit_;
  bool allFit_;
};

template <class Reach>
class Wide {
 public:
  Wide(const SelectiveWeights& weights, Reach reach)
      : reach_(reach),
        threshold_(_mm256_set1_epi16(static_cast<int16_t>(weights.threshold))),
        finish_(weights) {}

  __m256i mean(const uint8_t* centre, const TapRun* runs, int runCount, ptrdiff_t i) const {
    const __m256i m = load(centre + i);
    const Halves lowCentre = widen(_mm256_unpacklo_epi8(m, m));
    const Halves highCentre = widen(_mm256_unpackhi_epi8(m, m));
    Sums sums{};
    for (const TapRun* run = runs; run != runs + runCount; ++run) {
      const uint8_t* first = run->first + i;
      const uint8_t* second = run->second + i;
      for (int32_t tap = 0; tap < run->taps; ++tap, first += 3, second += 3) {
        const __m256i a = reach_.tap(first, m);
        const __m256i b = reach_.tap(second, m);
        const Halves low = widen(_mm256_unpacklo_epi8(a, b));
        const Halves high = widen(_mm256_unpackhi_epi8(a, b));
        sums.of[0] = _mm256_add_epi32(sums.of[0], wideProducts(low.low, lowCentre.low, threshold_));
        sums.of[1] =
            _mm256_add_epi32(sums.of[1], wideProducts(low.high, lowCentre.high, threshold_));
        sums.of[2] =
            _mm256_add_epi32(sums.of[2], wideProducts(high.low, highCentre.low, threshold_));
        sums.of[3] =
            _mm256_add_epi32(sums.of[3], wideProducts(high.high, highCentre.high, threshold_));
      }
    }
    return finish_.wide(sums, m);
  }

 private:
  Reach reach_;
  __m256i threshold_;
  Finish finish_;
};

// Whole vectors, the last of which overlaps the one before.
template <class Body>
void meanOfVectors(const Body& body, const uint8_t* centre, const TapRun* runs, int runCount,
                   uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += vectorBytes) {
    if (i > count - vectorBytes) i = count - vectorBytes;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), body.mean(centre, runs, runCount, i));
  }
}

template <class Reach>
void meanWith(Reach reach, const uint8_t* centre, const TapRun* runs, int runCount, uint8_t* out,
              ptrdiff_t count, const SelectiveWeights& weights) {
  if (weights.threshold <= maxNarrowThreshold) {
    int64_t taps = 0;
    for (int run = 0; run < runCount; ++run) taps += runs[run].taps;
    meanOfVectors(Narrow(weights, taps, reach), centre, runs, runCount, out, count);
  } else {
    meanOfVectors(Wide(weights, reach), centre, runs, runCount, out, count);
  }
}

void meanAvx2(const uint8_t* centre, const TapRun* runs, int runCount, uint8_t* out,
              ptrdiff_t count, const SelectiveWeights& weights) {
  if (count < vectorBytes) {
    selectiveMeanScalar(centre, runs, runCount, out, count, weights);
  } else {
    meanWith(Everywhere{}, centre, runs, runCount, out, count, weights);
  }
}

void meanInsideAvx2(const uint8_t* centre, const TapRun* runs, int runCount, ptrdiff_t inside,
                    uint8_t* out, ptrdiff_t count, const SelectiveWeights& weights) {
  meanWith(Inside{inside}, centre, runs, runCount, out, count, weights);
}

}  // namespace

void addSelectiveMeanAvx2(SelectiveMeanKernels& kernels) {
  kernels = {meanAvx2, meanInsideAvx2};
}

}  // namespace kvl
