// The vector bodies of the conversions from RGB. Each takes whole blocks of 16 pixels. The first five
// give results of their own, which the scalar bodies that finish a row do not repeat: how many
// blocks there are is part of what a caller sees.
#pragma once

#include <cstddef>
#include <cstdint>

#include "convert/rgb_to_yuv.h"
#include "core/instruction_set.h"

namespace kvl {

enum class Yuv422Order { yuy2, uyvy };

constexpr ptrdiff_t pixelsPerBlock = 16;

// Null where the level has no vector body. A block of B, G, R triples is 48 bytes, one of B, G, R, X
// quads 64; no byte beyond the blocks is read.
struct RgbBlocks {
  // 16-bit sums that wrap:
  //   y = ((luma sum + 128) >> 8) + 16
  //   u = (((first sum + 128) >> 8) + ((second sum + 128) >> 8) >> 1) + 128 for each pair of pixels
  // Bits of a luma above its byte are added to what follows within the 16 bytes of 8 pixels.
  void (*yuv422From24)(uint8_t* out, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours,
                       Yuv422Order order) = nullptr;
  void (*yuv422From32)(uint8_t* out, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours,
                       Yuv422Order order) = nullptr;
  // y = min(255, (min(65535, luma sum in 16 bits + 128) >> 8) + low byte of the offset)
  void (*luma)(uint8_t* y, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours) = nullptr;
  // The same luma, and u = clamp((sum in 16 bits +- 128) >> 8) + uOffset + 128), 128 being taken
  // off a negative sum.
  void (*planes)(uint8_t* y, uint8_t* u, uint8_t* v, const uint8_t* in, ptrdiff_t blocks,
                 const RgbToYuv& colours) = nullptr;
  // out[i] = (a[2i] + a[2i + 1] + b[2i] + b[2i + 1] + 2) >> 2, 16 outputs a block.
  void (*average2x2)(uint8_t* out, const uint8_t* a, const uint8_t* b, ptrdiff_t blocks) = nullptr;
  // out[i] = in[2i], and out[i] = (a[2i] + b[2i] + 1) >> 1, 16 outputs a block.
  void (*evenColumns)(uint8_t* out, const uint8_t* in, ptrdiff_t blocks) = nullptr;
  void (*averageEven)(uint8_t* out, const uint8_t* a, const uint8_t* b, ptrdiff_t blocks) = nullptr;
  // B, G, R to B, G, R, 0.
  void (*expand)(uint8_t* out, const uint8_t* in, ptrdiff_t blocks) = nullptr;
};

RgbBlocks rgbBlocks(InstructionSet level);
void addRgbBlocksSsse3(RgbBlocks& blocks);
void addRgbBlocksAvx2(RgbBlocks& blocks);

}  // namespace kvl
