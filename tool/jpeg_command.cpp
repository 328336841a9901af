#include "jpeg_command.h"

#include <omp.h>

#include <CLI/App.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "colour_conversion.h"
#include "dib.h"
#include "error.h"
#include "interrupt.h"
#include "kvl/kvl.h"
#include "libjpeg_coder.h"
#include "media_reader.h"
#include "media_writer.h"
#include "operations/grey_plane.h"
#include "part_file.h"
#include "timing.h"

namespace kvl::tool {
namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

std::vector<uint8_t> readBytes(const std::string& path) {
  const File opened(path == "-" ? nullptr : std::fopen(path.c_str(), "rb"));
  FILE* file = path == "-" ? stdin : opened.get();
  if (file == nullptr) throw Error(inputName(path), std::strerror(errno));
  std::vector<uint8_t> bytes;
  uint8_t block[65536];
  errno = 0;
  for (size_t got; (got = std::fread(block, 1, sizeof block, file)) > 0;) {
    bytes.insert(bytes.end(), block, block + got);
    throwIfInterrupted();
  }
  if (std::ferror(file) != 0) throw Error(inputName(path), std::strerror(errno));
  return bytes;
}

void writeTo(FILE* file, const std::string& path, const uint8_t* bytes, size_t size) {
  if (std::fwrite(bytes, 1, size, file) == size && std::fflush(file) == 0) return;
  throw Error(outputName(path), std::string("cannot be written (") + std::strerror(errno) + ")");
}

// Under its name only when it is whole.
void writeBytes(const std::string& path, const uint8_t* bytes, size_t size) {
  if (path == "-") {
    writeTo(stdout, path, bytes, size);
    return;
  }
  PartFile part(path);
  const File file(std::fopen(part.path().c_str(), "wb"));
  if (file == nullptr) throw Error(outputName(path), std::strerror(errno));
  writeTo(file.get(), path, bytes, size);
  throwIfInterrupted();
  part.keep();
}

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

}  // namespace

JpegCommand::JpegCommand(CLI::App& parser) {
  CLI::App* jpeg = parser.add_subcommand("jpeg", "JPEG files through libjpeg's raw data");
  jpeg->require_subcommand(1);
  encode_ = jpeg->add_subcommand("encode", "Write a picture as a JPEG file");
  addCommonOptions(*encode_, "Picture to read", "JPEG file to write; - for standard output");
  addInteger(*encode_, "--quality", quality_, {"percent", 1, 100}, "Quality, as libjpeg counts it");
  addChoice(*encode_, "--sampling", sampling_, "sampling", {"444", "422", "420"},
            "Sampling of the chroma");
  addInteger(*encode_, "--band", bandRows_, {"rows", 0, 65535},
             "Rows of pixels that a thread converts at once; 0 for the library's choice");
  addSwitch(*encode_, "--grey", grey_, "Write the brightness only");
  addSwitch(*encode_, "--progressive", progressive_, "Write a progressive file");

  decode_ = jpeg->add_subcommand("decode", "Read a JPEG file into a picture");
  addCommonOptions(*decode_, "JPEG file to read; - for standard input",
                   "Picture to write: .png .bmp .tif .tiff .ppm .pnm .jpg");
  addRectangle(*decode_, "--crop", crop_, "Read this rectangle only", "the whole picture");
  addSwitch(*decode_, "--grey", grey_, "Read the brightness only");
}

void JpegCommand::addCommonOptions(CLI::App& command, const std::string& input,
                                   const std::string& output) {
  command.add_option("input", input_, input)->required()->option_text(" ");
  command.add_option("output", output_, output)->required()->option_text(" ");
  addInteger(command, "--threads", threads_, {"threads", 1, 1024}, "Size of the library's team",
             "one a physical core, to decode at most 3");
  addInteger(command, "--repeat", repeat_, {"runs", 1, 1000},
             "Run so often from the same input; --time takes the median");
  addSwitch(command, "--time", time_,
            "Print milliseconds inside library and coder, and megapixels a second");
}

void JpegCommand::runIfParsed() {
  if (!encode_->parsed() && !decode_->parsed()) return;
  catchSignals();
  InitKVLWrapper();
  if (encode_->parsed()) {
    encode();
  } else {
    decode();
  }
}

void JpegCommand::encode() {
  if (threads_ != 0) omp_set_num_threads(threads_);
  Dib picture = readPicture(input_);
  if (grey_) picture = greyDib(picture);
  const int32_t sampling = sampling_ == "444"   ? KVL_JPEG_444
                           : sampling_ == "422" ? KVL_JPEG_422
                                                : KVL_JPEG_420;
  Encoder encoder(quality_, progressive_);
  const auto run = [&] {
    const int32_t status = KVL_JpegWriteRawImage(
        &encoder.table, &picture.header, picture.bits.data(), sampling, 0, bandRows_, nullptr);
    if (status != KVL_JPEG_OK) throw Error(outputName(output_), reasonOf(status, encoder.message));
  };
  const double milliseconds = medianMilliseconds(
      repeat_, [] {}, run);
  writeBytes(output_, encoder.bytes, encoder.size);
  const int64_t pixels = int64_t{picture.size().width} * picture.size().height;
  if (time_) printTime("jpeg-encode", picture.size(), pixels, 1, milliseconds);
}

void JpegCommand::decode() {
  checkPictureName(output_);
  const std::vector<uint8_t> file = readBytes(input_);
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.threads = threads_;
  options.bitCount = grey_ ? 8 : 0;
  if (crop_) {
    const auto end = [](int start, int length) {
      const int64_t sum = int64_t{start} + length;
      return static_cast<int32_t>(std::min<int64_t>(sum, std::numeric_limits<int32_t>::max()));
    };
    options.crop = {crop_->left, crop_->top, end(crop_->left, crop_->width),
                    end(crop_->top, crop_->height)};
  }
  LibjpegDecoder decoder;
  libjpeg_decoder_init(&decoder);
  BITMAPINFOHEADER header = {};
  std::vector<uint8_t> bits;
  size_t size = 0;
  const auto call = [&] {
    return KVL_QvjJpegToDib(&decoder.table, file.data(), file.size(), &options, &header,
                            bits.empty() ? nullptr : bits.data(), &size, nullptr);
  };
  const auto check = [&](int32_t status, int32_t wanted) {
    if (status != wanted) throw Error(inputName(input_), reasonOf(status, decoder.message));
  };
  check(call(), KVL_JPEG_NEEDS_BUFFER);
  bits.resize(size);
  const double milliseconds = medianMilliseconds(
      repeat_, [] {}, [&] { check(call(), KVL_JPEG_OK); });

  const Dib picture = colourDib(header, std::move(bits));
  MediaWriter writer(output_, picture, SourceTraits{});
  writer.write(picture, 0);
  writer.finish();
  const int64_t pixels = int64_t{header.biWidth} * header.biHeight;
  if (time_) printTime("jpeg-decode", picture.size(), pixels, 1, milliseconds);
}

}  // namespace kvl::tool
