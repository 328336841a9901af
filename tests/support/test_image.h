// Images for tests: a header and guarded rows with known content, padding included.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "kvl/kvl.h"
#include "support/guarded_memory.h"

namespace kvl::test {

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
  size_t bytesPerPixel() const { return header.biBitCount / 8u; }
  size_t rowBytes() const { return static_cast<size_t>(width()) * header.biBitCount / 8; }
  std::vector<uint8_t> bytes() const { return memory_.bytes(); }

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

// Fails with the first difference and `what`; of a test that has failed already, says no more.
void expectBytes(const std::vector<uint8_t>& expected, const TestImage& actual,
                 const std::string& what = {});
void expectBytes(const std::vector<uint8_t>& expected, const std::vector<uint8_t>& actual,
                 size_t stride, size_t bytesPerPixel, const std::string& what = {});

// "20 x 10, radius 3": the parts one after the other.
template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

}  // namespace kvl::test
