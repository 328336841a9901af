// The set-up record: everything that follows from two headers and two rectangles.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

int32_t setupResize(const BITMAPINFOHEADER* sourceHeader, const double* sourceRect,
                    const BITMAPINFOHEADER* destinationHeader, RECT* destinationRect,
                    uint32_t flags, ResizeSetup* setup, uint64_t* neededBytes);

// Whether every derived field of a record is what set-up gives for its rectangles, sizes and bytes
// a pixel. Row strides may be longer than set-up's.
bool isConsistent(const ResizeSetup& setup);

// The smallest integer rectangle that covers a real one for a mode of exactly 1.0, the largest
// inside it for exactly 0.0, else the nearest; all with RoundToInt's tolerance.
RECT calcIntegerRect(double x, double y, double width, double height, double mode);

}  // namespace kvl
