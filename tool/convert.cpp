#include "convert.h"

#include <omp.h>

#include <CLI/App.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "byte_file.h"
#include "colour_conversion.h"
#include "error.h"
#include "interrupt.h"
#include "media_reader.h"
#include "media_writer.h"
#include "options.h"
#include "output_format.h"
#include "raw_frame.h"

namespace kvl::tool {
namespace {

constexpr const char* kPicture = "picture";

struct ConvertOptions {
  std::string input;
  std::string output;
  std::string to = "i420";
  std::string from = kPicture;
  std::optional<Size> size;
  RawColours colours;
  int threads = 0;  // 0: the library's own choice
};

// One frame, and nothing behind it.
std::vector<uint8_t> readRawFrame(const std::string& path, size_t bytes) {
  std::vector<uint8_t> frame = readBytes(path, bytes + 1);
  if (frame.size() != bytes) {
    throw Error(inputName(path),
                "is not one frame of that size and layout, " + std::to_string(bytes) +
                    " bytes (it holds " +
                    (frame.size() > bytes ? "more" : std::to_string(frame.size())) + ")");
  }
  return frame;
}

void pictureToRaw(const ConvertOptions& options) {
  checkRawColours(options.to, options.colours);
  MediaReader reader(options.input);
  ByteWriter writer(options.output);
  ColourConverter colours;
  Dib picture;
  bool any = false;
  while (const AVFrame* decoded = reader.next()) {
    colours.toDib(*decoded, picture);
    const std::vector<uint8_t> frame = toRawFrame(picture, options.to, options.colours);
    writer.write(frame.data(), frame.size());
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

void addOptions(CLI::App& command, ConvertOptions& options) {
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

}  // namespace

void addConvert(CLI::App& parser, Commands& commands) {
  CLI::App* command =
      parser.add_subcommand("convert", "Pictures and clips into raw frames, and back");
  const auto options = std::make_shared<ConvertOptions>();
  addOptions(*command, *options);
  commands.push_back({command, [options] { convert(*options); }});
}

}  // namespace kvl::tool
