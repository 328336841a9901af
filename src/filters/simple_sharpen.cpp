#include "filters/simple_sharpen.h"

#include <algorithm>
#include <cstring>

#include "core/exact_math.h"
#include "core/parallel.h"
#include "filters/simple_sharpen_kernels.h"

namespace kvl {
namespace {

constexpr int neighbours = 8;
constexpr int32_t maxThreshold = 256;
constexpr int32_t maxGain = 32767;
constexpr int gainBits = 8;

void sharpenRowScalar(const uint8_t* above, const uint8_t* centre, const uint8_t* below,
                      uint8_t* out, ptrdiff_t count, ptrdiff_t step,
                      SharpenSimpleStrength strength) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const int sum = above[i - step] + above[i] + above[i + step] + centre[i - step] +
                    centre[i + step] + below[i - step] + below[i] + below[i + step];
    const int excess = neighbours * centre[i] - sum;
    const int magnitude = excess < 0 ? -excess : excess;
    if (magnitude < strength.minExcess) {
      out[i] = centre[i];
      continue;
    }
    constexpr int shift = gainBits + 3;
    const int change = (magnitude * strength.gain + (1 << (shift - 1))) >> shift;
    out[i] = static_cast<uint8_t>(std::clamp(centre[i] + (excess < 0 ? -change : change), 0, 255));
  }
}

struct Plan {
  OnePassImages images;
  SharpenSimpleStrength strength;
  SharpenSimpleKernels kernels;
};

// The first or last pixel of a row, whose missing neighbours repeat the pixel at the edge.
void sharpenEdge(const Plan& plan, const uint8_t* const* rows, uint8_t* out, int32_t x) {
  const ptrdiff_t step = plan.images.components;
  const auto last = static_cast<int32_t>(plan.images.width) - 1;
  uint8_t around[3][3 * 4];
  for (int row = 0; row < 3; ++row) {
    for (int d = -1; d <= 1; ++d) {
      std::memcpy(around[row] + (d + 1) * step, rows[row] + std::clamp(x + d, 0, last) * step,
                  static_cast<size_t>(step));
    }
  }
  sharpenRowScalar(around[0] + step, around[1] + step, around[2] + step, out + x * step, step, step,
                   plan.strength);
}

void sharpenRow(const Plan& plan, int32_t y) {
  const OnePassImages& images = plan.images;
  const auto lastRow = static_cast<int32_t>(images.height) - 1;
  const auto lastPixel = static_cast<int32_t>(images.width) - 1;
  const uint8_t* rows[3];
  for (int d = -1; d <= 1; ++d) rows[d + 1] = images.sourceRow(std::clamp(y + d, 0, lastRow));
  uint8_t* out = images.destinationRow(y);
  sharpenEdge(plan, rows, out, 0);
  if (lastPixel == 0) return;
  sharpenEdge(plan, rows, out, lastPixel);
  const ptrdiff_t step = images.components;
  plan.kernels.row(rows[0] + step, rows[1] + step, rows[2] + step, out + step,
                   (lastPixel - 1) * step, step, plan.strength);
}

}  // namespace

SharpenSimpleKernels sharpenSimpleKernels(InstructionSet level) {
  SharpenSimpleKernels kernels{sharpenRowScalar};
  if (level >= InstructionSet::avx2) addSharpenSimpleAvx2(kernels);
  return kernels;
}

void sharpenSimple(const OnePassImages& images, int32_t threshold, float gain) {
  if (!isUsable(images) || threshold < 0 || !(gain >= 0)) return;
  const double scaled = std::min(double{gain} * (1 << gainBits), double{maxGain});
  const auto fixedGain = static_cast<int16_t>(roundHalfEven(scaled));
  if (fixedGain == 0) {
    copyRows(images);
    return;
  }
  const Plan plan{images,
                  {static_cast<int16_t>(std::min(threshold, maxThreshold) * neighbours), fixedGain},
                  sharpenSimpleKernels(instructionSet())};
  parallelStatic(static_cast<int32_t>(images.height), [&](int32_t y) { sharpenRow(plan, y); });
}

}  // namespace kvl
