// RGB to YUV the plain way: one pixel at a time, and the lanes of the vector results one by one.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "kvl/kvl.h"
#include "support/test_image.h"

namespace kvl::test {

struct Rgb {
  int r, g, b;
};

struct Yuv {
  int y, u, v;
};

// Y, U and V before offsets and clamping, as the scalar formulas say.
Yuv scalarYuv(const ColorConversionParams& p, Rgb pixel);

// The factors' sums in 16 bits that wrap.
Yuv sums16(const ColorConversionParams& p, Rgb pixel);

// The luma of the vector bodies of planes.
uint8_t vectorLuma(const ColorConversionParams& p, Rgb pixel);

// Y0 U Y1 V, or U Y0 V Y1, of a pair by the scalar formula.
std::array<uint8_t, 4> scalarPair(const ColorConversionParams& p, Rgb first, Rgb second,
                                  bool lumaFirst);

// The 16 bytes of 8 pixels as two registers that are added.
std::array<uint8_t, 16> vectorPairs(const ColorConversionParams& p,
                                    const std::array<Rgb, 8>& pixels, bool lumaFirst);

// The two blocks as published: truncated factors, studio luma, chroma centred on 0.
ColorConversionParams builtInBlock(bool bt601);

// Factors whose sums stay small, or any numbers at all.
ColorConversionParams randomBlock(Random& random, bool wild);

}  // namespace kvl::test
