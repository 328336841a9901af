// The line kernels of the classic blur. All sums and products are those of 32-bit integers that
// wrap, and all kernels leave out taps that lie beyond a line's ends.
#pragma once

#include <cstdint>

#include "core/instruction_set.h"
#include "filters/line_pass.h"

namespace kvl {

// Neighbours up to `extent` pixels away with a value v near the centre's m weigh
// g = max(0, threshold - |m - v|) each, the centre centreWeight - sum of g; centreWeight is
// 2 * extent * threshold and reciprocal 2^24 / centreWeight.
struct SelectiveLineWeights {
  int32_t extent;
  int32_t threshold;
  int32_t centreWeight;
  int32_t reciprocal;
};

// Taps up to `reach` pixels away count fully and the two beyond them edge / 2^15, below 1;
// reciprocal is in units of 1 / 2^24. An edge of 0 means that there are none.
struct PlainBoxWeights {
  int64_t reach;
  uint32_t reciprocal;
  int32_t edge;
};

constexpr int32_t nearExtent = 240;
constexpr int32_t nearThreshold = INT16_MAX;

struct ClassicBlurKernels {
  // ((centre weight * m + sum of g * v) * reciprocal + 2^23) >> 24
  void (*selective)(const LinePass& bundle, const SelectiveLineWeights& weights);
  // The same for an extent up to nearExtent and a threshold up to nearThreshold.
  void (*selectiveNear)(const LinePass& bundle, const SelectiveLineWeights& weights);
  // (reciprocal * (sum of full taps + ((edge * sum of edge taps + 2^14) >> 15)) + 2^23) >> 24
  void (*plainBox)(const LinePass& bundle, const PlainBoxWeights& weights);
};

ClassicBlurKernels classicBlurKernels(InstructionSet level);
void addClassicBlurAvx2(ClassicBlurKernels& kernels);

}  // namespace kvl
