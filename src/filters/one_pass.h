// The images of the one-pass filters on raw 8-bit samples.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvl {

struct OnePassImages {
  const uint8_t* source;
  uint32_t sourceStride;
  uint8_t* destination;
  uint32_t destinationStride;
  uint32_t width;
  uint32_t height;
  int32_t components;

  const uint8_t* sourceRow(int32_t y) const { return source + ptrdiff_t{y} * sourceStride; }
  uint8_t* destinationRow(int32_t y) const {
    return destination + ptrdiff_t{y} * destinationStride;
  }
  ptrdiff_t rowBytes() const { return ptrdiff_t{width} * components; }
};

// False for a null pointer, a component count other than 1, 3 and 4, a side of 0 or of more than
// 2^20 pixels, a stride shorter than a row, and rows outside the address space.
bool isUsable(const OnePassImages& images);

// The destination becomes the source, padding aside.
void copyRows(const OnePassImages& images);

// Rows that a thread claims at a time: few enough that the team ends together, enough that
// neighbouring rows share their cache lines.
int32_t rowsPerClaim(int32_t rows);

}  // namespace kvl
