// The line kernel of the averaging blurs.
#pragma once

#include <cstdint>

#include "core/instruction_set.h"
#include "filters/line_pass.h"

namespace kvl {

// A box of 2 * reach + 1 full taps, and a fraction of the tap beyond either end, as fixed-point
// weights in units of 1 / 2^shift.
struct BoxWeights {
  int32_t reach;
  uint32_t full;
  uint32_t edge;
  int shift;
};

struct AveragingBlurKernels {
  // Each sample of each line, samples beyond a line's ends repeating the end sample:
  //   min(255, (full * sum of p[i - reach .. i + reach]
  //             + edge * (p[i - reach - 1] + p[i + reach + 1]) + 2^(shift - 1)) >> shift)
  // Lines have at least two pixels.
  void (*blurLines)(const LinePass& bundle, const BoxWeights& weights);
};

AveragingBlurKernels averagingBlurKernels(InstructionSet level);
void addAveragingBlurAvx2(AveragingBlurKernels& kernels);

// The weights of a whole radius of at least 1 and of a fractional radius of [0, 2^31).
BoxWeights boxWeights(int32_t radius);
BoxWeights fractionalBoxWeights(float radius);

}  // namespace kvl
