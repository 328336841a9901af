// A row of a packed 4:2:2 frame: black margins, and pairs of pixels from a row of RGB.
#pragma once

#include <cstdint>

#include "convert/rgb_blocks.h"
#include "convert/target_frame.h"

namespace kvl {

// What of the columns of a source row can be read.
struct SourceColumns {
  int64_t first;  // column of the rectangle's first pixel
  int64_t count;  // columns of a row
  int bytesPerPixel;
};

// A pair with one pixel in the rectangle; the other counts as black. Nothing where `range` is empty.
struct EdgePair {
  Range range;
  int64_t at;      // in bytes of the frame's row
  int64_t source;  // in bytes of the source's row
};

// What the rows of one call have in common.
struct Yuv422Plan {
  RgbToYuv colours;
  RgbBlocks blocks;
  Yuv422Order order;
  int bytesPerPixel;
  int64_t rowBytes;
  int64_t leftMargin;  // [0, leftMargin) and [rightMargin, rowBytes) become black
  int64_t rightMargin;
  EdgePair leftEdge;
  EdgePair rightEdge;
  int64_t runAt;
  int64_t runSource;
  int64_t runPairs;
};

// For pixels [left, left + width) of a frame's row of `rowBytes` bytes. Pairs that do not lie
// inside it, or whose pixels the source lacks, are left out.
Yuv422Plan planYuv422Rows(const RgbToYuv& colours, Yuv422Order order, int64_t rowBytes,
                          int32_t left, int32_t width, const SourceColumns& source);

// `source` has `sourceBytes` readable bytes; without it only the margins are written.
void convertYuv422Row(const Yuv422Plan& plan, uint8_t* row, const uint8_t* source,
                      int64_t sourceBytes);

// As many black pairs as fit: luma 15, chroma 128.
void fillYuv422Black(uint8_t* at, uint64_t bytes, Yuv422Order order);

}  // namespace kvl
