// The row kernels of the selective sharpens.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

constexpr int maxSharpenNeighbours = 8;

// What a pixel is compared with: byte offsets of the same component of its neighbours.
struct SharpenNeighbours {
  ptrdiff_t offsets[maxSharpenNeighbours];
  int count;
};

// floor(n * share) for every byte n, as n * whole + (n * fraction >> 16). `exact` is false where no
// fraction gives all of them.
struct SharpenMultiplier {
  uint16_t whole;
  uint16_t fraction;
  bool exact;
};

struct SharpenGain {
  int32_t threshold;
  // 8 * threshold, wrapped to 32 bits.
  int32_t contrastLimit;
  float gain;
  // (gain - 1) / max(1, N) of a pixel with N neighbours.
  double share[maxSharpenNeighbours + 1];
  // The same as integers, for the numbers of neighbours that whole rows have.
  SharpenMultiplier multiplier[maxSharpenNeighbours + 1];
};

// Sharpens `count` bytes that all have the same neighbours. out overlaps no input.
using SharpenKernel = void (*)(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                               const SharpenNeighbours& neighbours, const SharpenGain& gain);

struct SharpenKernels {
  // Where the contrast reaches its limit, the truncated products of centre and gain and of each
  // neighbour and minus its share are added up.
  SharpenKernel simple;
  // The same with one product of the neighbours' sum and minus the share.
  SharpenKernel modifiedSimple;
  // The gain grows with the contrast above the threshold, and neighbours pull by their part of it.
  SharpenKernel smooth;
};

SharpenKernels sharpenKernels(InstructionSet level);
void addSimpleSharpenAvx2(SharpenKernels& kernels);
void addSmoothSharpenAvx2(SharpenKernels& kernels);
extern const SharpenKernels scalarSharpenKernels;

}  // namespace kvl
