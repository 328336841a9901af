// The splat of the warp for the instruction set that a file is compiled for, AVX2 or SSSE3. For
// vector files only: everything here has internal linkage.
//
// Distances and weights are formed in single precision. A weight is at most 256 and a channel at
// most 255, so that one multiplication of 16-bit words gives the same product as one of 32 bits.
#pragma once

#include "core/wide_vector.h"
#include "warp/warp_kernels.h"

namespace kvl {
namespace {

#if defined(__AVX2__)

using Doubles = __m256d;

inline Doubles splat(double v) {
  return _mm256_set1_pd(v);
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
inline Vector truncate(Doubles low, Doubles high) {
  return _mm256_set_m128i(_mm256_cvttpd_epi32(high), _mm256_cvttpd_epi32(low));
}
inline Vector notNegative(Vector v) {
  return _mm256_max_epi32(v, _mm256_setzero_si256());
}
inline Floats isZero(Vector v) {
  return _mm256_castsi256_ps(_mm256_cmpeq_epi32(v, _mm256_setzero_si256()));
}
inline Floats choose(Floats mask, Floats yes, Floats no) {
  return _mm256_blendv_ps(no, yes, mask);
}
inline Vector evenToBoth(Vector v) {
  return _mm256_shuffle_epi32(v, _MM_SHUFFLE(2, 2, 0, 0));
}
inline uint32_t signs(Vector v) {
  return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(v)));
}
inline void storeAligned(void* p, Vector v) {
  _mm256_store_si256(static_cast<Vector*>(p), v);
}

#else

using Doubles = __m128d;

inline Doubles splat(double v) {
  return _mm_set1_pd(v);
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
inline Vector truncate(Doubles low, Doubles high) {
  return _mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high));
}
inline Vector notNegative(Vector v) {
  return _mm_andnot_si128(_mm_srai_epi32(v, 31), v);
}
inline Floats isZero(Vector v) {
  return _mm_castsi128_ps(_mm_cmpeq_epi32(v, _mm_setzero_si128()));
}
inline Floats choose(Floats mask, Floats yes, Floats no) {
  return _mm_or_ps(_mm_and_ps(mask, yes), _mm_andnot_ps(mask, no));
}
inline Vector evenToBoth(Vector v) {
  return _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 2, 0, 0));
}
inline uint32_t signs(Vector v) {
  return static_cast<uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(v)));
}
inline void storeAligned(void* p, Vector v) {
  _mm_store_si128(static_cast<Vector*>(p), v);
}

#endif

constexpr int32_t lanes = sizeof(Floats) / sizeof(float);
constexpr int32_t half = lanes / 2;
constexpr int32_t reached = 3;  // pixels along each axis

// Samples of a source row and what they add to the pixels that they reach.
struct alignas(32) Batch {
  int32_t column[lanes];
  int32_t row[lanes];
  int32_t weight[reached][reached][lanes];  // by row, column, sample
  // Of two neighbouring samples that lie in one row and at most a column apart, for the pixel
  // before the first one's, that one's own and the two behind it: the first sample's weight in the
  // low word, the second's in the high word. One multiplication then serves both.
  uint64_t leftPair[reached][half];
  uint64_t rightPair[reached][half];
};

// Which samples count, and which are the first of a pair as above.
struct Counting {
  uint32_t samples;
  uint32_t pairs;
};

// 256 times the squares of the distances from the centres of the pixel before, its own and the
// next. In the first pixel the own one takes the distance of its successor, which has none.
inline void squaredDistances(Floats coordinate, Vector pixel, Floats* squares) {
  const Floats floor = toFloats(pixel), scale = splat(256.0f);
  for (int k = 0; k < reached; ++k) {
    const Floats difference = (floor + splat(static_cast<float>(k) - 0.5f)) - coordinate;
    squares[k] = difference * difference * scale;
  }
  const Floats first = isZero(pixel);
  squares[1] = choose(first, squares[2], squares[1]);
  squares[2] = choose(first, splat(1024.0f), squares[2]);
}

