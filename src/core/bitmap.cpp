#include "core/bitmap.h"

namespace kvl {

std::atomic<uint8_t> g_strideOverflow = 0;

namespace {

constexpr uint32_t fourCc(const char (&code)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(code[0])) |
         static_cast<uint32_t>(static_cast<uint8_t>(code[1])) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(code[2])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(code[3])) << 24;
}

constexpr uint32_t compressionRgb = 0;
constexpr uint32_t compressionBitFields = 3;
// First words of the media-subtype GUIDs for 24-bit and 8-bit RGB, used as compression codes.
constexpr uint32_t subtypeRgb24 = 0xE436EB7D;
constexpr uint32_t subtypeRgb8 = 0xE436EB7A;

}  // namespace

bool IsSupportedBitmapFormat(const BITMAPINFOHEADER* header) {
  if (header == nullptr) return false;
  const uint16_t bits = header->biBitCount;
  switch (header->biCompression) {
    case compressionRgb:
      return true;
    case subtypeRgb24:
      return bits == 24;
    case subtypeRgb8:
      return bits == 8;
    case fourCc("RGBA"):
      return bits == 32;
    case compressionBitFields:
      return bits == 16 || bits == 32;
    case fourCc("V422"):
    case fourCc("YUY2"):
    case fourCc("YUNV"):
    case fourCc("YUYV"):
    case fourCc("YVYU"):
    case fourCc("VYUY"):
    case fourCc("Y422"):
    case fourCc("UYNV"):
    case fourCc("UYVY"):
      return bits == 16;
    default:
      return false;
  }
}

int64_t CalcStrideFromBitCount(int32_t width, uint16_t bitCount) {
  if (width < 0 || bitCount == 0) return 0;
  if (width > 0x7FFFFFFFFFFFFFE0 / bitCount) {
    g_strideOverflow.store(1, std::memory_order_relaxed);
    return 0;
  }
  return ((int64_t{bitCount} * width + 31) >> 3) & ~int64_t{3};
}

uint64_t CalcDibStride(const BITMAPINFOHEADER* header) {
  if (!IsSupportedBitmapFormat(header)) return 0;
  return static_cast<uint64_t>(CalcStrideFromBitCount(header->biWidth, header->biBitCount));
}

int32_t rgb24Stride(int32_t width) {
  if (width <= 0) return 0;
  const int64_t stride = ((int64_t{width} + 1) * 3) & ~int64_t{3};
  return stride <= INT32_MAX ? static_cast<int32_t>(stride) : 0;
}

bool isAddressable(const void* bits, int64_t stride, int64_t rows) {
  constexpr uint64_t userSpace = uint64_t{1} << 47;
  if (stride < 0 || rows < 0) return false;
  const uint64_t at = reinterpret_cast<uintptr_t>(bits);
  if (stride == 0 || rows == 0) return true;
  return at < userSpace &&
         static_cast<uint64_t>(stride) <= (userSpace - at) / static_cast<uint64_t>(rows);
}

}  // namespace kvl
