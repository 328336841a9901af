#include "strided_rows.h"

namespace kvl::fuzz {

int32_t strideFor(Case& test, int64_t rowBytes) {
  const auto row = static_cast<int32_t>(std::clamp<int64_t>(rowBytes, 1, 8192));
  const int32_t padded = (row + 3) & ~3;
  const uint8_t kind = test.byte() % 16;
  if (kind < 8) return padded;
  if (kind < 10) return row + test.ordinary(0, 20);
  if (kind < 12) return -padded;
  if (kind < 13) return -row - test.ordinary(0, 20);
  if (kind < 14) return test.integer(0, 0);
  if (kind < 15 && test.hostile()) {
    const int32_t distance = test.ordinary(5, 32767) << 16 | test.byte();
    return test.oneIn(2) ? -distance : distance;
  }
  return test.integer(-row - 8, row + 8);
}

int64_t bitmapRow(const BITMAPINFOHEADER& header) {
  const auto bits = header.biBitCount;
  bool known = false;
  switch (header.biCompression) {
    case 0:
      known = true;
      break;
    case 3:
      known = bits == 16 || bits == 32;
      break;
    case 0xE436EB7D:
      known = bits == 24;
      break;
    case 0xE436EB7A:
      known = bits == 8;
      break;
    case 0x41424752:  // RGBA
      known = bits == 32;
      break;
    case 0x32323456:  // V422, YUY2, YUNV, YUYV, YVYU, VYUY, Y422, UYNV, UYVY
    case 0x32595559:
    case 0x564E5559:
    case 0x56595559:
    case 0x55595659:
    case 0x59555956:
    case 0x32323459:
    case 0x564E5955:
    case 0x59565955:
      known = bits == 16;
      break;
  }
  return known ? rowOf(header.biWidth, bits) : 0;
}

PixelFormat pixelFormat(Case& test) {
  constexpr PixelFormat formats[] = {
      {24, 0}, {24, 0xE436EB7D}, {32, 0}, {32, 3}, {32, 0x41424752}, {24, 0},
      {8, 0},  {8, 0xE436EB7A},  {16, 3}, {16, 0}, {16, 0x32595559}, {32, 0},
      {1, 0},  {4, 0},           {48, 0}, {28, 0}, {64, 0},          {24, 0}};
  return formats[test.byte() % std::size(formats)];
}

void Untouched::allow(int64_t offset, int64_t count) {
  const auto size = static_cast<int64_t>(mayChange_.size());
  const int64_t first = std::clamp<int64_t>(offset, 0, size);
  const int64_t end = std::clamp<int64_t>(offset + count, first, size);
  std::fill(mayChange_.begin() + first, mayChange_.begin() + end, uint8_t{1});
}

void Untouched::allowRows(int64_t offset, int64_t stride, int64_t rowBytes, int64_t rows) {
  for (int64_t row = 0; row < rows; ++row) allow(offset + row * stride, rowBytes);
}

void Untouched::check(const char* what) const {
  for (size_t i = 0; i < before_.size(); ++i) {
    if (mayChange_[i] != 0 || data_[i] == before_[i]) continue;
    fail("byte " + std::to_string(i) + " of " + std::to_string(before_.size()) +
         " was written: " + what);
  }
}

void fillWithNoise(Case& test, void* record, size_t size) {
  uint64_t state = test.byte() * 0x9E3779B97F4A7C15u + test.byte();
  auto* at = static_cast<uint8_t*>(record);
  for (size_t i = 0; i < size; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    at[i] = static_cast<uint8_t>(state >> 56);
  }
}

}  // namespace kvl::fuzz
