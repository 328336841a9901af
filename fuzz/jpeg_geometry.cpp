// Geometries, rectangles and failures of a coder that are made up, through all three routines.
#include <cstdlib>
#include <vector>

#include "raw_coder.h"
#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

constexpr int32_t failure = 42;

struct Failure {
  int call;
  int32_t row;
};

int32_t failSometimes(RawCoder* coder, RawCall call, int32_t row) {
  const auto* where = static_cast<const Failure*>(coder->context);
  return call == where->call && (call != raw_rows || row == where->row) ? failure : 0;
}

bool isKnown(int32_t status) {
  return status == KVL_JPEG_OK || status == failure || status == raw_too_small ||
         status == KVL_JPEG_INVALID_ARGUMENT || status == KVL_JPEG_OUT_OF_MEMORY ||
         status == KVL_JPEG_BAD_CODER || status == KVL_JPEG_UNSUPPORTED ||
         status == KVL_JPEG_OVER_LIMIT;
}

// At most 600 pixels a side, or one of the limits and what lies beyond.
int32_t side(Case& test) {
  constexpr int32_t extremes[] = {0, -1, 65535, 65536, INT32_MIN, INT32_MAX};
  const int32_t value = test.ordinary(0, 700);
  return value <= 600 ? value : extremes[value % 6];
}

RECT rectangle(Case& test) {
  return {test.integer(-200, 400), test.integer(-200, 400), test.integer(-20, 900),
          test.integer(-20, 900)};
}

KVL_JpegGeometry geometryFor(Case& test) {
  KVL_JpegGeometry geometry = {};
  geometry.size = sizeof geometry;
  geometry.width = side(test);
  geometry.height = side(test);
  // The pattern takes no memory, but a coder has to fill the rows.
  if (geometry.width > 600 && geometry.height > 600) geometry.height = 9;
  geometry.colorSpace = test.byte() % 4;
  geometry.componentCount = test.byte() % 8 == 0 ? test.byte() : geometry.colorSpace == 1 ? 1 : 3;
  // The coder takes the factors of all as they are.
  for (int c = 0; c < std::min(geometry.componentCount, 3); ++c) {
    geometry.horizontal[c] = test.byte() % 6;
    geometry.vertical[c] = test.byte() % 6;
  }
  return geometry;
}

void readWhole(Case& test, const KVL_JpegDecoder& decoder, const KVL_JpegReadOptions& options) {
  BITMAPINFOHEADER header = {};
  size_t needed = 0;
  int32_t rows = 0, status = 0;
  status = KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, nullptr, &needed, &rows);
  require(status == KVL_JPEG_NEEDS_BUFFER || isKnown(status), "status of the question");
  if (status != KVL_JPEG_NEEDS_BUFFER || needed > Case::maxBytes) return;
  const int64_t rowBytes = int64_t{header.biWidth} * header.biBitCount / 8;
  const int64_t stride = rowOf(header.biWidth, header.biBitCount);
  uint8_t* const bits = test.writable(needed);
  test.onlyWritten(0, bytes(stride), bytes(rowBytes), bytes(std::abs(header.biHeight)));
  test.watch(&rows, sizeof rows);
  test.watch(&status, sizeof status);
  test.call([&] {
    size_t given = needed;
    status = KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, bits, &given, &rows);
    require(isKnown(status), "status of the bitmap");
    require(rows >= 0 && rows <= std::abs(header.biHeight), "rows of the bitmap");
    require((status == 0) == (rows == std::abs(header.biHeight)) || status != 0, "all rows");
  });
}

void readIntoBitmap(Case& test, const KVL_JpegDecoder& decoder,
                    const KVL_JpegReadOptions& options) {
  const int32_t width = test.ordinary(1, 200), height = test.ordinary(-128, 127);
  const BITMAPINFOHEADER header =
      test.header(width, height, static_cast<uint16_t>(options.bitCount));
  const bool standard = test.oneIn(3), placed = test.oneIn(2);
  const int64_t row = bitmapRow(header);
  const int64_t rowBytes = int64_t{header.biWidth} * header.biBitCount / 8;
  const int32_t asked = standard ? 0 : strideFor(test, rowBytes);
  const int64_t count = std::abs(int64_t{header.biHeight});
  const StridedRows all = {asked != 0 ? asked : row, rowBytes, count};
  const RECT rect = rectangle(test);
  const RECT area = placed ? rect
                           : RECT{0, 0, header.biWidth,
                                  static_cast<int32_t>(std::min<int64_t>(count, INT32_MAX))};
  const bool bitmap = row > 0 && (header.biBitCount == 8 || header.biBitCount == 24) &&
                      header.biWidth > 0 && count > 0 && all.stride >= rowBytes;
  const bool inside = area.left >= 0 && area.top >= 0 && area.right <= header.biWidth &&
                      area.bottom <= count && area.left < area.right && area.top < area.bottom;
  const bool usable = bitmap && inside && all.fit() != Fit::beyondAddresses;
  if (usable && all.fit() != Fit::inPool) return;
  int32_t rows = 0, status = 0;
  uint8_t* const bits = usable ? all.writable(test) : test.untouchable();
  if (usable) {
    const int64_t first = header.biHeight < 0 ? area.top : count - area.bottom;
    test.onlyWritten(bytes(first * all.stride + area.left * header.biBitCount / 8),
                     bytes(all.stride), bytes((area.right - area.left) * header.biBitCount / 8),
                     bytes(area.bottom - area.top));
  }
  test.keep(&header, sizeof header);
  test.watch(&rows, sizeof rows);
  test.watch(&status, sizeof status);
  test.call([&] {
    status = KVL_QvjDecompress(&decoder, nullptr, 0, &options, &header, bits, asked,
                               placed ? &rect : nullptr, &rows);
    require(isKnown(status), "status of the rectangle");
    require(usable || (status == KVL_JPEG_INVALID_ARGUMENT && rows == 0), "status in vain");
    require(rows >= 0 && (rows == 0 || rows <= area.bottom - area.top), "rows of the rectangle");
  });
}

