// The row kernel of the directional blur.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// Two bytes that every output takes, relative to its own position, with their weights.
struct TapPair {
  const uint8_t* first;
  const uint8_t* second;
  int16_t firstWeight;
  int16_t secondWeight;
};

// Each tap can be read, and each sum read and written, up to `count` rounded up to a multiple of
// convolutionBlock. The divisor, at most 2^24, is the sum of the weights of the whole line.
struct DirectionalKernels {
  // out[i] = (the weighted sum of all taps at i + divisor / 2) / divisor, for i of [0, count). The
  // weights are positive.
  void (*convolve)(const TapPair* pairs, int32_t pairCount, uint32_t divisor, uint8_t* out,
                   ptrdiff_t count);
  // sums[i] += the weighted sum of all taps at i
  void (*accumulate)(const TapPair* pairs, int32_t pairCount, uint32_t* sums, ptrdiff_t count);
  // out[i] = (sums[i] + divisor / 2) / divisor
  void (*divide)(const uint32_t* sums, uint32_t divisor, uint8_t* out, ptrdiff_t count);
};

constexpr ptrdiff_t convolutionBlock = 32;

DirectionalKernels directionalKernels(InstructionSet level);
void addDirectionalAvx2(DirectionalKernels& kernels);

}  // namespace kvl
