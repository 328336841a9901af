#include "dib.h"

namespace kvl::tool {
namespace {

constexpr uint16_t kBitCount = 24;

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
}

size_t Dib::stride() const {
  return (static_cast<size_t>(header.biWidth) * header.biBitCount + 31) / 32 * 4;
}

const uint8_t* Dib::rowFromTop(int32_t y) const {
  return bits.data() + static_cast<size_t>(header.biHeight - 1 - y) * stride();
}

uint8_t* Dib::rowFromTop(int32_t y) {
  return bits.data() + static_cast<size_t>(header.biHeight - 1 - y) * stride();
}

}  // namespace kvl::tool