void read(Case& test, RawCoder& coder) {
  coder.geometry = geometryFor(test);
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.threads = test.oneIn(4) ? test.integer(0, 3) : 1;
  options.bitCount = test.byte() % 2 == 0 ? 8 : 24;
  options.topDown = test.byte() % 2;
  if (test.byte() % 2 == 0) options.crop = rectangle(test);
  options.memoryLimit = 32 << 20;
  // Teams that a host may ask for, but no test should.
  if (options.threads > 64 && options.threads <= 1024) options.threads = 64;
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  test.keep(&options, sizeof options);
  if (test.oneIn(2)) {
    readWhole(test, decoder, options);
  } else {
    readIntoBitmap(test, decoder, options);
  }
}

void write(Case& test, RawCoder& coder) {
  constexpr PixelFormat formats[] = {{8, 0},           {24, 0},          {16, 0x32595559},
                                     {16, 0x59565955}, {16, 0x55595659}, {16, 0x59555956}};
  const PixelFormat format = formats[test.byte() % std::size(formats)];
  const BITMAPINFOHEADER header = test.header(test.ordinary(1, 300), test.ordinary(-256, 255),
                                              format.bitCount, format.compression);
  const int32_t sampling = test.integer(0, 2), range = test.integer(0, 1);
  const int32_t bandRows = test.integer(0, 300);
  const int64_t row = bitmapRow(header), count = std::abs(int64_t{header.biHeight});
  const bool packed = header.biCompression != 0 && header.biCompression != 3 &&
                      header.biCompression < 0xE4000000 && header.biBitCount == 16;
  const bool plain = header.biBitCount == 24 || header.biBitCount == 8;
  const bool usable = row > 0 && (packed || plain) && header.biCompression != 3 && count > 0 &&
                      count <= 65535 && header.biWidth <= 65535 && sampling >= 0 && sampling <= 2 &&
                      range >= 0 && range <= 1 && bandRows >= 0;
  // Packed pixels lie in whole words; of others the padding of the last row is nobody's.
  const int64_t rowBytes = packed ? row : int64_t{header.biWidth} * header.biBitCount / 8;
  const StridedRows all = {row, rowBytes, count};
  if (usable && all.fit() != Fit::inPool) return;
  const uint8_t* const bits = usable ? all.readOnly(test) : test.untouchable();
  const int64_t samples = usable ? 3 * (header.biWidth + int64_t{16}) * (count + 16) : 0;
  if (samples > 16 << 20) return;
  std::vector<uint8_t> memory(bytes(samples));
  coder.memory = memory.data();
  coder.size = memory.size();
  const KVL_JpegEncoder encoder = raw_encoder(&coder);
  int32_t written = 0, status = 0;
  test.keep(&header, sizeof header);
  test.watch(&written, sizeof written);
  test.watch(&status, sizeof status);
  if (!memory.empty()) test.watch(memory.data(), memory.size());
  test.call([&] {
    status = KVL_JpegWriteRawImage(&encoder, &header, bits, sampling, range, bandRows, &written);
    require(isKnown(status), "status of the picture");
    require(usable || (status == KVL_JPEG_INVALID_ARGUMENT && written == 0), "status in vain");
    require(written >= 0 && written <= count && (status != 0 || written == count), "rows written");
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  const uint8_t choice = test.byte();
  Failure where = {choice % 16, test.byte() % 16};
  RawCoder coder = {};
  coder.hook = failSometimes;
  coder.context = &where;
  if ((choice & 32) != 0) {
    write(test, coder);
  } else {
    read(test, coder);
  }
  return 0;
}
