#include "convert/rgb_blocks_vector.h"

namespace kvl {

void addRgbBlocksAvx2(RgbBlocks& blocks) {
  blocks = vectorBlocks();
}

}  // namespace kvl
