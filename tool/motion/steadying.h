// Takes the shake out of a clip and leaves what the camera meant to do.
#pragma once

#include <vector>

#include "dib.h"
#include "motion/block_motion.h"

namespace kvl::tool {

// By how much to move each frame of a clip, whose frame i + 1 is frame i moved by `moved[i]`, so
// that it follows its path smoothed over `radius` frames to either side.
std::vector<Displacement> steadyingMoves(const std::vector<Displacement>& moved, int radius);

// `result` becomes `picture` moved by `by`, its outermost pixels repeated where nothing else is.
// Fractions are drawn by the library's warp.
void movePicture(const Dib& picture, Displacement by, Dib& result);

}  // namespace kvl::tool
