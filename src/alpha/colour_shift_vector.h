// The vector body of the colour shift, at the width of the file that includes it.
#pragma once

#include "alpha/colour_shift_kernels.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

// A block is four groups of four pixels. Each is loaded into a lane of 16 bytes, from where that
// ends with the block at the latest, so that nothing behind is read.
constexpr ptrdiff_t groupBytes = 12;
constexpr ptrdiff_t blockBytes = 48;
constexpr ptrdiff_t lastLoad = blockBytes - 16;

constexpr ptrdiff_t loadOffset(ptrdiff_t group) {
  return group * groupBytes < lastLoad ? group * groupBytes : lastLoad;
}

#if defined(__AVX2__)

// Each lane becomes the 16 bytes of `front` and the first 8 of `rest`.
inline void storePairs(uint8_t* p, Vector front, Vector rest) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(front));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p + 16), _mm256_castsi256_si128(rest));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 24), _mm256_extracti128_si256(front, 1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(p + 40), _mm256_extracti128_si256(rest, 1));
}
// The last four bytes of each lane from `last`.
inline Vector replaceEnd(Vector v, Vector last) {
  return _mm256_blend_epi32(v, last, 0x88);
}
// Not-a-number in the second operand stays.
inline Floats minimum(Floats a, Floats b) {
  return _mm256_min_ps(a, b);
}

#else

inline void storePairs(uint8_t* p, Vector front, Vector rest) {
  _mm_storeu_si128(reinterpret_cast<Vector*>(p), front);
  _mm_storel_epi64(reinterpret_cast<Vector*>(p + 16), rest);
}
inline Vector replaceEnd(Vector v, Vector last) {
  const Vector end = _mm_setr_epi32(0, 0, 0, -1);
  return _mm_or_si128(_mm_andnot_si128(end, v), _mm_and_si128(end, last));
}
inline Floats minimum(Floats a, Floats b) {
  return _mm_min_ps(a, b);
}

#endif

// The group, and in the second lane the group after the next.
inline Vector loadGroups(const uint8_t* block, ptrdiff_t group) {
  return loadLanes(block + loadOffset(group), block + loadOffset(group + 2));
}

// Two vectors, of neighbouring groups in each lane.
constexpr ptrdiff_t stepGroups = 2 * laneCount;

struct Shuffle {
  alignas(vectorBytes) uint8_t from[vectorBytes];
};

// Takes a component of the four pixels out of each lane, as 32-bit integers.
constexpr Shuffle splitShuffle(ptrdiff_t firstGroup, ptrdiff_t component) {
  Shuffle shuffle{};
  for (ptrdiff_t i = 0; i < vectorBytes; ++i) {
    const ptrdiff_t group = firstGroup + i / 16 * 2;
    const ptrdiff_t at = group * groupBytes - loadOffset(group) + i % 16 / 4 * 3 + component;
    shuffle.from[i] = static_cast<uint8_t>(i % 4 == 0 ? at : 0x80);
  }
  return shuffle;
}

// Brings four bytes each of blue and green and, from `red` on, red back into the order of pixels:
// the lane's byte i is byte (start + i) % 16 of the group.
constexpr Shuffle joinShuffle(ptrdiff_t red, ptrdiff_t start) {
  Shuffle shuffle{};
  for (ptrdiff_t i = 0; i < vectorBytes; ++i) {
    const ptrdiff_t at = (start + i) % 16;
    const ptrdiff_t component[3] = {0, 4, red};
    shuffle.from[i] = static_cast<uint8_t>(at < groupBytes ? component[at % 3] + at / 3 : 0x80);
  }
  return shuffle;
}

struct Shuffles {
  Shuffle split[4][3];
  // Of the first of two neighbouring groups, and of the second, whose first four bytes end the
  // vector of the first.
  Shuffle join[2];
};

constexpr Shuffles makeShuffles() {
  Shuffles shuffles{};
  for (ptrdiff_t group = 0; group < 4; ++group) {
    for (ptrdiff_t c = 0; c < 3; ++c) shuffles.split[group][c] = splitShuffle(group, c);
  }
  shuffles.join[0] = joinShuffle(8, 0);
  shuffles.join[1] = joinShuffle(12, 4);
  return shuffles;
}

constexpr Shuffles shuffles = makeShuffles();

// Two vectors go through each step side by side, because the steps of one wait for each other.
struct Two {
  Floats a;
  Floats b;
};

