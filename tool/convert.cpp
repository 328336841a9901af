#include "convert.h"

#include <omp.h>

#include <CLI/App.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "colour_conversion.h"
#include "error.h"
#include "interrupt.h"
#include "media_reader.h"
#include "media_writer.h"
#include "output_format.h"
#include "part_file.h"

namespace kvl::tool {
namespace {

constexpr const char* kPicture = "picture";

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Raw bytes out, to a file that has its name only once it is whole or to standard output.
class RawWriter {
 public:
  explicit RawWriter(const std::string& path) : name_(outputName(path)) {
    if (path == "-") return;
    part_.emplace(path);
    file_.reset(std::fopen(part_->path().c_str(), "wb"));
    check(file_ != nullptr);
  }

  void write(const std::vector<uint8_t>& bytes) {
    throwIfInterrupted();
    check(std::fwrite(bytes.data(), 1, bytes.size(), stream()) == bytes.size());
  }

  void finish() {
    check(std::fflush(stream()) == 0);
    if (!part_) return;
    check(std::fclose(file_.release()) == 0);
    part_->keep();
  }

 private:
  std::FILE* stream() const { return file_ ? file_.get() : stdout; }
  void check(bool done) const {
    if (!done) throw Error(name_, std::string("cannot be written (") + std::strerror(errno) + ")");
  }

  std::string name_;
  std::optional<PartFile> part_;
  File file_;
};

// One frame, and nothing behind it.
std::vector<uint8_t> readRawFrame(const std::string& path, size_t bytes) {
  const std::string name = inputName(path);
  File opened;
  if (path != "-") {
    opened.reset(std::fopen(path.c_str(), "rb"));
    if (!opened) throw Error(name, std::strerror(errno));
  }
  std::FILE* file = opened ? opened.get() : stdin;
  std::vector<uint8_t> frame(bytes + 1);
  const size_t got = std::fread(frame.data(), 1, frame.size(), file);
  if (std::ferror(file) != 0) throw Error(name, std::strerror(errno));
  if (got != bytes) {
    throw Error(name, "is not one frame of that size and layout, " + std::to_string(bytes) +
                          " bytes (it holds " + (got > bytes ? "more" : std::to_string(got)) + ")");
  }
  frame.resize(bytes);
  return frame;
}

void pictureToRaw(const ConvertOptions& options) {
  checkRawColours(options.to, options.colours);
  MediaReader reader(options.input);
  RawWriter writer(options.output);
  ColourConverter colours;
  Dib picture;
  bool any = false;
  while (const AVFrame* decoded = reader.next()) {
    colours.toDib(*decoded, picture);
    writer.write(toRawFrame(picture, options.to, options.colours));
    any = true;
  }
  if (!any) throw Error(inputName(options.input), "truncated or damaged (holds no frame)");
  writer.finish();
}

void rawToPicture(const ConvertOptions& options) {
  if (!options.size) throw Error("--size", "is needed with --from", usage);
  if (outputFormat(options.output).isClip) {
    throw Error(outputName(options.output), "is to be a clip, but a raw frame is a picture", usage);
  }
  const std::vector<uint8_t> frame =
      readRawFrame(options.input, rawFrameBytes(options.from, *options.size));
  Dib picture;
  picture.resize(*options.size);
  fromRawFrame(frame, options.from, options.colours, picture);
  MediaWriter writer(options.output, picture, {});
  writer.write(picture, 0);
  writer.finish();
}

}  // namespace

void addConvertOptions(CLI::App& command, ConvertOptions& options) {
  command.add_option("input", options.input, "Picture, clip or raw frame; - for standard input")
      ->required()
      ->option_text(" ");
  command
      .add_option("output", options.output, "Raw frames or picture to write; - for standard output")
      ->required()
      ->option_text(" ");
  addChoice(command, "--to", options.to, "layout", rawLayouts(), "Layout of the frames to write");
  std::vector<std::string> sources = rawSourceLayouts();
  sources.insert(sources.begin(), kPicture);
  addChoice(command, "--from", options.from, "layout", sources,
            "Read a raw frame of that layout, and write a picture");
  addSize(command, "--size", options.size, "Size of the raw frame to read", "none");
  addChoice(command, "--matrix", options.colours.matrix, "matrix", {"bt601", "bt709", "bt2020"},
            "Matrix of the YUV colours");
  addChoice(command, "--range", options.colours.range, "range", {"studio", "full"},
            "Luma of 16..235, or of 0..255");
  addInteger(command, "--threads", options.threads, {"threads", 1, 1024},
             "Size of the library's team", "one a physical core");
  command.footer(
      "A raw frame has its rows from the top, nothing between and behind them; of an odd size, an\n"
      "odd pixel has chroma of its own. A clip gives one frame after the other. FFmpeg opens them\n"
      "with -f rawvideo -video_size WxH -pix_fmt, and there yuy2 is called yuyv422, uyvy uyvy422,\n"
      "y gray, i420 yuv420p and rgb32 bgr0; yv12 is i420 with V before U.\n"
      "uyvy is bt601 or bt709, and yuy2 and uyvy are of studio range.\n"
      "Exit status: 0 done, 1 failed, 2 wrong usage. A file that could not be finished is "
      "removed.");
}

void convert(const ConvertOptions& options) {
  catchSignals();
  InitKVLWrapper();
  if (options.threads != 0) omp_set_num_threads(options.threads);
  if (options.from == kPicture) {
    pictureToRaw(options);
  } else {
    rawToPicture(options);
  }
}

}  // namespace kvl::tool