inline void pairUp(const Vector (*weights)[reached], Vector sameColumn, Batch& batch) {
  constexpr char no = -1;
  // From the words (before of the first, own of the first, before of the second, own of the second)
  // and (next, own, next, own); a step of one column, and none.
  const Vector leftStep =
      repeatLane(_mm_setr_epi8(0, 1, no, no, 2, 3, 4, 5, 8, 9, no, no, 10, 11, 12, 13));
  const Vector rightStep =
      repeatLane(_mm_setr_epi8(0, 1, 6, 7, no, no, 4, 5, 8, 9, 14, 15, no, no, 12, 13));
  const Vector leftSame =
      repeatLane(_mm_setr_epi8(0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15));
  const Vector rightSame =
      repeatLane(_mm_setr_epi8(0, 1, 4, 5, no, no, no, no, 8, 9, 12, 13, no, no, no, no));
  const Vector both = evenToBoth(sameColumn);
  const Vector left = choose(both, leftSame, leftStep), right = choose(both, rightSame, rightStep);
  for (int i = 0; i < reached; ++i) {
    const Vector own = shiftLeft32<16>(weights[i][1]);
    storeAligned(batch.leftPair[i], shuffleBytes(either(weights[i][0], own), left));
    storeAligned(batch.rightPair[i], shuffleBytes(either(weights[i][2], own), right));
  }
}

// Fills the batch for the samples at (x + 0 .. lanes - 1, y), of which the first `count` are there.
inline Counting project(const CellGrid& grid, const Projection& p, double x, double y,
                        int32_t count, Batch& batch) {
  Doubles atX[2], atY[2];
  uint32_t samples = 0;
  for (int32_t part = 0; part < 2; ++part) {
    const Doubles sourceX = splat(x + part * half) + countUp();
    const Doubles w = ((sourceX * splat(p.wx) + splat(y * p.wy)) + splat(p.wz)) + splat(p.w0);
    const Doubles reciprocal = splat(1.0) / w;
    atX[part] = ((sourceX * splat(p.xx) + splat(y * p.xy)) + splat(p.x0)) * reciprocal;
    atY[part] = ((sourceX * splat(p.yx) + splat(y * p.yy)) + splat(p.y0)) * reciprocal;
    const Doubles counts = both(within(atX[part], splat(grid.xLowest), splat(grid.xHighest)),
                                within(atY[part], splat(grid.yLowest), splat(grid.yHighest)));
    samples |= signs(counts) << (part * half);
  }
  if (count < lanes) samples &= (1u << count) - 1;
  if (samples == 0) return {0, 0};

  const Vector column = truncate(atX[0], atX[1]), row = truncate(atY[0], atY[1]);
  Floats squaresX[reached], squaresY[reached];
  squaredDistances(narrow(atX[0], atX[1]), column, squaresX);
  squaredDistances(narrow(atY[0], atY[1]), row, squaresY);
  Vector weights[reached][reached];
  for (int i = 0; i < reached; ++i) {
    for (int j = 0; j < reached; ++j) {
      weights[i][j] = notNegative(toNearest32(splat(256.0f) - (squaresX[j] + squaresY[i])));
    }
  }
  storeAligned(batch.column, column);
  storeAligned(batch.row, row);

  // Of each pair, the first sample's place tells.
  const Vector step = subtract32(shiftRightUnsigned64<32>(column), column);
  const Vector sameColumn = equal32(step, splat32(0));
  const uint32_t firsts = 0x55555555u & signs(equal32(shiftRightUnsigned64<32>(row), row)) &
                          signs(either(sameColumn, equal32(step, splat32(1))));
  const uint32_t pairs = firsts & samples & (samples >> 1);
  if (pairs != 0) pairUp(weights, sameColumn, batch);
  if ((pairs | pairs << 1) != samples) {
    for (int i = 0; i < reached; ++i) {
      for (int j = 0; j < reached; ++j) storeAligned(batch.weight[i][j], weights[i][j]);
    }
  }
  return {samples, pairs};
}

inline void addTo(uint32_t* cell, __m128i words) {
  auto* at = reinterpret_cast<__m128i*>(cell);
  _mm_storeu_si128(at, _mm_add_epi32(_mm_loadu_si128(at), words));
}

inline __m128i loadEight(const void* p) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(p));
}

// The pixel at p and, for a pair, its successor, as the low and high words of their channels and of
// the 1 that sums the weights. Reads eight bytes.
template <int32_t channels>
inline __m128i loadPixels(const uint8_t* p) {
  constexpr char no = -1;
  const __m128i bytes = loadEight(p);
  if (channels == 4) {
    return _mm_shuffle_epi8(bytes,
                            _mm_setr_epi8(0, no, 4, no, 1, no, 5, no, 2, no, 6, no, 3, no, 7, no));
  }
  const __m128i order =
      channels == 1 ? _mm_setr_epi8(0, no, 1, no, no, no, no, no, no, no, no, no, no, no, no, no)
                    : _mm_setr_epi8(0, no, 3, no, 1, no, 4, no, 2, no, 5, no, no, no, no, no);
  return _mm_or_si128(_mm_shuffle_epi8(bytes, order), _mm_setr_epi32(0, 0, 0, 0x00010001));
}

