// The rim of a warped picture, where it is blended with what the destination holds.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"
#include "warp/matrix4x4.h"
#include "warp/warp_kernels.h"

namespace kvl {

// Cells of one destination row, `left` being the column of the first.
struct CellRow {
  uint32_t* cells;
  int32_t count;
  int32_t left;
  int32_t y;
};

// The cells of a row that no source pixel surrounds on all sides are [first, last) without
// [interiorFirst, interiorLast).
struct Rim {
  int32_t first, interiorFirst, interiorLast, last;
};

// Sets the keep-weight of each rim cell, the share of the pixel that is already there. `box` is what
// the splat read, and `inverse` leads to its coordinates. Takes the weight of cells that the box
// does not reach.
Rim weighRim(const CellRow& row, const CellLayout& layout, const RECT& box,
             const Matrix4x4& inverse, uint32_t* keepWeights);

// Divides cells out, each with the pixel that is there. A cell without weight keeps its pixel.
void resolveRim(const uint32_t* cells, const uint32_t* keepWeights, int32_t channels,
                uint8_t* pixels, int32_t count);

}  // namespace kvl
