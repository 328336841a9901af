#include "support/test_image.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace kvl::test {

uint32_t Random::next() {
  state_ = state_ * 6364136223846793005u + 1442695040888963407u;
  return static_cast<uint32_t>(state_ >> 33);
}

int32_t Random::range(int32_t low, int32_t high) {
  const auto span = static_cast<uint32_t>(high - low) + 1;
  return low + static_cast<int32_t>(next() % span);
}

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
      memory_(stride_ * absolute(height), guard) {
  fill(0xCD);
}

TestImage& TestImage::fillRandom(uint64_t seed) {
  Random random(seed);
  for (size_t i = 0; i < memory_.size();) {
    const uint32_t kind = random.next() % 8;
    const size_t run = kind == 0 ? 1 + random.next() % 40 : 1;
    const uint8_t value = kind == 1   ? 255
                          : kind == 2 ? 0
                                      : static_cast<uint8_t>(random.next() & 255);
    for (size_t j = 0; j < run && i < memory_.size(); ++j) bits()[i++] = value;
  }
  return *this;
}

TestImage& TestImage::fill(uint8_t value) {
  std::memset(bits(), value, memory_.size());
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

}  // namespace kvl::test