// Adds the values, weighted by the two 32-bit halves of `weights`, to two neighbouring cells.
template <int32_t channels>
inline void addToTwoCells(uint32_t* cells, const uint64_t* weights, __m128i values) {
#if defined(__AVX2__)
  if (channels != 4) {
    const __m256i spread = _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1);
    const __m256i both =
        _mm256_castpd_si256(_mm256_broadcast_sd(reinterpret_cast<const double*>(weights)));
    const __m256i weight =
        _mm256_castps_si256(_mm256_permutevar_ps(_mm256_castsi256_ps(both), spread));
    auto* at = reinterpret_cast<__m256i*>(cells);
    const __m256i sums = _mm256_madd_epi16(_mm256_broadcastsi128_si256(values), weight);
    _mm256_storeu_si256(at, _mm256_add_epi32(_mm256_loadu_si256(at), sums));
    return;
  }
#endif
  constexpr int32_t words = cellLayout(channels).words;
  const __m128i both = loadEight(weights);
  const __m128i first = _mm_shuffle_epi32(both, 0x00), second = _mm_shuffle_epi32(both, 0x55);
  addTo(cells, _mm_madd_epi16(values, first));
  addTo(cells + words, _mm_madd_epi16(values, second));
  if (channels == 4) {
    const __m128i ones = _mm_setr_epi32(0x00010001, 0, 0, 0);
    addTo(cells + 4, _mm_madd_epi16(ones, first));
    addTo(cells + words + 4, _mm_madd_epi16(ones, second));
  }
}

template <int32_t channels>
void splatRowVector(const CellGrid& gridOfBand, const Projection& projectionOfSource, double x,
                    double y, const uint8_t* pixels, int32_t count) {
  constexpr int32_t words = cellLayout(channels).words;
  // Copies, because the compiler takes every vector store for one to them.
  const CellGrid grid = gridOfBand;
  const Projection projection = projectionOfSource;
  const ptrdiff_t rowWords = grid.rowCells * words;
  Batch batch;
  uint8_t last[lanes * channels + 8] = {};
  const auto cellOf = [&](uint32_t lane) {
    return grid.first + (ptrdiff_t{batch.row[lane]} - 1 - grid.top) * rowWords +
           (ptrdiff_t{batch.column[lane]} - 1 - grid.left) * words;
  };
  for (int32_t i = 0; i < count; i += lanes) {
    const Counting counting = project(grid, projection, x + i, y, count - i, batch);
    if (counting.samples == 0) continue;
    const uint8_t* at = pixels + ptrdiff_t{i} * channels;
    // Eight bytes from the last pixel on would end behind the row.
    if (count - i < lanes + 8 / channels) {
      __builtin_memcpy(last, at,
                       static_cast<size_t>((count - i < lanes ? count - i : lanes) * channels));
      at = last;
    }
    for (uint32_t left = counting.samples; left != 0;) {
      const auto lane = static_cast<uint32_t>(__builtin_ctz(left));
      const __m128i values = loadPixels<channels>(at + lane * channels);
      uint32_t* cell = cellOf(lane);
      if ((counting.pairs >> lane & 1) != 0) {
        left &= ~(3u << lane);
        for (int row = 0; row < reached; ++row, cell += rowWords) {
          addToTwoCells<channels>(cell, &batch.leftPair[row][lane / 2], values);
          addToTwoCells<channels>(cell + 2 * words, &batch.rightPair[row][lane / 2], values);
        }
      } else {
        left &= left - 1;
        for (int row = 0; row < reached; ++row, cell += rowWords) {
          for (int column = 0; column < reached; ++column) {
            const __m128i weight = _mm_set1_epi32(batch.weight[row][column][lane]);
            addTo(cell + column * words, _mm_madd_epi16(values, weight));
            if (channels == 4) {
              addTo(cell + column * words + 4, _mm_madd_epi16(_mm_setr_epi32(1, 0, 0, 0), weight));
            }
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace kvl
