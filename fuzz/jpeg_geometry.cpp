// Geometries, rectangles and failures of a coder that are made up, through all three routines.
#include <cstdlib>
#include <vector>

#include "core/initialise.h"
#include "core/instruction_set.h"
#include "fuzz_input.h"
#include "kvl/kvl.h"
#include "raw_coder.h"

namespace {

using kvl::fuzz::FuzzInput;

struct Failure {
  int call;
  int32_t row;
};

int32_t failSometimes(RawCoder* coder, RawCall call, int32_t row) {
  const auto* failure = static_cast<const Failure*>(coder->context);
  return call == failure->call && (call != raw_rows || row == failure->row) ? 42 : 0;
}

// At most 600 pixels a side, or one of the limits and what lies beyond.
int32_t side(FuzzInput& input) {
  constexpr int32_t extremes[] = {0, -1, 65535, 65536, INT32_MIN, INT32_MAX};
  const int32_t value = input.range(0, 700);
  return value <= 600 ? value : extremes[value % 6];
}

RECT rectangle(FuzzInput& input) {
  return {input.int16() / 32, input.int16() / 32, input.int16() / 32, input.int16() / 32};
}

void read(FuzzInput& input, RawCoder& coder) {
  KVL_JpegGeometry& geometry = coder.geometry;
  geometry.size = sizeof geometry;
  geometry.width = side(input);
  geometry.height = side(input);
  // The pattern takes no memory, but a coder has to fill the rows.
  if (geometry.width > 600 && geometry.height > 600) geometry.height = 9;
  geometry.colorSpace = input.byte() % 4;
  geometry.componentCount = input.byte() % 8 == 0 ? input.byte() : geometry.colorSpace == 1 ? 1 : 3;
  for (int c = 0; c < 3; ++c) {
    geometry.horizontal[c] = input.byte() % 6;
    geometry.vertical[c] = input.byte() % 6;
  }
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.threads = 1 + input.byte() % 2;
  options.bitCount = input.byte() % 2 == 0 ? 8 : 24;
  options.topDown = input.byte() % 2;
  if (input.byte() % 2 == 0) options.crop = rectangle(input);
  options.memoryLimit = 32 << 20;

  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  BITMAPINFOHEADER header = {};
  size_t size = 0;
  int32_t rows = 0;
  if (KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, nullptr, &size, &rows) ==
          KVL_JPEG_NEEDS_BUFFER &&
      size < (8u << 20)) {
    std::vector<uint8_t> bits(size);
    KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, bits.data(), &size, &rows);
    if (rows > std::abs(header.biHeight)) std::abort();
  }

  header = {};
  header.biSize = sizeof header;
  header.biBitCount = static_cast<uint16_t>(options.bitCount);
  header.biWidth = input.range(1, 200);
  header.biHeight = input.int16() / 256;
  const int32_t rowBytes = header.biWidth * header.biBitCount / 8;
  const int32_t stride = rowBytes + input.byte() % 9;
  std::vector<uint8_t> bits(static_cast<size_t>(stride) *
                            static_cast<size_t>(std::abs(header.biHeight)));
  const RECT rect = rectangle(input);
  KVL_QvjDecompress(&decoder, nullptr, 0, &options, &header, bits.data(), stride,
                    input.byte() % 2 == 0 ? &rect : nullptr, &rows);
}

void write(FuzzInput& input, RawCoder& coder) {
  constexpr uint32_t codes[] = {0, 0x32595559, 0x59565955, 0x55595659, 0x59555956};
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof header;
  header.biWidth = input.range(1, 300);
  header.biHeight = input.int16() / 128;
  const uint8_t kind = input.byte() % 6;
  header.biBitCount = kind == 0 ? 8 : kind == 1 ? 24 : 16;
  header.biCompression = kind < 2 ? 0 : codes[kind - 1];
  const size_t rows = static_cast<size_t>(std::abs(header.biHeight));
  const size_t stride = (static_cast<size_t>(header.biWidth) * header.biBitCount + 31) / 32 * 4;
  std::vector<uint8_t> bits(stride * rows);
  for (uint8_t& byte : bits) byte = input.byte();
  std::vector<uint8_t> memory(3 * (static_cast<size_t>(header.biWidth) + 16) * (rows + 16));
  coder.memory = memory.data();
  coder.size = memory.size();
  const KVL_JpegEncoder encoder = raw_encoder(&coder);
  int32_t written = 0;
  const int32_t status = KVL_JpegWriteRawImage(&encoder, &header, bits.data(), input.byte() % 4,
                                               input.byte() % 2, input.int16(), &written);
  if (status == 0 && written != static_cast<int32_t>(rows)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  static const bool initialised = (kvl::initialise(), true);
  (void)initialised;
  FuzzInput input(bytes, length);
  const uint8_t choice = input.byte();
  kvl::limitInstructionSet((choice & 1) != 0 ? kvl::InstructionSet::scalar
                                             : kvl::InstructionSet::avx2);
  Failure failure = {(choice >> 1) % 16, input.byte() % 16};
  RawCoder coder = {};
  coder.hook = failSometimes;
  coder.context = &failure;
  if ((choice & 32) != 0) {
    write(input, coder);
  } else {
    read(input, coder);
  }
  return 0;
}
