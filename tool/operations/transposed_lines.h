// Lines of a single pixel in the averaging blurs: the library neither averages nor writes them, so
// that the pass along the other axis would read, or leave behind, what its scratch held before.
#pragma once

#include "dib.h"

namespace kvl::tool {

// Pixels of a picture, y counting the rows in memory.
struct Area {
  int32_t x;
  int32_t y;
  int32_t width;
  int32_t height;
};

// The library's scratch, in which row x holds column x of the picture.
struct TransposedRows {
  uint8_t* bits;
  size_t stride;
};

// Where the area is one pixel wide, puts its column where the pass along the rows would.
void presetColumn(const Dib& picture, const Area& area, TransposedRows scratch);

// Where the area is one pixel high, takes the result of the pass along its row.
void takeRow(TransposedRows scratch, const Area& area, Dib& picture);

}  // namespace kvl::tool
