#include "convert/rgb_blocks.h"

namespace kvl {

RgbBlocks rgbBlocks(InstructionSet level) {
  RgbBlocks blocks;
  if (level >= InstructionSet::ssse3) addRgbBlocksSsse3(blocks);
  if (level >= InstructionSet::avx2) addRgbBlocksAvx2(blocks);
  return blocks;
}

}  // namespace kvl
