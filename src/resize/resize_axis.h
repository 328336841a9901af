// One direction of a resize: which samples of a line make which output, and with what shares.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"
#include "resize/resize_kernels.h"

namespace kvl {

// Positions are in samples from the image's first, which in vertical direction is the lowest row.
struct ResizeAxis {
  double start;  // the source rectangle's edges
  double end;
  double scale;         // samples an output
  int32_t outputs;      // of the whole clip
  int32_t firstOutput;  // that lies over the image
  int32_t outputCount;
  int32_t firstSample;
  int32_t sampleCount;
  int32_t imageSamples;
  int32_t lowest;  // the samples that interpolation may read, with its border if there is one
  int32_t highest;
};

ResizeAxis horizontalAxis(const ResizeSetup& setup);
ResizeAxis verticalAxis(const ResizeSetup& setup);

// An axis that enlarges interpolates, one that shrinks averages.
inline bool interpolates(double scale) {
  return scale <= 1.0;
}

// Whether every output is the mean of two samples of its own.
bool halves(const ResizeAxis& axis);

// The samples of one output. The shares of one or two are 16384 - share and share; those of more
// follow from the samples' edges.
struct Taps {
  int32_t first;
  int32_t count;
  int32_t share;
  const SampleEdge* edges;
};

// Fills the sampleCount + 1 edges of a shrinking axis.
void findEdges(const ResizeAxis& axis, SampleEdge* edges);

// The taps of the outputs [first, end) of outputCount. `edges` are those of a shrinking axis.
void findTaps(const ResizeAxis& axis, const SampleEdge* edges, int64_t first, int64_t end,
              Taps* taps);

}  // namespace kvl
