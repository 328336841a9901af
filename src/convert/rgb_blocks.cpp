#include "convert/rgb_blocks.h"

namespace kvl {

RgbBlocks rgbBlocks(InstructionSet level) {
  RgbBlocks blocks;
  (void)level;
  return blocks;
}

}  // namespace kvl
