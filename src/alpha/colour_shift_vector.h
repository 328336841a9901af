// The vector body of the colour shift, at the width of the file that includes it.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstring>

#include "alpha/colour_shift_kernels.h"

namespace kvl {
namespace {

// A lane of 16 bytes holds four pixels. It is loaded from where it ends with the block at the
// latest, so that nothing behind is read.
constexpr ptrdiff_t laneBytes = 12;
constexpr ptrdiff_t blockBytes = 48;
constexpr ptrdiff_t lastLoad = blockBytes - 16;

constexpr ptrdiff_t loadOffset(ptrdiff_t lane) {
  return lane * laneBytes < lastLoad ? lane * laneBytes : lastLoad;
}

#if defined(__AVX2__)

using Integers = __m256i;
using Floats = __m256;

inline Integers loadLanes(const uint8_t* block, ptrdiff_t lane) {
  const auto* low = reinterpret_cast<const __m128i*>(block + loadOffset(lane));
  const auto* high = reinterpret_cast<const __m128i*>(block + loadOffset(lane + 1));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(low)),
                                 _mm_loadu_si128(high), 1);
}
// The first twelve bytes of each lane.
inline void storeLanes(uint8_t* p, Integers v) {
  const Integers joined = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(joined));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p + 16), _mm256_extracti128_si256(joined, 1));
}
inline Integers loadConstant(const uint8_t* p) {
  return _mm256_load_si256(reinterpret_cast<const Integers*>(p));
}
inline Integers shuffle8(Integers v, Integers from) {
  return _mm256_shuffle_epi8(v, from);
}
inline Integers packBytes(Integers a, Integers b, Integers c) {
  return _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, c));
}
inline Floats toFloats(Integers v) {
  return _mm256_cvtepi32_ps(v);
}
inline Integers toNearest(Floats v) {
  return _mm256_cvtps_epi32(v);
}
inline Floats splat(float v) {
  return _mm256_set1_ps(v);
}
// Not-a-number in the second operand stays.
inline Floats minimum(Floats a, Floats b) {
  return _mm256_min_ps(a, b);
}

#else

using Integers = __m128i;
using Floats = __m128;

inline Integers loadLanes(const uint8_t* block, ptrdiff_t lane) {
  return _mm_loadu_si128(reinterpret_cast<const Integers*>(block + loadOffset(lane)));
}
inline void storeLanes(uint8_t* p, Integers v) {
  _mm_storel_epi64(reinterpret_cast<Integers*>(p), v);
  const int32_t last = _mm_cvtsi128_si32(_mm_srli_si128(v, 8));
  std::memcpy(p + 8, &last, sizeof last);
}
inline Integers loadConstant(const uint8_t* p) {
  return _mm_load_si128(reinterpret_cast<const Integers*>(p));
}
inline Integers shuffle8(Integers v, Integers from) {
  return _mm_shuffle_epi8(v, from);
}
inline Integers packBytes(Integers a, Integers b, Integers c) {
  return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, c));
}
inline Floats toFloats(Integers v) {
  return _mm_cvtepi32_ps(v);
}
inline Integers toNearest(Floats v) {
  return _mm_cvtps_epi32(v);
}
inline Floats splat(float v) {
  return _mm_set1_ps(v);
}
inline Floats minimum(Floats a, Floats b) {
  return _mm_min_ps(a, b);
}

#endif

constexpr ptrdiff_t vectorLanes = sizeof(Integers) / 16;
constexpr ptrdiff_t vectorsPerBlock = 4 / vectorLanes;

struct Shuffle {
  alignas(sizeof(Integers)) uint8_t from[sizeof(Integers)];
};

