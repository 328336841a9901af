// The vector body of the Gaussian blur, at the width of the file that includes it.
#pragma once

#include "core/wide_vector.h"
#include "filters/gaussian_blur_kernels.h"

namespace kvl {
namespace {

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

// A vector of values in 16-bit lanes, ordered as the byte unpacks leave them: packing `low` with
// `high` restores the order of the bytes.
struct Words {
  Vector low;
  Vector high;
};

// A vector of values in 32-bit lanes, ordered as the word unpacks of Words::low, then Words::high
// leave them.
struct Sums {
  Vector lowLow;
  Vector lowHigh;
  Vector highLow;
  Vector highHigh;
};

inline Words widen(Vector a) {
  const Vector zero = zeroVector();
  return {unpackLow8(a, zero), unpackHigh8(a, zero)};
}

inline Words addBytes(Vector a, Vector b) {
  const Vector ones = splat8(1);
  return {multiplyAddPairs8(unpackLow8(a, b), ones), multiplyAddPairs8(unpackHigh8(a, b), ones)};
}

// The two samples d pixels away share a weight, so they are added before they are weighted.
template <class Taps>
inline Words sumAtDistance(const Taps& taps, ptrdiff_t d, ptrdiff_t i) {
  return addBytes(load(taps.tap(-d) + i), load(taps.tap(d) + i));
}

inline Sums weightedSum(const Words& a, const Words& b, Vector weights) {
  return {multiplyAddPairs16(unpackLow16(a.low, b.low), weights),
          multiplyAddPairs16(unpackHigh16(a.low, b.low), weights),
          multiplyAddPairs16(unpackLow16(a.high, b.high), weights),
          multiplyAddPairs16(unpackHigh16(a.high, b.high), weights)};
}

inline Sums operator+(const Sums& a, const Sums& b) {
  return {add32(a.lowLow, b.lowLow), add32(a.lowHigh, b.lowHigh), add32(a.highLow, b.highLow),
          add32(a.highHigh, b.highHigh)};
}

inline Vector toBytes(const Sums& s) {
  const Vector low = packSigned32(shiftRight32<16>(s.lowLow), shiftRight32<16>(s.lowHigh));
  const Vector high = packSigned32(shiftRight32<16>(s.highLow), shiftRight32<16>(s.highHigh));
  return packUnsigned16(low, high);
}

template <int radius>
class Kernel {
 public:
  explicit Kernel(const int32_t* weights) {
    for (int d = 0; d <= radius; d += 2) {
      const int32_t second = d < radius ? weights[d + 1] : 0;
      weightPairs_[d / 2] = splat32(weights[d] | second << 16);
    }
  }

  template <class Taps>
  Vector operator()(const Taps& taps, ptrdiff_t i) const {
    Sums sums =
        weightedSum(widen(load(taps.tap(0) + i)), sumAtDistance(taps, 1, i), weightPairs_[0]);
    // Unrolled, the loop needs more registers than there are.
#pragma GCC unroll 1
    for (ptrdiff_t d = 2; d < radius; d += 2) {
      sums = sums + weightedSum(sumAtDistance(taps, d, i), sumAtDistance(taps, d + 1, i),
                                weightPairs_[d / 2]);
    }
    if constexpr (radius % 2 == 0) {
      const Vector zero = zeroVector();
      sums = sums +
             weightedSum(sumAtDistance(taps, radius, i), {zero, zero}, weightPairs_[radius / 2]);
    }
    return toBytes(sums);
  }

 private:
  Vector weightPairs_[radius / 2 + 1];
};

// The centre weight of radius 1 does not fit in 16 signed bits. As the kernel sums to 65536,
// w0*c + w1*(a+b) = 65536*c + w1*(a+b-2c), and the high half of one 16-bit product is the change.
template <>
class Kernel<1> {
 public:
  explicit Kernel(const int32_t* weights) : side_(splat16(static_cast<int16_t>(weights[1]))) {}

  template <class Taps>
  Vector operator()(const Taps& taps, ptrdiff_t i) const {
    const Vector centre = load(taps.tap(0) + i);
    const Words twice = addBytes(centre, centre);
    const Words sides = sumAtDistance(taps, 1, i);
    const Vector low = multiplyHigh16(subtract16(sides.low, twice.low), side_);
    const Vector high = multiplyHigh16(subtract16(sides.high, twice.high), side_);
    return add8(centre, packSigned16(low, high));
  }

 private:
  Vector side_;
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

GaussianKernels vectorKernels() {
  return {horizontal, vertical};
}

}  // namespace
}  // namespace kvl
