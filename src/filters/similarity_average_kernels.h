// The sampling kernel of the zoom and radial blurs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// Scaling and rotation by which a sample lies off its pixel, in units of 2^-30: with d the pixel's
// offset from the centre, the sample is at
// d + (scale * d.x - turn * d.y, turn * d.x + scale * d.y).
struct SimilaritySample {
  int32_t scale;
  int32_t turn;
};

// A copy of the source in which every sample is followed by the one below it, with 1 or 4 samples a
// pixel, so that one load brings the four pixels that a bilinear sample blends. What lies outside
// the image has the weight 0. Sixteen bytes are readable from every pixel.
struct SampledImage {
  const uint8_t* pixels;
  ptrdiff_t stride;
  int32_t width;
  int32_t height;
};

constexpr int pixelsPerBlock = 8;

// Eight neighbouring pixels, the first at (x, y) in pixels and at (dx, dy) in 1/256 pixel from the
// centre. Later ones may lie outside the image.
struct SampledBlock {
  int32_t x;
  int32_t y;
  int32_t dx;
  int32_t dy;
};

// sums[pixel * components + component] = the sum of the samples, each in 1/4096, for eight pixels.
using SumSamples = void (*)(const SampledImage& image, const SimilaritySample* samples,
                            int32_t count, const SampledBlock& block, uint32_t* sums);

struct SimilarityKernels {
  SumSamples oneComponent;
  SumSamples fourComponents;
};

SimilarityKernels similarityKernels(InstructionSet level);
// For images of less than 2^31 bytes.
void addSimilarityAvx2(SimilarityKernels& kernels);

}  // namespace kvl
