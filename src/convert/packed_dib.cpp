#include "convert/packed_dib.h"

#include <cstring>

#include "core/bitmap.h"

namespace kvl {
namespace {

constexpr uint32_t compressionBitFields = 3;

void noteOverflow() {
  g_strideOverflow.store(1, std::memory_order_relaxed);
}

}  // namespace

PackedDib packedDib(const BITMAPINFOHEADER* bitmap) {
  BITMAPINFOHEADER header;
  std::memcpy(&header, bitmap, sizeof header);
  if (header.biSize == 0) noteOverflow();
  const uint64_t headerBytes = header.biSize != 0 ? header.biSize : sizeof header;
  const uint64_t colourBytes =
      header.biCompression == compressionBitFields ? 12 : uint64_t{4} * header.biClrUsed;
  const auto* bits =
      reinterpret_cast<const uint8_t*>(bitmap) + static_cast<ptrdiff_t>(headerBytes + colourBytes);
  const PackedDib none{header, bits, 0, 0, false};
  if (header.biWidth <= 0 || header.biHeight == 0) return none;

  const auto rowBytes = static_cast<int64_t>(CalcDibStride(&header));
  const bool topDown = header.biHeight < 0;
  const int64_t rows = topDown ? -int64_t{header.biHeight} : int64_t{header.biHeight};
  if (rowBytes != 0 && rows - 1 > INT64_MAX / rowBytes) noteOverflow();
  if (!isAddressable(bits, rowBytes, rows)) return none;
  return {header, bits, rowBytes, rows, topDown};
}

const uint8_t* GetDibRowPointer(const PackedDib& dib, int64_t row) {
  if (dib.rowBytes == 0 || row < 0 || row >= dib.rows) return nullptr;
  return dib.bits + (dib.topDown ? row : dib.rows - row - 1) * dib.rowBytes;
}

}  // namespace kvl
