// Images for tests: a header and guarded rows with known content, padding included.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kvl/kvl.h"
#include "support/guarded_memory.h"

namespace kvl::test {

// A small generator of its own, so that a seed means the same bytes on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
  uint32_t next();
  // A whole number of [low, high].
  int32_t range(int32_t low, int32_t high);

 private:
  uint64_t state_;
};

BITMAPINFOHEADER makeHeader(int32_t width, int32_t height, uint16_t bitCount = 24,
                            uint32_t compression = 0);

class TestImage {
 public:
  // Rows of `stride` bytes (the DIB stride when 0), all bytes 0xCD.
  TestImage(int32_t width, int32_t height, uint16_t bitCount = 24, GuardAt guard = GuardAt::end,
            size_t stride = 0);

  // Noise with flat runs and extremes, padding included.
  TestImage& fillRandom(uint64_t seed);
  TestImage& fill(uint8_t value);
  TestImage& assign(const std::vector<uint8_t>& bytes);

  uint8_t* bits() const { return memory_.data(); }
  uint8_t* row(int32_t y) const { return bits() + static_cast<size_t>(y) * stride_; }
  size_t stride() const { return stride_; }
  int32_t width() const { return header.biWidth; }
  int32_t height() const { return header.biHeight; }
  size_t rowBytes() const { return static_cast<size_t>(width()) * header.biBitCount / 8; }
  std::vector<uint8_t> bytes() const { return {bits(), bits() + memory_.size()}; }

  BITMAPINFOHEADER header;

 private:
  size_t stride_;
  GuardedMemory memory_;
};

// Empty when the byte sequences are equal, else where they first differ, as row, byte and pixel,
// with both values: EXPECT_EQ("", firstDifference(...)).
std::string firstDifference(const std::vector<uint8_t>& expected,
                            const std::vector<uint8_t>& actual, size_t stride,
                            size_t bytesPerPixel = 3);

}  // namespace kvl::test
