// Files through libjpeg into bitmaps. The last bytes of an input choose the options.
#include <cstdlib>
#include <vector>

#include "fuzz_input.h"
#include "kvl/kvl.h"
#include "libjpeg_coder.h"

namespace {

constexpr uint64_t pixelLimit = 1 << 22;

KVL_JpegReadOptions optionsFrom(kvl::fuzz::FuzzInput& input) {
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  const uint8_t bits = input.byte();
  options.threads = 1 + (bits & 1);
  options.bitCount = (bits & 2) != 0 ? 8 : 24;
  options.topDown = bits >> 2 & 1;
  if ((bits & 8) != 0) {
    options.crop = {input.range(0, 300), input.range(0, 300), input.range(0, 2000),
                    input.range(0, 2000)};
  }
  options.pixelLimit = pixelLimit;
  options.memoryLimit = 64 << 20;
  options.scanLimit = 20;
  return options;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  static const bool initialised = (InitKVLWrapper(), true);
  (void)initialised;
  kvl::fuzz::FuzzInput input(bytes, length);
  const KVL_JpegReadOptions options = optionsFrom(input);
  LibjpegDecoder decoder;
  libjpeg_decoder_init(&decoder);
  BITMAPINFOHEADER header = {};
  size_t size = 0;
  int32_t rows = 0;
  int32_t status = KVL_QvjJpegToDib(&decoder.table, input.data(), input.size(), &options, &header,
                                    nullptr, &size, &rows);
  if (status != KVL_JPEG_NEEDS_BUFFER) return 0;
  std::vector<uint8_t> bits(size);
  status = KVL_QvjJpegToDib(&decoder.table, input.data(), input.size(), &options, &header,
                            bits.data(), &size, &rows);
  const int32_t height = std::abs(header.biHeight);
  if (rows < 0 || rows > height || (status == 0 && rows != height)) std::abort();

  // Into a bitmap of one row more and less.
  header.biHeight = height / 2 + 1;
  bits.assign(size / static_cast<size_t>(height) * static_cast<size_t>(header.biHeight), 0);
  KVL_QvjDecompress(&decoder.table, input.data(), input.size(), &options, &header, bits.data(), 0,
                    nullptr, &rows);
  if (decoder.state != nullptr || rows > header.biHeight) std::abort();
  return 0;
}
