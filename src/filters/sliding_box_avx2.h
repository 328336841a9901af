// Running sums over the rows of a bundle of lines. For AVX2 sources alone, like line_rows_avx2.h.
#pragma once

#include "filters/line_rows_avx2.h"

namespace kvl {
namespace {

// What a tap beyond a line's ends adds to a sum.
enum class Border { repeatEnd, nothing };

constexpr int64_t ringRows = 512;
constexpr int64_t smallRingRows = 64;
// A box up to this reach finds all its rows in one ring.
constexpr int64_t oneRingReach = ringRows / 2 - 2 * turnedPixels;

// The rows that enter a box and those that leave it. A long box makes its rows twice.
template <Border border>
class BoxRows {
 public:
  BoxRows(const LinePass& bundle, int64_t reach)
      : last_(bundle.length - 1),
        reach_(reach),
        ahead_(bundle, aheadRing_, ringRows),
        behind_(bundle, behindRing_, smallRingRows),
        leaving_(reach <= oneRingReach ? &ahead_ : &behind_) {}

  // For calls with i in ascending order, after takeFirst().
  const uint8_t* entering(int64_t i) {
    const int64_t pixel = i + reach_ + 1;
    if (pixel <= last_) {
      ahead_.makeUpTo(pixel);
      return ahead_[pixel];
    }
    return border == Border::repeatEnd ? ahead_[last_] : zeros_;
  }
  const uint8_t* leaving(int64_t i) { return behind(i - reach_); }
  const uint8_t* outerLeft(int64_t i) { return behind(i - reach_ - 1); }

  // Calls add(row, times) with all that the box at pixel 0 holds.
  template <class Add>
  void takeFirst(Add add) {
    const int64_t inside = reach_ < last_ ? reach_ : last_;
    for (int64_t pixel = 0; pixel <= inside; ++pixel) {
      ahead_.makeUpTo(pixel);
      const bool repeated = pixel == 0 && border == Border::repeatEnd;
      add(ahead_[pixel], static_cast<int>(repeated ? reach_ + 1 : 1));
    }
    if (border == Border::repeatEnd) add(ahead_[last_], static_cast<int>(reach_ - inside));
  }

 private:
  const uint8_t* behind(int64_t pixel) {
    if (pixel < 0 && border == Border::nothing) return zeros_;
    if (pixel < 0) pixel = 0;
    leaving_->makeUpTo(pixel);
    return (*leaving_)[pixel];
  }

  int64_t last_;
  int64_t reach_;
  LineRows ahead_;
  LineRows behind_;
  LineRows* leaving_;
  alignas(32) uint8_t zeros_[bundleBytes] = {};
  alignas(32) uint8_t aheadRing_[ringRows * rowPitch];
  alignas(32) uint8_t behindRing_[smallRingRows * rowPitch];
};

inline __m256i bytesLow(const uint8_t* row) {
  return _mm256_unpacklo_epi8(load(row), _mm256_setzero_si256());
}

inline __m256i bytesHigh(const uint8_t* row) {
  return _mm256_unpackhi_epi8(load(row), _mm256_setzero_si256());
}

// The largest reach whose sums, with two more samples, fit in 16 bits.
constexpr int64_t narrowReach = 127;

// (reciprocal * (sum + ((edge * (outer taps) + 2^14) >> 15)) + 2^23) >> 24 in 32-bit integers that
// wrap, from 16-bit ones: of the low half of the product only what it carries matters.
class NarrowRounding {
 public:
  explicit NarrowRounding(uint32_t reciprocal)
      : high_(_mm256_set1_epi16(static_cast<short>(reciprocal >> 16))),
        low_(_mm256_set1_epi16(static_cast<short>(reciprocal & 0xFFFF))) {}

  __m256i operator()(__m256i sum) const {
    const __m256i product =
        _mm256_add_epi16(_mm256_mullo_epi16(sum, high_), _mm256_mulhi_epu16(sum, low_));
    return _mm256_srli_epi16(_mm256_add_epi16(product, _mm256_set1_epi16(128)), 8);
  }

