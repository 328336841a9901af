// A bitmap whose rows lie right behind its header.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

struct PackedDib {
  BITMAPINFOHEADER header;
  const uint8_t* bits;
  int64_t rowBytes;  // 0 where the header describes no bitmap that can be in memory
  int64_t rows;
  bool topDown;

  const uint8_t* end() const { return bits + rows * rowBytes; }
};

// The bitmap may lie at any address, as it does in the bytes of a file.
PackedDib packedDib(const BITMAPINFOHEADER* bitmap);

// Row `row`, counted from the top; null for one that the bitmap lacks.
const uint8_t* GetDibRowPointer(const PackedDib& dib, int64_t row);

}  // namespace kvl