inline Two operator+(const Two& x, const Two& y) {
  return {x.a + y.a, x.b + y.b};
}
inline Two operator-(const Two& x, const Two& y) {
  return {x.a - y.a, x.b - y.b};
}
inline Two operator*(const Two& x, const Two& y) {
  return {x.a * y.a, x.b * y.b};
}
inline Two operator/(const Two& x, const Two& y) {
  return {x.a / y.a, x.b / y.b};
}
inline Two both(Floats v) {
  return {v, v};
}
inline Two both(float v) {
  return both(splat(v));
}

struct Pixels {
  Two blue;
  Two green;
  Two red;
};

inline Two luminance(const Pixels& p) {
  return both(0.587f) * p.green + both(0.299f) * p.red + both(0.114f) * p.blue;
}

template <bool byRatio>
inline Pixels restoreLuminance(Pixels p, const Two& before) {
  const Two after = luminance(p);
  if constexpr (byRatio) {
    const Two ratio = before / after;
    return {p.blue * ratio, p.green * ratio, p.red * ratio};
  }
  const Two difference = before - after;
  p.red = p.red + difference;
  p.blue = p.blue + difference;
  p.green = (before - both(0.299f) * p.red - both(0.114f) * p.blue) * both(1.7035775f);
  return p;
}

// What lies below 0 becomes 0 when it is packed, and so does not-a-number. What lies above 255 but
// fits in an integer becomes 255 there too.
template <bool isBounded>
inline Vector toIntegers(Floats v) {
  return toNearest32(isBounded ? v : minimum(splat(255), v));
}

template <bool isBounded>
inline void storePixels(uint8_t* at, const Pixels& p) {
  const auto words = [](Floats x, Floats y) {
    return packSigned32(toIntegers<isBounded>(x), toIntegers<isBounded>(y));
  };
  const Vector red = words(p.red.a, p.red.b);
  const Vector first = packUnsigned16(words(p.blue.a, p.green.a), red);
  const Vector second = packUnsigned16(words(p.blue.b, p.green.b), red);
  const Vector rest = shuffleBytes(second, loadAligned(shuffles.join[1].from));
  storePairs(at, replaceEnd(shuffleBytes(first, loadAligned(shuffles.join[0].from)), rest), rest);
}

template <bool byRatio, bool isBounded>
void shiftBlocks(uint8_t* pixels, int32_t count, const ColourShiftFactors& factors) {
  Two scale[3], offset[3];
  for (int c = 0; c < 3; ++c) {
    scale[c] = both(factors.scale[c]);
    offset[c] = both(factors.offset[c]);
  }
  for (int32_t block = 0; block < count; ++block, pixels += blockBytes) {
    for (ptrdiff_t group = 0; group < 4; group += stepGroups) {
      const Vector a = loadGroups(pixels, group), b = loadGroups(pixels, group + 1);
      const auto component = [&](int c) {
        return Two{toFloats(shuffleBytes(a, loadAligned(shuffles.split[group][c].from))),
                   toFloats(shuffleBytes(b, loadAligned(shuffles.split[group + 1][c].from)))};
      };
      Pixels p = {component(0), component(1), component(2)};
      const Two before = luminance(p);
      p.blue = p.blue * scale[0] + offset[0];
      p.green = p.green * scale[1] + offset[1];
      p.red = p.red * scale[2] + offset[2];
      storePixels<isBounded>(pixels + group * groupBytes, restoreLuminance<byRatio>(p, before));
    }
  }
}

// Whether no result can be too large for an integer. The shifted luminance is then 1/128 of the
// original at least.
inline bool isBounded(const ColourShiftFactors& factors) {
  bool bounded = true;
  for (int c = 0; c < 3; ++c) {
    bounded = bounded && factors.scale[c] >= 1.0f / 128 && factors.scale[c] <= 1;
    bounded = bounded && factors.offset[c] >= 0 && factors.offset[c] <= 255;
  }
  return bounded;
}

void shift(uint8_t* pixels, int32_t count, const ColourShiftFactors& factors) {
  if (!isBounded(factors)) {
    const auto blocks =
        factors.preserveByRatio ? shiftBlocks<true, false> : shiftBlocks<false, false>;
    blocks(pixels, count, factors);
  } else {
    const auto blocks =
        factors.preserveByRatio ? shiftBlocks<true, true> : shiftBlocks<false, true>;
    blocks(pixels, count, factors);
  }
}

}  // namespace
}  // namespace kvl
