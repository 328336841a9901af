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

// Rows that follow one another at `step` bytes; 0 repeats the same row.
struct RowRun {
  const uint8_t* first;
  ptrdiff_t step;
};

// The rows that enter a box and those that leave it. A long box makes its rows twice.
template <Border border>
class BoxRows {
 public:
  BoxRows(const LinePass& bundle, int64_t reach)
      : last_(bundle.length - 1),
        reach_(reach),
        ahead_(bundle, aheadRing_, ringRows),
        behind_(bundle, behindRing_, smallRingRows),
        leaving_(reach <= oneRingReach ? ahead_ : behind_) {}

  // Calls add(row, times) with all that the box at pixel 0 holds.
  template <class Add>
  void takeFirst(Add add) {
    const int64_t inside = reach_ < last_ ? reach_ : last_;
    for (int64_t pixel = 0; pixel <= inside; ++pixel) {
      ahead_.makeUpTo(pixel);
      const bool repeated = pixel == 0 && border == Border::repeatEnd;
      add(ahead_[pixel], static_cast<int>(repeated ? reach_ + 1 : 1));
    }
    // The last row is made by then only where the box reaches beyond it.
    if (border == Border::repeatEnd && inside < reach_) {
      add(ahead_[last_], static_cast<int>(reach_ - inside));
    }
  }

  // The rows at distance reach + 1 ahead of pixel i and at `distance` behind it, for as many pixels
  // as *count says at most; lowers *count to where the runs end. For i in ascending order.
  RowRun entering(int64_t i, int64_t* count) {
    const int64_t pixel = i + reach_ + 1;
    if (pixel > last_) return {border == Border::repeatEnd ? ahead_[last_] : zeros_, 0};
    ahead_.makeUpTo(pixel);
    lower(count, ahead_.runFrom(pixel));
    lower(count, last_ + 1 - pixel);
    return {ahead_[pixel], rowPitch};
  }

  RowRun behind(int64_t i, int64_t distance, int64_t* count) {
    const int64_t pixel = i - distance;
    if (pixel < 0) {
      lower(count, -pixel);
      if (border == Border::nothing) return {zeros_, 0};
    }
    const int64_t inside = pixel < 0 ? 0 : pixel;
    leaving_.makeUpTo(inside);
    if (pixel < 0) return {leaving_[0], 0};
    lower(count, leaving_.runFrom(pixel));
    return {leaving_[pixel], rowPitch};
  }

 private:
  static void lower(int64_t* count, int64_t most) {
    if (most < *count) *count = most;
  }

  int64_t last_;
  int64_t reach_;
  LineRows ahead_;
  LineRows behind_;
  LineRows& leaving_;
  alignas(32) uint8_t zeros_[bundleBytes] = {};
  alignas(32) uint8_t aheadRing_[ringRows * rowPitch];
  alignas(32) uint8_t behindRing_[smallRingRows * rowPitch];
};

// A box slides along the lines of the bundle. A Box says how: add(sums, row, times) fills the sums
// of 32 bytes across the lines; next(sums, entering, leaving, outer) gives the bytes to store and
// goes on by a pixel, the outer row being the one before the box.
template <Border border, class Box>
void slideBox(const LinePass& bundle, int64_t reach, const Box& given) {
  constexpr int groups = bundleBytes / 32;
  const Box box = given;  // a copy whose constants no store can change, so that they stay loaded
  BoxRows<border> rows(bundle, reach);
  OutputRows out(bundle);
  __m256i sums[groups][Box::vectors] = {};
  rows.takeFirst([&](const uint8_t* row, int times) {
    for (int v = 0; v < groups; ++v) box.add(sums[v], row + 32 * v, times);
  });
  for (int64_t i = 0; i < bundle.length;) {
    int64_t count = bundle.length - i < turnedPixels ? bundle.length - i : turnedPixels;
    const RowRun entering = rows.entering(i, &count);
    const RowRun leaving = rows.behind(i, reach, &count);
    const RowRun outer = Box::hasEdge ? rows.behind(i, reach + 1, &count) : leaving;
    const OutputRows::Run results = out.start();
    for (int v = 0; v < groups; ++v) {
      __m256i current[Box::vectors];
      for (int n = 0; n < Box::vectors; ++n) current[n] = sums[v][n];
      for (int64_t row = 0; row < count; ++row) {
        out.fetchLater(row, v);
        store(results.first + row * results.stride + 32 * v,
              box.next(current, entering.first + row * entering.step + 32 * v,
                       leaving.first + row * leaving.step + 32 * v,
                       outer.first + row * outer.step + 32 * v));
      }
      for (int n = 0; n < Box::vectors; ++n) sums[v][n] = current[n];
    }
    out.finish(count);
    i += count;
  }
}

