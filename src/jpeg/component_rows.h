// Memory for the component rows that pass between the library and a coder.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/platform.h"
#include "jpeg/layout.h"

namespace kvl {

// Bytes before and after every row that kernels may read and overwrite.
constexpr ptrdiff_t rowMargin = 64;

// A block of memory for the length of a call.
class ScratchMemory {
 public:
  ScratchMemory() = default;
  ScratchMemory(const ScratchMemory&) = delete;
  ScratchMemory& operator=(const ScratchMemory&) = delete;
  ~ScratchMemory() { g_platform.release(block_); }

  // False when it cannot be had. To be called once.
  bool allocate(uint64_t bytes);
  uint8_t* data() const;

  static uint64_t bytesTaken(uint64_t bytes);

 private:
  void* block_ = nullptr;
};

// Bytes from one row of `width` samples to the next, margins included.
constexpr ptrdiff_t marginedStride(int32_t width) {
  return (ptrdiff_t{width} + 2 * rowMargin + 63) / 64 * 64;
}

// The rows of all components for some rows of MCUs, and before them one row of each, in which the
// last row of the MCUs above can be kept.
class ComponentRows {
 public:
  static uint64_t bytes(const JpegLayout& layout, int32_t mcuRows);

  // Takes bytes() from `memory`, which is aligned to 64.
  void place(const JpegLayout& layout, int32_t mcuRows, uint8_t* memory);

  // Row `row` of component `c`, from -1 on.
  uint8_t* row(int c, int32_t row) const { return first_[c] + row * stride_[c]; }

  // rows[c][r] of row `mcuRow` of the MCUs, as a coder takes it.
  uint8_t* const* const* ofMcuRow(int32_t mcuRow) const {
    return pointers_ + ptrdiff_t{mcuRow} * jpegMaxComponents;
  }

 private:
  uint8_t* first_[jpegMaxComponents] = {};
  ptrdiff_t stride_[jpegMaxComponents] = {};
  uint8_t* const** pointers_ = nullptr;
};

}  // namespace kvl
