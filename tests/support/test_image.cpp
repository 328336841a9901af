#include "support/test_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>

namespace kvl::test {

BITMAPINFOHEADER makeHeader(int32_t width, int32_t height, uint16_t bitCount,
                            uint32_t compression) {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = bitCount;
  header.biCompression = compression;
  return header;
}

namespace {

size_t dibStride(int32_t width, uint16_t bitCount) {
  return (static_cast<size_t>(width) * bitCount + 31) / 32 * 4;
}

size_t absolute(int32_t height) {
  return static_cast<size_t>(height < 0 ? -int64_t{height} : int64_t{height});
}

}  // namespace

TestImage::TestImage(int32_t width, int32_t height, uint16_t bitCount, GuardAt guard, size_t stride)
    : header(makeHeader(width, height, bitCount)),
      stride_(stride != 0 ? stride : dibStride(width, bitCount)),
      memory_(stride_ * absolute(height), guard) {}

TestImage& TestImage::fillRandom(uint64_t seed) {
  memory_.fillRandom(seed);
  return *this;
}

TestImage& TestImage::fill(uint8_t value) {
  memory_.fill(value);
  return *this;
}

TestImage& TestImage::assign(const std::vector<uint8_t>& bytes) {
  std::memcpy(bits(), bytes.data(), std::min(bytes.size(), memory_.size()));
  return *this;
}

std::string firstDifference(const std::vector<uint8_t>& expected,
                            const std::vector<uint8_t>& actual, size_t stride,
                            size_t bytesPerPixel) {
  std::ostringstream text;
  if (expected.size() != actual.size()) {
    text << "sizes differ: expected " << expected.size() << " bytes, got " << actual.size();
    return text.str();
  }
  for (size_t i = 0; i < expected.size(); ++i) {
    if (expected[i] == actual[i]) continue;
    const size_t x = i % stride;
    text << "row " << i / stride << ", byte " << x << " (pixel " << x / bytesPerPixel
         << ", component " << x % bytesPerPixel << "): expected " << int{expected[i]} << ", got "
         << int{actual[i]};
    return text.str();
  }
  return {};
}

void expectBytes(const std::vector<uint8_t>& expected, const std::vector<uint8_t>& actual,
                 size_t stride, size_t bytesPerPixel, const std::string& what) {
  if (testing::Test::HasFailure()) return;
  EXPECT_EQ(firstDifference(expected, actual, stride, bytesPerPixel), "") << what;
}

void expectBytes(const std::vector<uint8_t>& expected, const TestImage& actual,
                 const std::string& what) {
  expectBytes(expected, actual.bytes(), actual.stride(), actual.bytesPerPixel(), what);
}

}  // namespace kvl::test
