// The vector body of the premultiplication, at the width of the file that includes it.
#pragma once

#include <cstring>

#include "alpha/premultiply_kernels.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

constexpr ptrdiff_t blockPixels = 16;
// Three vectors of colour have one vector of alpha.
constexpr ptrdiff_t stepPixels = vectorBytes;

// The alphas of one vector of colour lie within 16 bytes from `base` on. Each lane takes its own
// from there: those of its low half as words, then those of its high half.
struct AlphaOfColour {
  ptrdiff_t base;
  alignas(vectorBytes) uint8_t low[vectorBytes];
  alignas(vectorBytes) uint8_t high[vectorBytes];
};

constexpr AlphaOfColour alphaOfColour(ptrdiff_t vector) {
  const ptrdiff_t firstPixel = vector * vectorBytes / 3;
  AlphaOfColour from{};
  from.base = firstPixel < stepPixels - 16 ? firstPixel : stepPixels - 16;
  for (ptrdiff_t i = 0; i < vectorBytes; ++i) {
    const ptrdiff_t lane = vector * vectorBytes + i / 16 * 16;
    const ptrdiff_t word = i % 16 / 2;
    const bool filler = i % 2 != 0;
    from.low[i] = static_cast<uint8_t>(filler ? 0x80 : (lane + word) / 3 - from.base);
    from.high[i] = static_cast<uint8_t>(filler ? 0x80 : (lane + 8 + word) / 3 - from.base);
  }
  return from;
}

constexpr AlphaOfColour alphas[3] = {alphaOfColour(0), alphaOfColour(1), alphaOfColour(2)};

#if defined(__AVX2__)
inline Vector loadInEachLane(const uint8_t* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
inline Vector shuffle8(Vector v, Vector from) {
  return _mm256_shuffle_epi8(v, from);
}
inline Vector scaledWords(Vector x, Vector a) {
  const Vector rounded = _mm256_add_epi16(_mm256_mullo_epi16(x, a), splat16(127));
  return _mm256_mulhi_epu16(rounded, splat16(257));
}
inline bool allAre(Vector v, int8_t value) {
  return _mm256_movemask_epi8(_mm256_cmpeq_epi8(v, splat8(value))) == -1;
}
#else
inline Vector loadInEachLane(const uint8_t* p) {
  return load(p);
}
inline Vector shuffle8(Vector v, Vector from) {
  return _mm_shuffle_epi8(v, from);
}
inline Vector scaledWords(Vector x, Vector a) {
  const Vector rounded = _mm_add_epi16(_mm_mullo_epi16(x, a), splat16(127));
  return _mm_mulhi_epu16(rounded, splat16(257));
}
inline bool allAre(Vector v, int8_t value) {
  return _mm_movemask_epi8(_mm_cmpeq_epi8(v, splat8(value))) == 0xFFFF;
}
#endif

inline void premultiplyStep(uint8_t* colour, const uint8_t* alpha) {
  const Vector zero = zeroVector();
  const Vector all = load(alpha);
  if (allAre(all, -1)) return;
  if (allAre(all, 0)) {
    for (ptrdiff_t i = 0; i < 3; ++i) store(colour + i * vectorBytes, zero);
    return;
  }
  for (ptrdiff_t i = 0; i < 3; ++i) {
    uint8_t* at = colour + i * vectorBytes;
    const Vector x = load(at);
    const Vector a = loadInEachLane(alpha + alphas[i].base);
    const Vector low = scaledWords(unpackLow8(x, zero), shuffle8(a, load(alphas[i].low)));
    const Vector high = scaledWords(unpackHigh8(x, zero), shuffle8(a, load(alphas[i].high)));
    store(at, packUnsigned16(low, high));
  }
}

void premultiplyBlocks(uint8_t* colour, const uint8_t* alpha, int32_t count) {
  ptrdiff_t pixels = count * blockPixels;
  for (; pixels >= stepPixels; pixels -= stepPixels) {
    premultiplyStep(colour, alpha);
    colour += 3 * stepPixels;
    alpha += stepPixels;
  }
  if (pixels == 0) return;
  const auto rest = static_cast<size_t>(pixels);
  uint8_t restOfColour[3 * stepPixels] = {}, restOfAlpha[stepPixels] = {};
  std::memcpy(restOfColour, colour, 3 * rest);
  std::memcpy(restOfAlpha, alpha, rest);
  premultiplyStep(restOfColour, restOfAlpha);
  std::memcpy(colour, restOfColour, 3 * rest);
}

}  // namespace
}  // namespace kvl
