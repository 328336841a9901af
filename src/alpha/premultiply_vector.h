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

inline Vector scaledWords(Vector x, Vector a) {
  return multiplyHighUnsigned16(add16(multiplyLow16(x, a), splat16(127)), splat16(257));
}

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
    const Vector a = repeatLane(alpha + alphas[i].base);
    const Vector low = scaledWords(unpackLow8(x, zero), shuffleBytes(a, load(alphas[i].low)));
    const Vector high = scaledWords(unpackHigh8(x, zero), shuffleBytes(a, load(alphas[i].high)));
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
