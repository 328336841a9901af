// The two passes of a resize, one parallel region each.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"
#include "resize/resize_axis.h"
#include "resize/resize_kernels.h"

namespace kvl {

struct ResizePlan {
  ResizeSetup setup;
  ResizeAxis horizontal;
  ResizeAxis vertical;
  const uint8_t* source;
  uint8_t* destination;
  uint8_t* intermediate;
  WeightEntry* weights;
  uint8_t* border;
  ResizeKernels kernels;
};

// From the source to the intermediate image: every source column that is read becomes a row there,
// of the destination's rows, one plane a component.
void resampleVertically(const ResizePlan& plan);

// From the intermediate image to the destination.
void resampleHorizontally(const ResizePlan& plan);

}  // namespace kvl