// Takes a component of four pixels out of each lane of a vector of a block, as 32-bit integers.
constexpr Shuffle splitShuffle(ptrdiff_t vector, ptrdiff_t component) {
  Shuffle shuffle{};
  for (ptrdiff_t i = 0; i < ptrdiff_t{sizeof(Integers)}; ++i) {
    const ptrdiff_t lane = vector * vectorLanes + i / 16;
    const ptrdiff_t at = lane * laneBytes - loadOffset(lane) + i % 16 / 4 * 3 + component;
    shuffle.from[i] = static_cast<uint8_t>(i % 4 == 0 ? at : 0x80);
  }
  return shuffle;
}

// Brings four bytes of each component back into the order of pixels.
constexpr Shuffle joinShuffle() {
  Shuffle shuffle{};
  for (ptrdiff_t i = 0; i < ptrdiff_t{sizeof(Integers)}; ++i) {
    const ptrdiff_t at = i % 16;
    shuffle.from[i] = static_cast<uint8_t>(at < laneBytes ? at % 3 * 4 + at / 3 : 0x80);
  }
  return shuffle;
}

struct Shuffles {
  Shuffle split[vectorsPerBlock][3];
  Shuffle join;
};

constexpr Shuffles makeShuffles() {
  Shuffles shuffles{};
  for (ptrdiff_t vector = 0; vector < vectorsPerBlock; ++vector) {
    for (ptrdiff_t c = 0; c < 3; ++c) shuffles.split[vector][c] = splitShuffle(vector, c);
  }
  shuffles.join = joinShuffle();
  return shuffles;
}

constexpr Shuffles shuffles = makeShuffles();

struct Pixels {
  Floats blue;
  Floats green;
  Floats red;
};

inline Floats luminance(const Pixels& p) {
  return splat(0.587f) * p.green + splat(0.299f) * p.red + splat(0.114f) * p.blue;
}

// What lies below 0 becomes 0 when it is packed, and so does not-a-number.
inline Integers toIntegers(Floats v) {
  return toNearest(minimum(splat(255), v));
}

template <bool byRatio>
inline Pixels restoreLuminance(Pixels p, Floats before) {
  const Floats after = luminance(p);
  if constexpr (byRatio) {
    const Floats ratio = before / after;
    return {p.blue * ratio, p.green * ratio, p.red * ratio};
  }
  const Floats difference = before - after;
  p.red = p.red + difference;
  p.blue = p.blue + difference;
  p.green = (before - splat(0.299f) * p.red - splat(0.114f) * p.blue) * splat(1.7035775f);
  return p;
}

template <bool byRatio>
void shiftBlocks(uint8_t* pixels, int32_t count, const ColourShiftFactors& factors) {
  const Pixels scale = {splat(factors.scale[0]), splat(factors.scale[1]), splat(factors.scale[2])};
  const Pixels offset = {splat(factors.offset[0]), splat(factors.offset[1]),
                         splat(factors.offset[2])};
  for (int32_t block = 0; block < count; ++block, pixels += blockBytes) {
    for (ptrdiff_t vector = 0; vector < vectorsPerBlock; ++vector) {
      const ptrdiff_t lane = vector * vectorLanes;
      const Integers bytes = loadLanes(pixels, lane);
      const auto component = [&](int c) {
        return toFloats(shuffle8(bytes, loadConstant(shuffles.split[vector][c].from)));
      };
      Pixels p = {component(0), component(1), component(2)};
      const Floats before = luminance(p);
      p.blue = p.blue * scale.blue + offset.blue;
      p.green = p.green * scale.green + offset.green;
      p.red = p.red * scale.red + offset.red;
      p = restoreLuminance<byRatio>(p, before);
      const Integers packed = packBytes(toIntegers(p.blue), toIntegers(p.green), toIntegers(p.red));
      storeLanes(pixels + lane * laneBytes, shuffle8(packed, loadConstant(shuffles.join.from)));
    }
  }
}

void shift(uint8_t* pixels, int32_t count, const ColourShiftFactors& factors) {
  if (factors.preserveByRatio) {
    shiftBlocks<true>(pixels, count, factors);
  } else {
    shiftBlocks<false>(pixels, count, factors);
  }
}

}  // namespace
}  // namespace kvl
