#pragma once

#include <vector>

#include "dib.h"
#include "motion/block_motion.h"

namespace kvl::tool {

// Draws an arrow from the middle of every block of `block` pixels a side to where it was found, and
// a dot where it stayed.
void drawArrows(const std::vector<BlockMotion>& blocks, int block, Dib& picture);

}  // namespace kvl::tool
