// The bitmaps and frames of the conversions' tests.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/guarded_memory.h"
#include "support/test_image.h"

namespace kvl::test {

// Noise, of which every third seed's is bright: sums of 16 bits then carry.
inline void fillColours(GuardedMemory& memory, uint64_t seed) {
  memory.fillRandom(seed);
  if (seed % 3 != 0) return;
  for (size_t i = 0; i < memory.size(); ++i) {
    memory.data()[i] = static_cast<uint8_t>(255 - memory.data()[i] % 60);
  }
}

struct Placement {
  POINT source, frame;
  SIZE area;
};

// A packed bitmap: header, colour table or masks, rows, in one block with nothing behind it.
class Bitmap {
 public:
  Bitmap(int width, int height, int bitCount, GuardAt guard, uint64_t seed,
         uint32_t compression = 0, uint32_t colours = 0)
      : stride_((static_cast<size_t>(width) * static_cast<size_t>(bitCount) + 31) / 32 * 4),
        front_(40 + (compression == 3 ? 12 : 4 * colours)),
        memory_(front_ + stride_ * static_cast<size_t>(std::abs(height)), guard) {
    fillColours(memory_, seed);
    *header() = makeHeader(width, height, static_cast<uint16_t>(bitCount), compression);
    header()->biClrUsed = colours;
  }

  BITMAPINFOHEADER* header() const { return reinterpret_cast<BITMAPINFOHEADER*>(memory_.data()); }
  uint8_t* bits() const { return memory_.data() + front_; }
  size_t stride() const { return stride_; }
  int rows() const { return std::abs(header()->biHeight); }

  // Byte `at` of row `row` from the top, the bitmap going on behind the row; 0 past its end.
  uint8_t byte(int row, int64_t at) const {
    const int stored = header()->biHeight < 0 ? row : rows() - 1 - row;
    const int64_t offset = stored * static_cast<int64_t>(stride_) + at;
    return offset < rows() * static_cast<int64_t>(stride_) ? bits()[offset] : 0;
  }

 private:
  size_t stride_, front_;
  GuardedMemory memory_;
};

// A frame of bytes 0xCD, nothing before and behind it; with a negative stride its first row is last.
class Frame {
 public:
  Frame(int stride, int height, GuardAt guard = GuardAt::end)
      : stride_(stride),
        height_(height),
        memory_(static_cast<size_t>(std::abs(stride) * height), guard) {}
  uint8_t* top() const {
    return stride_ > 0 ? memory_.data() : memory_.data() + (height_ - 1) * -stride_;
  }
  std::vector<uint8_t> bytes() const { return memory_.bytes(); }
  int stride() const { return stride_; }
  int height() const { return height_; }

 private:
  int stride_, height_;
  GuardedMemory memory_;
};

inline void expectFrame(const std::vector<uint8_t>& expected, const Frame& frame,
                        const Bitmap& bitmap, const Placement& at) {
  expectBytes(expected, frame.bytes(), static_cast<size_t>(std::abs(frame.stride())), 2,
              text("area ", at.area.cx, " x ", at.area.cy, " from ", at.source.x, ", ", at.source.y,
                   " of ", bitmap.header()->biWidth, " x ", bitmap.header()->biHeight, " x ",
                   bitmap.header()->biBitCount, " to ", at.frame.x, ", ", at.frame.y,
                   " of frame with stride ", frame.stride(), ", height ", frame.height()));
}

// A rectangle that hangs over both, or is empty, or neither.
inline Placement loosePlacement(Random& random, int width, int height) {
  return {{random.range(-9, 9), random.range(-4, 4)},
          {random.range(-20, 60), random.range(-9, 12)},
          {random.range(-9, width + 9), random.range(-3, height + 4)}};
}

// Headers that no bitmap can have.
inline const std::initializer_list<BITMAPINFOHEADER> badPackedHeaders = {
    makeHeader(0, 10),
    makeHeader(-20, 10),
    makeHeader(20, 0),
    makeHeader(20, 10, 0),
    makeHeader(20, 10, 24, 77),
    makeHeader(INT32_MAX, INT32_MIN, 65535),
    makeHeader(INT32_MAX, INT32_MAX)};

}  // namespace kvl::test
