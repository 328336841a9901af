// The bitmaps and frames of the conversions' tests.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/test_image.h"

namespace kvl::test {

struct Placement {
  POINT source, frame;
  SIZE area;
};

// A packed bitmap: header, colour table or masks, rows, in one block with nothing behind it.
class Bitmap {
 public:
  Bitmap(int width, int height, int bitCount, GuardAt guard, uint64_t seed,
         uint32_t compression = 0, uint32_t colours = 0)
      : header_(test::makeHeader(width, height, static_cast<uint16_t>(bitCount), compression)),
        stride_((static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 31) / 32 * 4),
        front_(40 + (compression == 3 ? 12 : 4 * colours)),
        memory_(front_ + stride_ * static_cast<size_t>(std::abs(height)), guard) {
    header_.biClrUsed = colours;
    Random random(seed);
    const uint32_t bright = random.next() % 3;
    for (size_t i = 0; i < memory_.size(); ++i) {
      const uint32_t noise = random.next();
      memory_.data()[i] = static_cast<uint8_t>(bright == 0 ? 255 - noise % 60 : noise);
    }
    std::memcpy(memory_.data(), &header_, sizeof header_);
  }

  const BITMAPINFOHEADER* header() const {
    return reinterpret_cast<const BITMAPINFOHEADER*>(memory_.data());
  }
  BITMAPINFOHEADER* header() { return reinterpret_cast<BITMAPINFOHEADER*>(memory_.data()); }
  const uint8_t* bits() const { return memory_.data() + front_; }
  size_t stride() const { return stride_; }
  int rows() const { return std::abs(header_.biHeight); }

  // Byte `at` of row `row` from the top, the bitmap going on behind the row; 0 past its end.
  uint8_t byte(int row, int64_t at) const {
    const int stored = header_.biHeight < 0 ? row : rows() - 1 - row;
    const int64_t offset = stored * static_cast<int64_t>(stride_) + at;
    return offset < rows() * static_cast<int64_t>(stride_) ? bits()[offset] : 0;
  }

 private:
  BITMAPINFOHEADER header_;
  size_t stride_, front_;
  GuardedMemory memory_;
};

// A frame of bytes 0xCD, nothing before and behind it; with a negative stride its first row is last.
class Frame {
 public:
  Frame(int stride, int height, GuardAt guard)
      : stride_(stride),
        height_(height),
        memory_(static_cast<size_t>(std::abs(stride) * height), guard) {
    std::memset(memory_.data(), 0xCD, memory_.size());
  }
  uint8_t* top() const {
    return stride_ > 0 ? memory_.data() : memory_.data() + (height_ - 1) * -stride_;
  }
  std::vector<uint8_t> bytes() const { return {memory_.data(), memory_.data() + memory_.size()}; }
  int stride() const { return stride_; }
  int height() const { return height_; }

 private:
  int stride_, height_;
  GuardedMemory memory_;
};

std::string describe(const Placement& at, const Frame& frame, const Bitmap& bitmap);

}  // namespace kvl::test
