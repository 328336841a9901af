#include "convert/rgb_blocks_vector.h"

namespace kvl {

void addRgbBlocksSsse3(RgbBlocks& blocks) {
  blocks = vectorBlocks();
}

}  // namespace kvl
