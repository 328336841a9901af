#include "jpeg_command.h"

#include <omp.h>

#include <CLI/App.hpp>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "byte_file.h"
#include "colour_conversion.h"
#include "dib.h"
#include "error.h"
#include "interrupt.h"
#include "kvl/kvl.h"
#include "libjpeg_coder.h"
#include "media_reader.h"
#include "media_writer.h"
#include "operations/grey_plane.h"
#include "options.h"
#include "timing.h"

namespace kvl::tool {
namespace {

struct JpegOptions {
  std::string input;
  std::string output;
  int quality = 90;
  std::string sampling = "420";
  int bandRows = 0;
  bool grey = false;
  bool progressive = false;
  std::optional<Rectangle> crop;
  int threads = 0;  // 0: the library's own choice
  int repeat = 1;
  bool time = false;
};

std::string reasonOf(int32_t status, const char* message) {
  if (message[0] != 0) return message;
  switch (status) {
    case KVL_JPEG_INVALID_ARGUMENT:
      return "the rectangle lies outside the picture, or a side is too long for JPEG";
    case KVL_JPEG_OUT_OF_MEMORY:
      return "out of memory";
    case KVL_JPEG_UNSUPPORTED:
      return "its colour space is not supported";
    case KVL_JPEG_OVER_LIMIT:
      return "it is too large";
    default:
      return "status " + std::to_string(status);
  }
}

struct Encoder : LibjpegEncoder {
  Encoder(int percent, bool progressively) : LibjpegEncoder() {
    libjpeg_encoder_init(this, percent);
    progressive = progressively ? 1 : 0;
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  ~Encoder() { libjpeg_encoder_free(this); }
};

// The picture's brightness as an 8-bit bitmap with padded rows.
Dib greyDib(const Dib& picture) {
  GreyPlane plane;
  toGrey(picture, plane);
  Dib grey;
  grey.header = picture.header;
  grey.header.biBitCount = 8;
  grey.bits.resize(grey.stride() * static_cast<size_t>(plane.size.height));
  const auto width = static_cast<size_t>(plane.size.width);
  for (size_t y = 0; y < static_cast<size_t>(plane.size.height); ++y) {
    std::memcpy(grey.bits.data() + y * grey.stride(), plane.samples.data() + y * width, width);
  }
  return grey;
}

Dib readPicture(const std::string& path) {
  MediaReader reader(path);
  if (reader.traits().isClip) throw Error(inputName(path), "is a clip, not a picture", usage);
  const AVFrame* frame = reader.next();
  if (frame == nullptr) throw Error(inputName(path), "truncated or damaged (holds no frame)");
  Dib picture;
  ColourConverter().toDib(*frame, picture);
  return picture;
}

void checkPictureName(const std::string& path) {
  if (outputFormat(path).isClip) throw Error(outputName(path), "is to be a picture", usage);
}

// The writer takes 24 bits.
Dib colourDib(const BITMAPINFOHEADER& header, std::vector<uint8_t> bits) {
  Dib decoded;
  decoded.header = header;
  decoded.bits = std::move(bits);
  if (header.biBitCount == 24) return decoded;
  Dib colour;
  colour.resize(decoded.size());
  for (int32_t y = 0; y < header.biHeight; ++y) {
    const uint8_t* grey = decoded.rowFromTop(y);
    uint8_t* pixel = colour.rowFromTop(y);
    for (int32_t x = 0; x < header.biWidth; ++x, pixel += 3) std::memset(pixel, grey[x], 3);
  }
  return colour;
}

void addCommonOptions(CLI::App& command, JpegOptions& options, const std::string& input,
                      const std::string& output) {
  command.add_option("input", options.input, input)->required()->option_text(" ");
  command.add_option("output", options.output, output)->required()->option_text(" ");
  addInteger(command, "--threads", options.threads, {"threads", 1, 1024},
             "Size of the library's team", "one a physical core, to decode at most 3");
  addInteger(command, "--repeat", options.repeat, {"runs", 1, 1000},
             "Run so often from the same input; --time takes the median");
  addSwitch(command, "--time", options.time,
            "Print milliseconds inside library and coder, and megapixels a second");
}

void encode(const JpegOptions& options) {
  catchSignals();
  InitKVLWrapper();
  if (options.threads != 0) omp_set_num_threads(options.threads);
  Dib picture = readPicture(options.input);
  if (options.grey) picture = greyDib(picture);
  const int32_t sampling = options.sampling == "444"   ? KVL_JPEG_444
                           : options.sampling == "422" ? KVL_JPEG_422
                                                       : KVL_JPEG_420;
  Encoder encoder(options.quality, options.progressive);
  const auto run = [&] {
    const int32_t status =
        KVL_JpegWriteRawImage(&encoder.table, &picture.header, picture.bits.data(), sampling, 0,
                              options.bandRows, nullptr);
    if (status != KVL_JPEG_OK)
      throw Error(outputName(options.output), reasonOf(status, encoder.message));
  };
  const double milliseconds = medianMilliseconds(
      options.repeat, [] {}, run);
  ByteWriter writer(options.output);
  writer.write(encoder.bytes, encoder.size);
  writer.finish();
  const int64_t pixels = int64_t{picture.size().width} * picture.size().height;
  if (options.time) printTime("jpeg-encode", picture.size(), pixels, 1, milliseconds);
}

void decode(const JpegOptions& options) {
  catchSignals();
  InitKVLWrapper();
  checkPictureName(options.output);
  const std::vector<uint8_t> file = readBytes(options.input);
  KVL_JpegReadOptions read = {};
  read.size = sizeof read;
  read.threads = options.threads;
  read.bitCount = options.grey ? 8 : 0;
  if (options.crop) {
    const auto end = [](int start, int length) {
      const int64_t sum = int64_t{start} + length;
      return static_cast<int32_t>(std::min<int64_t>(sum, std::numeric_limits<int32_t>::max()));
    };
    read.crop = {options.crop->left, options.crop->top,
                 end(options.crop->left, options.crop->width),
                 end(options.crop->top, options.crop->height)};
  }
  LibjpegDecoder decoder;
  libjpeg_decoder_init(&decoder);
  BITMAPINFOHEADER header = {};
  std::vector<uint8_t> bits;
  size_t size = 0;
  const auto call = [&] {
    return KVL_QvjJpegToDib(&decoder.table, file.data(), file.size(), &read, &header,
                            bits.empty() ? nullptr : bits.data(), &size, nullptr);
  };
  const auto check = [&](int32_t status, int32_t wanted) {
    if (status != wanted) throw Error(inputName(options.input), reasonOf(status, decoder.message));
  };
  check(call(), KVL_JPEG_NEEDS_BUFFER);
  bits.resize(size);
  const double milliseconds = medianMilliseconds(
      options.repeat, [] {}, [&] { check(call(), KVL_JPEG_OK); });

  const Dib picture = colourDib(header, std::move(bits));
  MediaWriter writer(options.output, picture, SourceTraits{});
  writer.write(picture, 0);
  writer.finish();
  const int64_t pixels = int64_t{header.biWidth} * header.biHeight;
  if (options.time) printTime("jpeg-decode", picture.size(), pixels, 1, milliseconds);
}

}  // namespace

void addJpeg(CLI::App& parser, Commands& commands) {
  CLI::App* jpeg = parser.add_subcommand("jpeg", "JPEG files through libjpeg's raw data");
  jpeg->require_subcommand(1);
  const auto options = std::make_shared<JpegOptions>();

  CLI::App* toFile = jpeg->add_subcommand("encode", "Write a picture as a JPEG file");
  addCommonOptions(*toFile, *options, "Picture to read",
                   "JPEG file to write; - for standard output");
  addInteger(*toFile, "--quality", options->quality, {"percent", 1, 100},
             "Quality, as libjpeg counts it");
  addChoice(*toFile, "--sampling", options->sampling, "sampling", {"444", "422", "420"},
            "Sampling of the chroma");
  addInteger(*toFile, "--band", options->bandRows, {"rows", 0, 65535},
             "Rows of pixels that a thread converts at once; 0 for the library's choice");
  addSwitch(*toFile, "--grey", options->grey, "Write the brightness only");
  addSwitch(*toFile, "--progressive", options->progressive, "Write a progressive file");
  commands.push_back({toFile, [options] { encode(*options); }});

  CLI::App* toPicture = jpeg->add_subcommand("decode", "Read a JPEG file into a picture");
  addCommonOptions(*toPicture, *options, "JPEG file to read; - for standard input",
                   "Picture to write: .png .bmp .tif .tiff .ppm .pnm .jpg");
  addRectangle(*toPicture, "--crop", options->crop, "Read this rectangle only",
               "the whole picture");
  addSwitch(*toPicture, "--grey", options->grey, "Read the brightness only");
  commands.push_back({toPicture, [options] { decode(*options); }});
}

}  // namespace kvl::tool
