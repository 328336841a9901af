// Files through libjpeg into bitmaps. The last bytes of an input choose the options.
#include <cstdlib>
#include <cstring>

#include "libjpeg_coder.h"
#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

// So many that a bitmap fits in a case's memory.
constexpr uint64_t pixelLimit = 1 << 20;

KVL_JpegReadOptions optionsFrom(Case& test) {
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  const uint8_t bits = test.byte();
  options.threads = (bits & 0x31) == 0x31 ? 2 : 1;
  options.bitCount = (bits & 2) != 0 ? 8 : 24;
  options.topDown = bits >> 2 & 1;
  if ((bits & 8) != 0) {
    options.crop = {test.ordinary(0, 300), test.ordinary(0, 300), test.ordinary(0, 2000),
                    test.ordinary(0, 2000)};
  }
  options.pixelLimit = pixelLimit;
  options.memoryLimit = 64 << 20;
  options.scanLimit = 20;
  return options;
}

bool isKnown(int32_t status) {
  return status == KVL_JPEG_OK || status == KVL_JPEG_INVALID_ARGUMENT ||
         status == KVL_JPEG_OUT_OF_MEMORY || status == KVL_JPEG_BAD_CODER ||
         status == KVL_JPEG_UNSUPPORTED || status == KVL_JPEG_OVER_LIMIT ||
         (status >= LIBJPEG_DAMAGED && status <= LIBJPEG_OTHER);
}

// A rectangle of a bitmap, by the rows in memory.
struct Target {
  int64_t stride;
  int64_t height;
  int64_t pixelBytes;
  bool topDown;
  RECT rect;

  // What may change where so many rows of the rectangle were read.
  void allow(Untouched& rest, int32_t rows) const {
    for (int64_t y = rect.top; y < rect.top + rows; ++y) {
      const int64_t row = topDown ? y : height - 1 - y;
      rest.allow(row * stride + rect.left * pixelBytes, (rect.right - rect.left) * pixelBytes);
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  Case test(input, length);
  const KVL_JpegReadOptions options = optionsFrom(test);
  const bool padded = test.oneIn(2), clipped = test.oneIn(2);
  const int32_t left = test.ordinary(-1, 20), top = test.ordinary(-1, 20);
  const int32_t gap = test.ordinary(0, 9), right = test.ordinary(0, 20);

  const size_t size = test.rest().size();
  uint8_t* const file = test.readOnly(size);
  std::memcpy(file, input, size);
  LibjpegDecoder decoder;
  libjpeg_decoder_init(&decoder);
  BITMAPINFOHEADER header = {};
  size_t needed = 0;
  int32_t rows = 0, status = 0;
  KVL_QvjJpegToDib(&decoder.table, file, size, &options, &header, nullptr, &needed, &rows);
  if (header.biSize == 0) return 0;
  require(decoder.state == nullptr, "the coder's memory is not free");
  const int32_t height = std::abs(header.biHeight);
  const int64_t pixelBytes = header.biBitCount / 8;
  const int64_t stride = rowOf(header.biWidth, header.biBitCount);
  require(static_cast<int64_t>(needed) == stride * height, "size of the bitmap");

  uint8_t* const bits = test.writable(needed);
  const Target whole = {
      stride, height, pixelBytes, options.topDown != 0, {0, 0, header.biWidth, height}};
  test.watch(&rows, sizeof rows);
  test.watch(&status, sizeof status);
  test.call([&] {
    Untouched rest(bits, static_cast<int64_t>(needed));
    size_t given = needed;
    BITMAPINFOHEADER again = {};
    status = KVL_QvjJpegToDib(&decoder.table, file, size, &options, &again, bits, &given, &rows);
    require(isKnown(status), "status of the bitmap");
    require(rows >= 0 && rows <= height && (status != 0 || rows == height), "rows of the bitmap");
    require(std::memcmp(&again, &header, sizeof header) == 0, "header of the bitmap");
    require(decoder.state == nullptr, "the coder's memory is not free");
    whole.allow(rest, rows);
    rest.check("beside the rows that were read");
  });

  // Into a bitmap of about half the height.
  header.biHeight = (height / 2 + 1) * (test.byte() % 2 == 0 ? 1 : -1);
  const int64_t halfRows = height / 2 + 1;
  const int64_t rowBytes = header.biWidth * pixelBytes;
  const int64_t apart = padded ? stride : rowBytes + gap;
  Target part = {apart,
                 halfRows,
                 pixelBytes,
                 header.biHeight < 0,
                 {0, 0, header.biWidth, static_cast<int32_t>(halfRows)}};
  if (clipped) part.rect = {left, top, header.biWidth - right, static_cast<int32_t>(halfRows)};
  const bool inside = part.rect.left >= 0 && part.rect.top >= 0 &&
                      part.rect.left < part.rect.right && part.rect.top < part.rect.bottom;
  const int64_t halfBytes = (halfRows - 1) * apart + rowBytes;
  uint8_t* const half = inside ? test.writable(bytes(halfBytes)) : test.untouchable();
  test.keep(&header, sizeof header);
  test.call([&] {
    Untouched rest(half, inside ? halfBytes : 0);
    status = KVL_QvjDecompress(&decoder.table, file, size, &options, &header, half,
                               padded ? 0 : static_cast<int32_t>(apart),
                               clipped ? &part.rect : nullptr, &rows);
    require(isKnown(status), "status of the rectangle");
    require(inside || (status == KVL_JPEG_INVALID_ARGUMENT && rows == 0), "status in vain");
    require(!inside || (rows >= 0 && rows <= part.rect.bottom - part.rect.top),
            "rows of the rectangle");
    require(decoder.state == nullptr, "the coder's memory is not free");
    if (inside) part.allow(rest, rows);
    rest.check("beside the rectangle");
  });
  return 0;
}
