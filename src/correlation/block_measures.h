// The sums over the pixels of a block that scores are made of.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// `rows` rows of `pixels` bytes in each image; the mask only where a measure takes one.
struct PixelRows {
  const uint8_t* a;
  ptrdiff_t strideA;
  const uint8_t* b;
  ptrdiff_t strideB;
  const uint8_t* mask;
  ptrdiff_t strideMask;
  ptrdiff_t pixels;
  ptrdiff_t rows;
};

using BlockMeasure = uint64_t (*)(const PixelRows& rows);

struct BlockMeasures {
  // Sum of (b - a)^2.
  BlockMeasure squaredDifferences;
  // Sum of (255 - mask) * (b - a)^2.
  BlockMeasure maskedSquaredDifferences;
  // Sum of max(0, b - a).
  BlockMeasure brightening;
};

BlockMeasures blockMeasures(InstructionSet level);
void addBlockMeasuresSsse3(BlockMeasures& measures);
void addBlockMeasuresAvx2(BlockMeasures& measures);

}  // namespace kvl
