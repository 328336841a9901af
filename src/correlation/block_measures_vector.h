// The vector bodies of the block measures, at the width of the file that includes it.
#pragma once

#include "core/wide_vector.h"
#include "correlation/block_measures.h"

namespace kvl {
namespace {

#if defined(__AVX2__)

inline Vector fromHalf(__m128i v) {
  return _mm256_zextsi128_si256(v);
}
inline Vector sumsOfBytes(Vector v) {
  return _mm256_sad_epu8(v, _mm256_setzero_si256());
}
// Signed 32-bit lanes to 64-bit ones; which lane goes where does not matter to a sum.
inline Vector lanesTo64(Vector v) {
  return _mm256_add_epi64(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(v)),
                          _mm256_cvtepi32_epi64(_mm256_extracti128_si256(v, 1)));
}
inline uint64_t sumOf64(Vector v) {
  const __m128i half = _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  return static_cast<uint64_t>(_mm_cvtsi128_si64(half)) +
         static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(half, half)));
}

#else

inline Vector fromHalf(__m128i v) {
  return v;
}
inline Vector sumsOfBytes(Vector v) {
  return _mm_sad_epu8(v, _mm_setzero_si128());
}
inline Vector lanesTo64(Vector v) {
  const __m128i signs = _mm_srai_epi32(v, 31);
  return _mm_add_epi64(_mm_unpacklo_epi32(v, signs), _mm_unpackhi_epi32(v, signs));
}
inline uint64_t sumOf64(Vector v) {
  return static_cast<uint64_t>(_mm_cvtsi128_si64(v)) +
         static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(v, v)));
}

#endif

inline Vector load16(const uint8_t* p) {
  return fromHalf(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
inline Vector load8(const uint8_t* p) {
  return fromHalf(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}
// 1 to 7 bytes, zeros after them.
inline Vector loadFew(const uint8_t* p, ptrdiff_t count) {
  uint64_t bytes = 0;
  if (count >= 4) {
    uint32_t first, last;
    __builtin_memcpy(&first, p, 4);
    __builtin_memcpy(&last, p + count - 4, 4);
    bytes = first | static_cast<uint64_t>(last) << (8 * (count - 4));
  } else {
    bytes = p[0] | static_cast<uint64_t>(p[count / 2]) << (8 * (count / 2)) |
            static_cast<uint64_t>(p[count - 1]) << (8 * (count - 1));
  }
  return fromHalf(_mm_cvtsi64_si128(static_cast<int64_t>(bytes)));
}

// |a - b|
inline Vector distances(Vector a, Vector b) {
  return either(subtractUnsigned8(a, b), subtractUnsigned8(b, a));
}

// The terms of a measure, added up in lanes. Zeros in both images add nothing.
class SquaredSum {
 public:
  void add(Vector a, Vector b, Vector) {
    const Vector d = distances(a, b);
    const Vector low = unpackLow8(d, zeroVector());
    const Vector high = unpackHigh8(d, zeroVector());
    sums_ = add32(sums_, add32(multiplyAddPairs16(low, low), multiplyAddPairs16(high, high)));
  }

  // To be called after at most that many vectors, before lanes can overflow.
  static constexpr ptrdiff_t vectorsBeforeFlush = 4096;
  void flush() {
    total_ = add64(total_, lanesTo64(sums_));
    sums_ = zeroVector();
  }
  uint64_t total() const { return sumOf64(total_); }

 private:
  Vector sums_ = zeroVector();
  Vector total_ = zeroVector();
};

// The weighted distance fits in 16 unsigned bits; products are signed, so it is lowered by 2^15 and
// 2^15 times the distances are added at the end.
class MaskedSquaredSum {
 public:
  void add(Vector a, Vector b, Vector mask) {
    const Vector d = distances(a, b);
    const Vector weights = differing(mask, splat8(-1));
    sums_ = add32(sums_,
                  add32(lowered(unpackLow8(d, zeroVector()), unpackLow8(weights, zeroVector())),
                        lowered(unpackHigh8(d, zeroVector()), unpackHigh8(weights, zeroVector()))));
    distances_ = add64(distances_, sumsOfBytes(d));
  }

  static constexpr ptrdiff_t vectorsBeforeFlush = 32;
  void flush() {
    total_ = add64(total_, lanesTo64(sums_));
    sums_ = zeroVector();
  }
  uint64_t total() const { return sumOf64(total_) + (sumOf64(distances_) << 15); }

 private:
  static Vector lowered(Vector d, Vector weight) {
    return multiplyAddPairs16(differing(multiplyLow16(d, weight), splat16(INT16_MIN)), d);
  }

  Vector sums_ = zeroVector();
  Vector distances_ = zeroVector();
  Vector total_ = zeroVector();
};

class BrighteningSum {
 public:
  void add(Vector a, Vector b, Vector) {
    total_ = add64(total_, sumsOfBytes(subtractUnsigned8(b, a)));
  }

  static constexpr ptrdiff_t vectorsBeforeFlush = ptrdiff_t{1} << 40;
  void flush() {}
  uint64_t total() const { return sumOf64(total_); }

 private:
  Vector total_ = zeroVector();
};

template <class Sum, bool masked>
uint64_t measure(const PixelRows& rows) {
  Sum sum;
  ptrdiff_t waiting = 0;
  const ptrdiff_t whole = rows.pixels / vectorBytes * vectorBytes;
  for (ptrdiff_t y = 0; y < rows.rows; ++y) {
    const uint8_t* a = rows.a + y * rows.strideA;
    const uint8_t* b = rows.b + y * rows.strideB;
    const uint8_t* mask = masked ? rows.mask + y * rows.strideMask : a;
    const auto add = [&](ptrdiff_t x, auto loadAt) {
      sum.add(loadAt(a + x), loadAt(b + x), masked ? loadAt(mask + x) : zeroVector());
    };
    ptrdiff_t x = 0;
    while (x < whole) {
      const ptrdiff_t room = (Sum::vectorsBeforeFlush - waiting) * vectorBytes;
      const ptrdiff_t end = whole - x <= room ? whole : x + room;
      waiting += (end - x) / vectorBytes;
      for (; x < end; x += vectorBytes) add(x, load);
      if (waiting == Sum::vectorsBeforeFlush) {
        sum.flush();
        waiting = 0;
      }
    }
    if (x + 16 <= rows.pixels) {
      add(x, load16);
      x += 16;
    }
    if (x + 8 <= rows.pixels) {
      add(x, load8);
      x += 8;
    }
    const ptrdiff_t few = rows.pixels - x;
    if (few > 0) add(x, [few](const uint8_t* p) { return loadFew(p, few); });
    waiting += 3;
    if (waiting > Sum::vectorsBeforeFlush - 4) {
      sum.flush();
      waiting = 0;
    }
  }
  sum.flush();
  return sum.total();
}

BlockMeasures vectorMeasures() {
  return {measure<SquaredSum, false>, measure<MaskedSquaredSum, true>,
          measure<BrighteningSum, false>};
}

}  // namespace
}  // namespace kvl
