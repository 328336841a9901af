// The splat of the warp for the instruction set that a file is compiled for, AVX2 or SSSE3. For
// vector files only: everything here has internal linkage.
//
// Distances and weights are formed in single precision. A weight is at most 256 and a channel at
// most 255, so that one multiplication of 16-bit words gives the same product as one of 32 bits.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "warp/warp_kernels.h"

namespace kvl {
namespace {

#if defined(__AVX2__)

using Doubles = __m256d;
using Floats = __m256;
using Integers = __m256i;

inline Doubles splat(double v) {
  return _mm256_set1_pd(v);
}
inline Floats splat(float v) {
  return _mm256_set1_ps(v);
}
inline Doubles countUp() {
  return _mm256_setr_pd(0, 1, 2, 3);
}
inline Doubles within(Doubles v, Doubles lowest, Doubles highest) {
  return _mm256_and_pd(_mm256_cmp_pd(v, lowest, _CMP_GE_OQ), _mm256_cmp_pd(v, highest, _CMP_LE_OQ));
}
inline Doubles both(Doubles a, Doubles b) {
  return _mm256_and_pd(a, b);
}
inline uint32_t signs(Doubles v) {
  return static_cast<uint32_t>(_mm256_movemask_pd(v));
}
inline Floats narrow(Doubles low, Doubles high) {
  return _mm256_set_m128(_mm256_cvtpd_ps(high), _mm256_cvtpd_ps(low));
}
inline Integers truncate(Doubles low, Doubles high) {
  return _mm256_set_m128i(_mm256_cvttpd_epi32(high), _mm256_cvttpd_epi32(low));
}
inline Floats toFloats(Integers v) {
  return _mm256_cvtepi32_ps(v);
}
inline Integers roundToEven(Floats v) {
  return _mm256_cvtps_epi32(v);
}
inline Integers notNegative(Integers v) {
  return _mm256_max_epi32(v, _mm256_setzero_si256());
}
inline Floats isZero(Integers v) {
  return _mm256_castsi256_ps(_mm256_cmpeq_epi32(v, _mm256_setzero_si256()));
}
inline Floats choose(Floats mask, Floats yes, Floats no) {
  return _mm256_blendv_ps(no, yes, mask);
}
inline void store(int32_t* p, Integers v) {
  _mm256_store_si256(reinterpret_cast<Integers*>(p), v);
}

#else

using Doubles = __m128d;
using Floats = __m128;
using Integers = __m128i;

inline Doubles splat(double v) {
  return _mm_set1_pd(v);
}
inline Floats splat(float v) {
  return _mm_set1_ps(v);
}
inline Doubles countUp() {
  return _mm_setr_pd(0, 1);
}
inline Doubles within(Doubles v, Doubles lowest, Doubles highest) {
  return _mm_and_pd(_mm_cmpge_pd(v, lowest), _mm_cmple_pd(v, highest));
}
inline Doubles both(Doubles a, Doubles b) {
  return _mm_and_pd(a, b);
}
inline uint32_t signs(Doubles v) {
  return static_cast<uint32_t>(_mm_movemask_pd(v));
}
inline Floats narrow(Doubles low, Doubles high) {
  return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
}
inline Integers truncate(Doubles low, Doubles high) {
  return _mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high));
}
inline Floats toFloats(Integers v) {
  return _mm_cvtepi32_ps(v);
}
inline Integers roundToEven(Floats v) {
  return _mm_cvtps_epi32(v);
}
inline Integers notNegative(Integers v) {
  return _mm_andnot_si128(_mm_srai_epi32(v, 31), v);
}
inline Floats isZero(Integers v) {
  return _mm_castsi128_ps(_mm_cmpeq_epi32(v, _mm_setzero_si128()));
}
inline Floats choose(Floats mask, Floats yes, Floats no) {
  return _mm_or_ps(_mm_and_ps(mask, yes), _mm_andnot_ps(mask, no));
}
inline void store(int32_t* p, Integers v) {
  _mm_store_si128(reinterpret_cast<Integers*>(p), v);
}

#endif

constexpr int32_t lanes = sizeof(Floats) / sizeof(float);
constexpr int32_t half = lanes / 2;
constexpr int32_t reached = 3;  // pixels along each axis

// Samples of a source row and what each adds to the pixels that it reaches.
struct alignas(32) Batch {
  int32_t column[lanes];
  int32_t row[lanes];
  int32_t weight[reached][reached][lanes];  // by row, column, sample
};

// 256 times the squares of the distances from the centres of the pixel before, its own and the
// next. In the first pixel the own one takes the distance of its successor, which has none.
inline void squaredDistances(Floats coordinate, Integers pixel, Floats* squares) {
  const Floats floor = toFloats(pixel), scale = splat(256.0f);
  for (int k = 0; k < reached; ++k) {
    const Floats difference = (floor + splat(static_cast<float>(k) - 0.5f)) - coordinate;
    squares[k] = difference * difference * scale;
  }
  const Floats first = isZero(pixel);
  squares[1] = choose(first, squares[2], squares[1]);
  squares[2] = choose(first, splat(1024.0f), squares[2]);
}

