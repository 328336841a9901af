// A source box enlarged by a power of two, linearly interpolated.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvl/kvl.h"
#include "warp/picture_rows.h"

namespace kvl {

struct Enlargement {
  const PictureRows* source;
  RECT box;  // of the source
  const PictureRows* enlarged;
  int32_t bytesPerPixel;
  int shift;
};

// Scratch that enlarge() needs for a team of that size.
size_t enlargeScratchBytes(const Enlargement& enlargement, int threads);

// With F = 2^shift, output k of F between two neighbours lies at (k + 0.5) / F of the way from one
// to the other; before the first and after the last of a line, F / 2 outputs repeat it.
void enlarge(const Enlargement& enlargement, uint8_t* scratch);

}  // namespace kvl
