#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "filters/gaussian_blur_kernels.h"

namespace kvl {
namespace {

constexpr ptrdiff_t vectorBytes = 32;
constexpr ptrdiff_t bytesPerPixel = 3;

// Where the taps of a line of outputs lie: tap(d)[i] is the sample d pixels away from output i.
struct RowTaps {
  const uint8_t* in;

  const uint8_t* tap(ptrdiff_t d) const { return in + bytesPerPixel * d; }
};

template <int radius>
struct ColumnTaps {
  // A copy, because the compiler has to expect that writing `out` changes the caller's array.
  explicit ColumnTaps(const uint8_t* const* from) {
    for (int k = 0; k <= 2 * radius; ++k) rows[k] = from[k];
  }

  const uint8_t* tap(ptrdiff_t d) const { return rows[radius + d]; }

  const uint8_t* rows[2 * radius + 1];
};

// 32 values in 16-bit lanes, ordered as the byte unpacks leave them: packing `low` with `high`
// restores the order of the bytes.
struct Words {
  __m256i low;
  __m256i high;
};

// 32 values in 32-bit lanes, ordered as the word unpacks of Words::low, then Words::high leave
// them.
struct Sums {
  __m256i lowLow;
  __m256i lowHigh;
  __m256i highLow;
  __m256i highHigh;
};

inline __m256i load(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

inline void store(uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

inline Words widen(__m256i a) {
  const __m256i zero = _mm256_setzero_si256();
  return {_mm256_unpacklo_epi8(a, zero), _mm256_unpackhi_epi8(a, zero)};
}

inline Words addBytes(__m256i a, __m256i b) {
  const __m256i ones = _mm256_set1_epi8(1);
  return {_mm256_maddubs_epi16(_mm256_unpacklo_epi8(a, b), ones),
          _mm256_maddubs_epi16(_mm256_unpackhi_epi8(a, b), ones)};
}

// The two samples d pixels away share a weight, so they are added before they are weighted.
template <class Taps>
inline Words sumAtDistance(const Taps& taps, ptrdiff_t d, ptrdiff_t i) {
  return addBytes(load(taps.tap(-d) + i), load(taps.tap(d) + i));
}

inline Sums weightedSum(const Words& a, const Words& b, __m256i weights) {
  return {_mm256_madd_epi16(_mm256_unpacklo_epi16(a.low, b.low), weights),
          _mm256_madd_epi16(_mm256_unpackhi_epi16(a.low, b.low), weights),
          _mm256_madd_epi16(_mm256_unpacklo_epi16(a.high, b.high), weights),
          _mm256_madd_epi16(_mm256_unpackhi_epi16(a.high, b.high), weights)};
}

inline Sums operator+(const Sums& a, const Sums& b) {
  return {_mm256_add_epi32(a.lowLow, b.lowLow), _mm256_add_epi32(a.lowHigh, b.lowHigh),
          _mm256_add_epi32(a.highLow, b.highLow), _mm256_add_epi32(a.highHigh, b.highHigh)};
}

inline __m256i toBytes(const Sums& s) {
  const __m256i low =
      _mm256_packs_epi32(_mm256_srai_epi32(s.lowLow, 16), _mm256_srai_epi32(s.lowHigh, 16));
  const __m256i high =
      _mm256_packs_epi32(_mm256_srai_epi32(s.highLow, 16), _mm256_srai_epi32(s.highHigh, 16));
  return _mm256_packus_epi16(low, high);
}

template <int radius>
class Kernel {
 public:
  explicit Kernel(const int32_t* weights) {
    for (int d = 0; d <= radius; d += 2) {
      const int32_t second = d < radius ? weights[d + 1] : 0;
      weightPairs_[d / 2] = _mm256_set1_epi32(weights[d] | second << 16);
    }
  }

  template <class Taps>
  __m256i operator()(const Taps& taps, ptrdiff_t i) const {
    Sums sums =
        weightedSum(widen(load(taps.tap(0) + i)), sumAtDistance(taps, 1, i), weightPairs_[0]);
    // Unrolled, the loop needs more registers than there are.
#pragma GCC unroll 1
    for (ptrdiff_t d = 2; d < radius; d += 2) {
      sums = sums + weightedSum(sumAtDistance(taps, d, i), sumAtDistance(taps, d + 1, i),
                                weightPairs_[d / 2]);
    }
    if constexpr (radius % 2 == 0) {
      const __m256i zero = _mm256_setzero_si256();
      sums = sums +
             weightedSum(sumAtDistance(taps, radius, i), {zero, zero}, weightPairs_[radius / 2]);
    }
    return toBytes(sums);
  }

 private:
  __m256i weightPairs_[radius / 2 + 1];
};

// The centre weight of radius 1 does not fit in 16 signed bits. As the kernel sums to 65536,
// w0*c + w1*(a+b) = 65536*c + w1*(a+b-2c), and the high half of one 16-bit product is the change.
template <>
class Kernel<1> {
 public:
  explicit Kernel(const int32_t* weights)
      : side_(_mm256_set1_epi16(static_cast<int16_t>(weights[1]))) {}

  template <class Taps>
  __m256i operator()(const Taps& taps, ptrdiff_t i) const {
    const __m256i centre = load(taps.tap(0) + i);
    const Words twice = addBytes(centre, centre);
    const Words sides = sumAtDistance(taps, 1, i);
    const __m256i low = _mm256_mulhi_epi16(_mm256_sub_epi16(sides.low, twice.low), side_);
    const __m256i high = _mm256_mulhi_epi16(_mm256_sub_epi16(sides.high, twice.high), side_);
    return _mm256_add_epi8(centre, _mm256_packs_epi16(low, high));
  }

 private:
  __m256i side_;
};

template <class Taps>
void filterShort(const Taps& taps, uint8_t* out, ptrdiff_t count, const int32_t* weights,
                 int radius) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    int32_t sum = weights[0] * taps.tap(0)[i];
    for (int d = 1; d <= radius; ++d) sum += weights[d] * (taps.tap(-d)[i] + taps.tap(d)[i]);
    sum >>= 16;
    out[i] = static_cast<uint8_t>(sum < 255 ? sum : 255);
  }
}

template <int radius, class Taps>
inline void filter(const Taps& taps, uint8_t* out, ptrdiff_t count, const int32_t* weights) {
  if (count < vectorBytes) return filterShort(taps, out, count, weights, radius);
  const Kernel<radius> kernel(weights);
  const ptrdiff_t last = count - vectorBytes;
  for (ptrdiff_t i = 0; i < last; i += vectorBytes) store(out + i, kernel(taps, i));
  // The last vector ends with the line and may repeat outputs of the one before.
  store(out + last, kernel(taps, last));
}

template <int radius>
void filterRow(const uint8_t* in, uint8_t* out, ptrdiff_t count, const int32_t* weights) {
  filter<radius>(RowTaps{in}, out, count, weights);
}

template <int radius>
void filterColumns(const uint8_t* const* rows, uint8_t* out, ptrdiff_t count,
                   const int32_t* weights) {
  filter<radius>(ColumnTaps<radius>(rows), out, count, weights);
}

void horizontal(const uint8_t* in, uint8_t* out, ptrdiff_t count, const int32_t* weights,
                int radius) {
  static constexpr void (*byRadius[])(const uint8_t*, uint8_t*, ptrdiff_t, const int32_t*) = {
      filterRow<1>, filterRow<2>, filterRow<3>, filterRow<4>,
      filterRow<5>, filterRow<6>, filterRow<7>, filterRow<8>};
  byRadius[radius - 1](in, out, count, weights);
}

void vertical(const uint8_t* const* rows, uint8_t* out, ptrdiff_t count, const int32_t* weights,
              int radius) {
  static constexpr void (*byRadius[])(const uint8_t* const*, uint8_t*, ptrdiff_t,
                                      const int32_t*) = {
      filterColumns<1>, filterColumns<2>, filterColumns<3>, filterColumns<4>,
      filterColumns<5>, filterColumns<6>, filterColumns<7>, filterColumns<8>};
  byRadius[radius - 1](rows, out, count, weights);
}

}  // namespace

void addGaussianAvx2(GaussianKernels& kernels) {
  kernels.horizontal = horizontal;
  kernels.vertical = vertical;
}

}  // namespace kvl
