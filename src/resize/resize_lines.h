// Lines of samples: what the passes of a resize read.
#pragma once

#include <cstddef>
#include <cstdint>

#include "resize/resize_axis.h"
#include "resize/resize_kernels.h"
#include "resize/resize_passes.h"

namespace kvl {

struct Range {
  int64_t start;
  int64_t end;

  int64_t size() const { return end - start; }
};

// The samples of an axis as lines of bytes. Those beyond the rectangle come from the border.
struct Samples {
  const uint8_t* origin;  // sample 0 of the image
  ptrdiff_t step;
  int64_t first;
  int64_t end;
  const uint8_t* before;
  const uint8_t* after;

  const uint8_t* at(int64_t sample) const {
    if (sample < first) return before;
    return sample < end ? origin + sample * step : after;
  }
};

inline ResizeLine lineOf(const Taps& taps, const Samples& samples) {
  const uint8_t* first = samples.at(taps.first);
  const uint8_t* second = taps.count == 2 ? samples.at(int64_t{taps.first} + 1) : nullptr;
  return {first, second, samples.step, taps.edges, taps.count, taps.share};
}

// The border area: the rows below and above the rectangle, then the columns left and right of it.
struct Border {
  uint8_t* below;
  uint8_t* above;
  uint8_t* left;
  uint8_t* right;

  explicit Border(const ResizePlan& plan) {
    const int64_t components = plan.setup.bytesPerPixel;
    const int64_t rowBytes = plan.setup.srcWidth * components;
    below = plan.border;
    above = below + rowBytes;
    left = above + rowBytes;
    right = left + plan.setup.srcHeight * components;
  }
};

// The source as rows, with the border's beyond them.
inline Samples sourceRows(const ResizePlan& plan) {
  const ResizeAxis& rows = plan.vertical;
  const Border border(plan);
  return {plan.source,      static_cast<ptrdiff_t>(plan.setup.srcStride),
          rows.firstSample, int64_t{rows.firstSample} + rows.sampleCount,
          border.below,     border.above};
}

}  // namespace kvl
