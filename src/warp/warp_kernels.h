// The row kernels of the warp, and the cells that they work on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"
#include "warp/matrix4x4.h"

namespace kvl {

// What one destination pixel collects, as 32-bit words that wrap: the weighted sum of each channel
// and the sum of the weights, placed so that a vector holds them.
struct CellLayout {
  int32_t words;
  int32_t weightAt;
};
constexpr CellLayout cellLayout(int32_t channels) {
  return channels == 4 ? CellLayout{8, 4} : CellLayout{4, 3};
}

// The cells of some rows and columns of the destination. Outside them there is room for what
// samples near the edge add: one column before, two behind, two rows above and two below.
struct CellGrid {
  uint32_t* first;  // the cell at (left, top)
  ptrdiff_t rowCells;
  int32_t left, top;
  // The samples to take, bounds included: those whose pixels this grid has, or has room for.
  double xLowest, xHighest, yLowest, yHighest;
};

struct WarpKernels {
  // Adds the `count` pixels of a source row, whose first has its centre at (x, y), to the cells
  // that they reach.
  void (*splatRow)(const CellGrid& grid, const Projection& projection, double x, double y,
                   const uint8_t* pixels, int32_t count);
  // Divides the cells that have weight and writes their pixels; the others keep theirs.
  void (*resolveRow)(const uint32_t* cells, uint8_t* pixels, int32_t count);
};

// `channels` is 1, 3 or 4.
WarpKernels warpKernels(InstructionSet level, int32_t channels);
void addWarpSsse3(WarpKernels& kernels, int32_t channels);
void addWarpAvx2(WarpKernels& kernels, int32_t channels);
void addResolveAvx2(WarpKernels& kernels, int32_t channels);

}  // namespace kvl
