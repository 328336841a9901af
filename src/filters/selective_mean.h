// The selectively weighted mean: what the square and the separable selective blur have in common.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// A neighbour n of a centre m weighs max(0, threshold - |m - n|); the centre takes what is left of
// the normaliser. The mean is multiplied by reciprocal = 65536 / normaliser and shifted down by 16.
struct SelectiveWeights {
  int32_t threshold;
  int32_t normaliser;
  int32_t reciprocal;
};

// False when neighbours * threshold is below 1 or does not fit in a signed 32-bit integer.
bool makeSelectiveWeights(int64_t neighbours, int32_t threshold, SelectiveWeights& weights);

// Two runs of neighbours, read side by side: tap t of output byte i is first[i + 3 * t] and
// second[i + 3 * t].
struct TapRun {
  const uint8_t* first;
  const uint8_t* second;
  int32_t taps;
};

// The means of `count` bytes from `centre` on, over every tap of `runs`, all of them readable. The
// reciprocal is not 0, so that no term exceeds 255 * 65536. The centre may be among the taps: its
// own weight goes back to itself. out overlaps no input.
using SelectiveMeanKernel = void (*)(const uint8_t* centre, const TapRun* runs, int runCount,
                                     uint8_t* out, ptrdiff_t count,
                                     const SelectiveWeights& weights);

void selectiveMeanScalar(const uint8_t* centre, const TapRun* runs, int runCount, uint8_t* out,
                         ptrdiff_t count, const SelectiveWeights& weights);
void selectiveMeanAvx2(const uint8_t* centre, const TapRun* runs, int runCount, uint8_t* out,
                       ptrdiff_t count, const SelectiveWeights& weights);
SelectiveMeanKernel selectiveMeanKernel(InstructionSet level);

// A 24-bit image and the half-sizes in pixels of the neighbourhood, which is cut at its borders.
struct SelectiveSource {
  const uint8_t* bits;
  ptrdiff_t stride;
  int32_t width;
  int32_t height;
  int32_t horizontalRadius;
  int32_t verticalRadius;
  SelectiveWeights weights;
  SelectiveMeanKernel kernel;
};

// The means of pixels [first, last) of row y, one after the other in `out`.
void selectiveMeanOfRow(const SelectiveSource& source, int32_t y, int32_t first, int32_t last,
                        uint8_t* out);

}  // namespace kvl