 private:
  __m256i high_;
  __m256i low_;
};

template <Border border, bool hasEdge>
void slideNarrow(const LinePass& bundle, int64_t reach, uint32_t reciprocal, int edge) {
  BoxRows<border> rows(bundle, reach);
  OutputRows out(bundle);
  const NarrowRounding rounded(reciprocal);
  const __m256i edgeWeight = _mm256_set1_epi16(static_cast<short>(edge));
  const __m256i one = _mm256_set1_epi8(1);
  const __m256i inMinusOut = _mm256_set1_epi16(static_cast<short>(0xFF01));
  // Even sums hold the low 8 bytes of each half of 32 bytes, odd ones the high 8.
  __m256i sums[6] = {};
  rows.takeFirst([&](const uint8_t* row, int times) {
    const __m256i factor = _mm256_set1_epi16(static_cast<short>(times));
    for (int v = 0; v < 3; ++v) {
      const __m256i low = _mm256_mullo_epi16(bytesLow(row + 32 * v), factor);
      const __m256i high = _mm256_mullo_epi16(bytesHigh(row + 32 * v), factor);
      sums[2 * v] = _mm256_add_epi16(sums[2 * v], low);
      sums[2 * v + 1] = _mm256_add_epi16(sums[2 * v + 1], high);
    }
  });
  for (int64_t i = 0; i < bundle.length; ++i) {
    const uint8_t* entering = rows.entering(i);
    const uint8_t* leaving = rows.leaving(i);
    const uint8_t* outer = hasEdge ? rows.outerLeft(i) : nullptr;
    __m256i results[3];
    for (int v = 0; v < 3; ++v) {
      const __m256i enters = load(entering + 32 * v);
      __m256i low = sums[2 * v], high = sums[2 * v + 1];
      if (hasEdge) {
        const __m256i left = load(outer + 32 * v);
        const __m256i edgesLow = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(enters, left), one);
        const __m256i edgesHigh = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(enters, left), one);
        low = _mm256_add_epi16(low, _mm256_mulhrs_epi16(edgesLow, edgeWeight));
        high = _mm256_add_epi16(high, _mm256_mulhrs_epi16(edgesHigh, edgeWeight));
      }
      results[v] = _mm256_packus_epi16(rounded(low), rounded(high));
      const __m256i leaves = load(leaving + 32 * v);
      const __m256i stepLow =
          _mm256_maddubs_epi16(_mm256_unpacklo_epi8(enters, leaves), inMinusOut);
      const __m256i stepHigh =
          _mm256_maddubs_epi16(_mm256_unpackhi_epi8(enters, leaves), inMinusOut);
      sums[2 * v] = _mm256_add_epi16(sums[2 * v], stepLow);
      sums[2 * v + 1] = _mm256_add_epi16(sums[2 * v + 1], stepHigh);
    }
    out.put(results[0], results[1], results[2]);
  }
}

inline __m256i words(const uint8_t* row) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row)));
}

// 32 sums, each of them at most 65535, to bytes that saturate.
inline __m256i packWords(const __m256i (&sums)[4]) {
  const __m256i mixed = _mm256_packus_epi16(_mm256_packus_epi32(sums[0], sums[1]),
                                            _mm256_packus_epi32(sums[2], sums[3]));
  return _mm256_permutevar8x32_epi32(mixed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// The same with 32-bit sums; rounded(sum, outer taps) gives what is stored.
template <Border border, class Rounding>
void slideWide(const LinePass& bundle, int64_t reach, const Rounding& rounded) {
  BoxRows<border> rows(bundle, reach);
  OutputRows out(bundle);
  __m256i sums[bundleBytes / 8] = {};
  rows.takeFirst([&](const uint8_t* row, int times) {
    const __m256i factor = _mm256_set1_epi32(times);
    for (int v = 0; v < bundleBytes / 8; ++v) {
      sums[v] = _mm256_add_epi32(sums[v], _mm256_mullo_epi32(words(row + 8 * v), factor));
    }
  });
  for (int64_t i = 0; i < bundle.length; ++i) {
    const uint8_t* entering = rows.entering(i);
    const uint8_t* leaving = rows.leaving(i);
    const uint8_t* outer = rows.outerLeft(i);
    __m256i results[3];
    for (int v = 0; v < 3; ++v) {
      __m256i quarter[4];
      for (int q = 0; q < 4; ++q) {
        const int at = 32 * v + 8 * q;
        __m256i& sum = sums[4 * v + q];
        const __m256i enters = words(entering + at);
        quarter[q] = rounded(sum, _mm256_add_epi32(enters, words(outer + at)));
        sum = _mm256_add_epi32(sum, _mm256_sub_epi32(enters, words(leaving + at)));
      }
      results[v] = packWords(quarter);
    }
    out.put(results[0], results[1], results[2]);
  }
}

}  // namespace
}  // namespace kvl
