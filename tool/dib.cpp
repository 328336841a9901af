#include "dib.h"

namespace kvl::tool {
namespace {

constexpr uint16_t kBitCount = 24;
constexpr uint16_t kAlphaBitCount = 8;

}  // namespace

void Dib::resize(Size wanted) {
  if (wanted == size()) return;
  header = {};
  header.biSize = sizeof header;
  header.biWidth = wanted.width;
  header.biHeight = wanted.height;
  header.biPlanes = 1;
  header.biBitCount = kBitCount;
  bits.assign(stride() * static_cast<size_t>(wanted.height), 0);
  alpha.clear();
}

void Dib::addAlpha() {
  alpha.resize(alphaStride() * static_cast<size_t>(header.biHeight));
}

size_t Dib::alphaStride() const {
  return (static_cast<size_t>(header.biWidth) + 3) / 4 * 4;
}

BITMAPINFOHEADER Dib::alphaHeader() const {
  BITMAPINFOHEADER plane = header;
  plane.biBitCount = kAlphaBitCount;
  return plane;
}

size_t Dib::stride() const {
  return (static_cast<size_t>(header.biWidth) * header.biBitCount + 31) / 32 * 4;
}

const uint8_t* Dib::rowFromTop(int32_t y) const {
  return bits.data() + static_cast<size_t>(header.biHeight - 1 - y) * stride();
}

const uint8_t* Dib::alphaFromTop(int32_t y) const {
  return alpha.data() + static_cast<size_t>(header.biHeight - 1 - y) * alphaStride();
}

uint8_t* Dib::alphaFromTop(int32_t y) {
  return alpha.data() + static_cast<size_t>(header.biHeight - 1 - y) * alphaStride();
}

uint8_t* Dib::rowFromTop(int32_t y) {
  return bits.data() + static_cast<size_t>(header.biHeight - 1 - y) * stride();
}

}  // namespace kvl::tool
