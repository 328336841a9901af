// Rows of colour with a plane of alpha beside them.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

struct ColourAndAlpha {
  uint8_t* colour;
  int64_t colourStride;
  const uint8_t* alpha;
  int64_t alphaStride;
  int32_t width;
  int32_t lines;
};

// The geometry that two headers tell, with no lines where there is nothing to do. A negative width
// sets g_strideOverflow.
ColourAndAlpha colourAndAlpha(const BITMAPINFOHEADER* colourHeader, uint8_t* colourBits,
                              const BITMAPINFOHEADER* alphaHeader, const uint8_t* alphaBits);

// False for null pointers, counts below 1 and rows that do not fit in the address space.
bool isUsable(const ColourAndAlpha& image);

constexpr int32_t alphaBlockPixels = 16;

// blocks(colour, alpha, count) for the whole blocks of 16 pixels of each line, unless it is null,
// and pixels(colour, alpha, count) for what is left of it.
template <class Pixels>
void forEachLine(const ColourAndAlpha& image,
                 void (*blocks)(uint8_t* colour, const uint8_t* alpha, int32_t count),
                 const Pixels& pixels) {
  const int32_t blockCount = blocks != nullptr ? image.width / alphaBlockPixels : 0;
  const int32_t inBlocks = blockCount * alphaBlockPixels;
  for (int32_t y = 0; y < image.lines; ++y) {
    uint8_t* colour = image.colour + y * image.colourStride;
    const uint8_t* alpha = image.alpha + y * image.alphaStride;
    if (blockCount > 0) blocks(colour, alpha, blockCount);
    pixels(colour + int64_t{inBlocks} * 3, alpha + inBlocks, image.width - inBlocks);
  }
}

}  // namespace kvl
