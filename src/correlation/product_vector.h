// The vector body of the sums of products, at the width of the file that includes it.
#pragma once

#include "core/wide_vector.h"
#include "correlation/product_kernels.h"

namespace kvl {
namespace {

constexpr ptrdiff_t lanes16 = vectorBytes / 2;

inline Vector loadSamples(const int16_t* p) {
  return load(reinterpret_cast<const uint8_t*>(p));
}

// The lanes are below 2^32.
inline uint64_t sumOfLanes(Vector v) {
  uint32_t lanes[vectorBytes / 4];
  store(reinterpret_cast<uint8_t*>(lanes), v);
  uint64_t sum = 0;
  for (const uint32_t lane : lanes) sum += lane;
  return sum;
}

// A strip of `width` vectors: its part of a row of A stays in registers for all shifts.
template <int width, int shifts>
void addStrip(const ProductRows& rows, uint64_t* sums) {
  Vector lanes[shifts];
  for (int k = 0; k < shifts; ++k) lanes[k] = zeroVector();
  const int16_t* rowA = rows.a;
  const int16_t* rowB = rows.b;
  for (ptrdiff_t y = 0; y < rows.rows; ++y) {
    Vector a[width];
    for (int i = 0; i < width; ++i) a[i] = loadSamples(rowA + i * lanes16);
    for (int k = 0; k < shifts; ++k) {
      for (int i = 0; i < width; ++i) {
        const Vector b = loadSamples(rowB + k + i * lanes16);
        lanes[k] = add32(lanes[k], multiplyAddPairs16(a[i], b));
      }
    }
    rowA += rows.strideA;
    rowB += rows.strideB;
  }
  for (int k = 0; k < shifts; ++k) sums[k] += sumOfLanes(lanes[k]);
}

constexpr int stripVectors = 4;

template <int shifts>
void addAll(ProductRows rows, uint64_t* sums) {
  ptrdiff_t left = rows.samples / lanes16;
  for (; left >= stripVectors; left -= stripVectors) {
    addStrip<stripVectors, shifts>(rows, sums);
    rows.a += stripVectors * lanes16;
    rows.b += stripVectors * lanes16;
  }
  if (left == 3) addStrip<3, shifts>(rows, sums);
  if (left == 2) addStrip<2, shifts>(rows, sums);
  if (left == 1) addStrip<1, shifts>(rows, sums);
}

void products(const ProductRows& rows, int shifts, uint64_t* sums) {
  static constexpr void (*byShifts[shiftsPerCall])(ProductRows, uint64_t*) = {
      addAll<1>, addAll<2>, addAll<3>, addAll<4>, addAll<5>, addAll<6>, addAll<7>, addAll<8>};
  for (int k = 0; k < shifts; ++k) sums[k] = 0;
  byShifts[shifts - 1](rows, sums);
}

}  // namespace
}  // namespace kvl
