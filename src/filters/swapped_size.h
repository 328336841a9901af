#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

// Swaps width and height in the caller's header for as long as it lives: the work header describes
// the transposed image while a separable filter runs.
class SwappedSize {
 public:
  explicit SwappedSize(BITMAPINFOHEADER& header)
      : header_(header), width_(header.biWidth), height_(header.biHeight) {
    header_.biWidth = height_;
    header_.biHeight = width_;
  }
  ~SwappedSize() {
    header_.biWidth = width_;
    header_.biHeight = height_;
  }
  SwappedSize(const SwappedSize&) = delete;
  SwappedSize& operator=(const SwappedSize&) = delete;

 private:
  BITMAPINFOHEADER& header_;
  const int32_t width_;
  const int32_t height_;
};

}  // namespace kvl