// Fills the batch for the samples at (x + 0 .. lanes - 1, y); returns a bit for each that counts.
inline uint32_t project(const CellGrid& grid, const Projection& p, double x, double y,
                        Batch& batch) {
  Doubles atX[2], atY[2];
  uint32_t counting = 0;
  for (int32_t part = 0; part < 2; ++part) {
    const Doubles sourceX = splat(x + part * half) + countUp();
    const Doubles w = ((sourceX * splat(p.wx) + splat(y * p.wy)) + splat(p.wz)) + splat(p.w0);
    const Doubles reciprocal = splat(1.0) / w;
    atX[part] = ((sourceX * splat(p.xx) + splat(y * p.xy)) + splat(p.x0)) * reciprocal;
    atY[part] = ((sourceX * splat(p.yx) + splat(y * p.yy)) + splat(p.y0)) * reciprocal;
    const Doubles counts = both(within(atX[part], splat(grid.xLowest), splat(grid.xHighest)),
                                within(atY[part], splat(grid.yLowest), splat(grid.yHighest)));
    counting |= signs(counts) << (part * half);
  }
  if (counting == 0) return 0;

  const Integers column = truncate(atX[0], atX[1]), row = truncate(atY[0], atY[1]);
  Floats squaresX[reached], squaresY[reached];
  squaredDistances(narrow(atX[0], atX[1]), column, squaresX);
  squaredDistances(narrow(atY[0], atY[1]), row, squaresY);
  store(batch.column, column);
  store(batch.row, row);
  for (int i = 0; i < reached; ++i) {
    for (int j = 0; j < reached; ++j) {
      const Floats weight = splat(256.0f) - (squaresX[j] + squaresY[i]);
      store(batch.weight[i][j], notNegative(roundToEven(weight)));
    }
  }
  return counting;
}

inline uint32_t loadPixel(const uint8_t* p, int32_t channels) {
  uint32_t pixel = p[0];
  for (int32_t c = 1; c < channels; ++c) pixel |= static_cast<uint32_t>(p[c]) << (8 * c);
  return pixel;
}

inline __m128i widen(uint32_t bytes) {
  const __m128i order = _mm_setr_epi8(0, -1, -1, -1, 1, -1, -1, -1, 2, -1, -1, -1, 3, -1, -1, -1);
  return _mm_shuffle_epi8(_mm_cvtsi32_si128(static_cast<int32_t>(bytes)), order);
}

inline void addTo(uint32_t* cell, __m128i words) {
  auto* at = reinterpret_cast<__m128i*>(cell);
  _mm_storeu_si128(at, _mm_add_epi32(_mm_loadu_si128(at), words));
}

// What one sample adds to its cells.
template <int32_t channels>
inline void addSample(const Batch& batch, int32_t lane, uint32_t pixel, uint32_t* cell,
                      ptrdiff_t rowWords) {
  constexpr int32_t words = cellLayout(channels).words;
  const __m128i values = widen(channels == 4 ? pixel : pixel | 1u << 24);
  for (int i = 0; i < reached; ++i, cell += rowWords) {
    for (int j = 0; j < reached; ++j) {
      const int32_t weight = batch.weight[i][j][lane];
      addTo(cell + j * words, _mm_madd_epi16(values, _mm_set1_epi32(weight)));
      if (channels == 4)
        cell[j * words + cellLayout(channels).weightAt] += static_cast<uint32_t>(weight);
    }
  }
}

template <int32_t channels>
void splatRowVector(const CellGrid& grid, const Projection& projection, double x, double y,
                    const uint8_t* pixels, int32_t count) {
  constexpr int32_t words = cellLayout(channels).words;
  const ptrdiff_t rowWords = grid.rowCells * words;
  Batch batch;
  for (int32_t i = 0; i < count; i += lanes, pixels += lanes * channels) {
    uint32_t counting = project(grid, projection, x + i, y, batch);
    if (count - i < lanes) counting &= (1u << (count - i)) - 1;
    for (int32_t lane = 0; counting != 0; ++lane, counting >>= 1) {
      if ((counting & 1) == 0) continue;
      uint32_t* cell = grid.first + (ptrdiff_t{batch.row[lane]} - 1 - grid.top) * rowWords +
                       (ptrdiff_t{batch.column[lane]} - 1 - grid.left) * words;
      addSample<channels>(batch, lane, loadPixel(pixels + lane * channels, channels), cell,
                          rowWords);
    }
  }
}

}  // namespace
}  // namespace kvl