inline __m256i bytesLow(const uint8_t* row) {
  return _mm256_unpacklo_epi8(load(row), _mm256_setzero_si256());
}

inline __m256i bytesHigh(const uint8_t* row) {
  return _mm256_unpackhi_epi8(load(row), _mm256_setzero_si256());
}

// The largest reach whose sums, with two more samples, fit in 16 bits.
constexpr int64_t narrowReach = 127;

// (reciprocal * (sum + ((edge * outer taps + 2^14) >> 15)) + 2^23) >> 24 in 32-bit integers that
// wrap, from 16-bit ones: of the low half of the product only what it carries matters.
template <bool withEdge>
class NarrowBox {
 public:
  static constexpr bool hasEdge = withEdge;
  static constexpr int vectors = 2;

  NarrowBox(uint32_t reciprocal, int edge)
      : reciprocalHigh_(_mm256_set1_epi16(static_cast<short>(reciprocal >> 16))),
        reciprocalLow_(_mm256_set1_epi16(static_cast<short>(reciprocal & 0xFFFF))),
        edge_(_mm256_set1_epi16(static_cast<short>(edge))) {}

  void add(__m256i (&sums)[vectors], const uint8_t* row, int times) const {
    const __m256i factor = _mm256_set1_epi16(static_cast<short>(times));
    sums[0] = _mm256_add_epi16(sums[0], _mm256_mullo_epi16(bytesLow(row), factor));
    sums[1] = _mm256_add_epi16(sums[1], _mm256_mullo_epi16(bytesHigh(row), factor));
  }

  __m256i next(__m256i (&sums)[vectors], const uint8_t* entering, const uint8_t* leaving,
               const uint8_t* outer) const {
    const __m256i enters = load(entering), leaves = load(leaving);
    __m256i low = sums[0], high = sums[1];
    if (hasEdge) {
      const __m256i left = load(outer), one = _mm256_set1_epi8(1);
      low = _mm256_add_epi16(low, edgePart(_mm256_unpacklo_epi8(enters, left), one));
      high = _mm256_add_epi16(high, edgePart(_mm256_unpackhi_epi8(enters, left), one));
    }
    const __m256i inMinusOut = _mm256_set1_epi16(static_cast<short>(0xFF01));
    sums[0] = _mm256_add_epi16(
        sums[0], _mm256_maddubs_epi16(_mm256_unpacklo_epi8(enters, leaves), inMinusOut));
    sums[1] = _mm256_add_epi16(
        sums[1], _mm256_maddubs_epi16(_mm256_unpackhi_epi8(enters, leaves), inMinusOut));
    return _mm256_packus_epi16(rounded(low), rounded(high));
  }

 private:
  __m256i edgePart(__m256i pairs, __m256i one) const {
    return _mm256_mulhrs_epi16(_mm256_maddubs_epi16(pairs, one), edge_);
  }

  __m256i rounded(__m256i sum) const {
    const __m256i product = _mm256_add_epi16(_mm256_mullo_epi16(sum, reciprocalHigh_),
                                             _mm256_mulhi_epu16(sum, reciprocalLow_));
    return _mm256_srli_epi16(_mm256_add_epi16(product, _mm256_set1_epi16(128)), 8);
  }

  __m256i reciprocalHigh_;
  __m256i reciprocalLow_;
  __m256i edge_;
};

// 32-bit sums; rounded(sum, outer taps) gives what is stored, saturated to 255.
template <class Rounding>
class WideBox {
 public:
  static constexpr bool hasEdge = true;
  static constexpr int vectors = 4;

  explicit WideBox(const Rounding& rounded) : rounded_(rounded) {}

  void add(__m256i (&sums)[vectors], const uint8_t* row, int times) const {
    const __m256i factor = _mm256_set1_epi32(times);
    for (int q = 0; q < 4; ++q) {
      sums[q] = _mm256_add_epi32(sums[q], _mm256_mullo_epi32(words(row + 8 * q), factor));
    }
  }

  __m256i next(__m256i (&sums)[vectors], const uint8_t* entering, const uint8_t* leaving,
               const uint8_t* outer) const {
    __m256i results[4];
    for (int q = 0; q < 4; ++q) {
      const __m256i enters = words(entering + 8 * q);
      results[q] = rounded_(sums[q], _mm256_add_epi32(enters, words(outer + 8 * q)));
      sums[q] = _mm256_add_epi32(sums[q], _mm256_sub_epi32(enters, words(leaving + 8 * q)));
    }
    const __m256i mixed = _mm256_packus_epi16(_mm256_packus_epi32(results[0], results[1]),
                                              _mm256_packus_epi32(results[2], results[3]));
    return _mm256_permutevar8x32_epi32(mixed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  }

 private:
  static __m256i words(const uint8_t* row) {
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row)));
  }

  Rounding rounded_;
};

}  // namespace
}  // namespace kvl
