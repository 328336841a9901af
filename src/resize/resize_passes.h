// The two passes of a resize.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"
#include "resize/resize_axis.h"
#include "resize/resize_kernels.h"

namespace kvl {

// What is resampled: the parts of the work buffer, and which samples make which output.
struct ResizePlan {
  ResizeSetup setup;
  ResizeAxis horizontal;
  ResizeAxis vertical;
  const uint8_t* source;
  uint8_t* destination;
  uint8_t* intermediate;
  const SampleEdge* columnEdges;
  const SampleEdge* rowEdges;
  uint8_t* border;
  bool halves;  // both axes, exactly: every output is a square of four samples
};

void resample(const ResizePlan& plan);

// The ways to do it: for plans that halve, for those that do not shrink across, and for all others.
void drawHalves(const ResizePlan& plan);
void drawRows(const ResizePlan& plan);
void drawStrips(const ResizePlan& plan);

}  // namespace kvl
