// Where the blocks of one picture are found in the next.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dib.h"

namespace kvl::tool {

// Grey rows without padding, in the memory order of the picture that they come from.
struct GreyImage {
  Size size;
  std::vector<uint8_t> samples;
};

// By the library; into the memory that `grey` has.
void toGreyImage(const Dib& picture, GreyImage& grey);

// Pixels on the screen: x to the right and y down.
struct Displacement {
  double x = 0;
  double y = 0;
};

struct BlockMotion {
  int32_t x;  // of the block's top left pixel
  int32_t y;
  Displacement moved;
  double score;
};

enum class SearchKind { full, ring, subPixel };

class MotionSearch {
 public:
  // `block` is the side of a block and `range` how far it may have moved, in pixels.
  MotionSearch(int block, int range, SearchKind kind);

  // Every whole block whose range lies inside the pictures, row by row. Throws Error where there is
  // none.
  const std::vector<BlockMotion>& find(const GreyImage& from, const GreyImage& to);

 private:
  BlockMotion findBlock(const GreyImage& from, const GreyImage& to, const RECT& block);
  BlockMotion searchRings(const GreyImage& from, const GreyImage& to, const RECT& block);
  void refine(const GreyImage& from, const GreyImage& to, const RECT& block, BlockMotion& motion);

  int block_;
  int range_;
  SearchKind kind_;
  std::vector<int64_t> scores_;
  std::vector<BlockMotion> found_;
};

// What most blocks have in common: the median displacement of those with structure, then the mean
// of the ones that are near it. `agreeing` is their number.
struct CommonMotion {
  Displacement moved;
  int64_t agreeing = 0;
};
CommonMotion commonMotion(const std::vector<BlockMotion>& blocks, const GreyImage& from, int block);

}  // namespace kvl::tool
