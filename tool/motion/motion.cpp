#include "motion/motion.h"

#include <omp.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "colour_conversion.h"
#include "error.h"
#include "interrupt.h"
#include "kvl/kvl.h"
#include "media_reader.h"
#include "media_writer.h"
#include "motion/arrows.h"
#include "motion/block_motion.h"
#include "motion/report.h"
#include "motion/steadying.h"
#include "options.h"
#include "output_format.h"
#include "progress.h"

namespace kvl::tool {
namespace {

constexpr const char* kMotionHelp =
    "Prints where each block of the first picture, or of each frame of a clip, is found in the "
    "next:\n"
    "the block's top left pixel, the displacement in pixels to the right and down, and the score, "
    "0\n"
    "being a perfect match. Blocks tile the part of the picture around which the range is free.\n"
    "  full  all displacements, scored by squared differences\n"
    "  ring  growing squares around the best so far: fast, and lost where motion is large\n"
    "  sub   full, then refined to quarter pixels and scored by positive differences\n"
    "Of a clip the text form is one line a frame, with what most blocks have in common.";

struct MotionOptions {
  std::string input;
  std::string second;
  int block = 16;
  int range = 12;
  std::string search = "full";
  std::string format = "text";
  std::string arrows;
  std::string stabilise;
  int smooth = 15;
  int threads = 0;  // 0: the library's own choice
  bool time = false;
};

SearchKind searchKind(const std::string& name) {
  if (name == "ring") return SearchKind::ring;
  return name == "sub" ? SearchKind::subPixel : SearchKind::full;
}

// Adds `--name FILE`.
void addFile(CLI::App& command, const std::string& name, std::string& value,
             const std::string& help, const std::string& kinds) {
  command.add_option(name, value, help + " [file, " + kinds + ", default none]")
      ->option_text("FILE");
}

void checkOutput(const std::string& path, bool isClip) {
  if (path.empty() || outputFormat(path).isClip == isClip) return;
  throw Error(outputName(path),
              isClip ? "is to be a picture, but the input is a clip"
                     : "is to be a clip, but the input is a picture",
              usage);
}

void checkStreams(const MotionOptions& options) {
  if (options.input == "-" && !options.stabilise.empty()) {
    throw Error("--stabilise", "reads the clip twice, which standard input does not allow", usage);
  }
  if (options.arrows == "-" || options.stabilise == "-") {
    throw Error("--arrows, --stabilise", "standard output is for the vectors", usage);
  }
}

void checkKinds(const MotionOptions& options, bool isClip) {
  const std::string input = inputName(options.input);
  if (isClip && !options.second.empty()) {
    throw Error(input, "is a clip, and its frames are compared with each other", usage);
  }
  if (!isClip && options.second.empty()) throw Error(input, "needs a second picture", usage);
  if (!isClip && !options.stabilise.empty()) {
    throw Error("--stabilise", input + " is a picture", usage);
  }
  checkOutput(options.arrows, isClip);
  checkOutput(options.stabilise, isClip);
}

// The pairs of frames one after the other.
class MotionRun {
 public:
  MotionRun(const MotionOptions& options, bool isClip)
      : options_(options),
        search_(options.block, options.range, searchKind(options.search)),
        report_(options.format, isClip) {}

  void compare(const Dib& from, const Dib& to) {
    using Clock = std::chrono::steady_clock;
    throwIfInterrupted();
    if (from.size() != to.size()) {
      throw Error(inputName(options_.second), "has not the size of the first picture");
    }
    const Clock::time_point start = Clock::now();
    toGreyImage(from, from_);
    toGreyImage(to, to_);
    blocks_ = &search_.find(from_, to_);
    milliseconds_ += std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    common_ = commonMotion(*blocks_, from_, options_.block);
    moved_.push_back(common_.moved);
  }

  // After all that can fail has been written.
  void report() { report_.add(*blocks_, common_); }

  void draw(Dib& picture) const { drawArrows(*blocks_, options_.block, picture); }

  const std::vector<Displacement>& moved() const { return moved_; }

  void finish() {
    report_.finish();
    if (!options_.time || moved_.empty()) return;
    std::fprintf(stderr, "kvl: motion %dx%d %zu pairs %.3f ms/pair %d threads\n", from_.size.width,
                 from_.size.height, moved_.size(),
                 milliseconds_ / static_cast<double>(moved_.size()), KVL_GetNumOpenMPThreads());
  }

 private:
  const MotionOptions& options_;
  MotionSearch search_;
  MotionReport report_;
  GreyImage from_;
  GreyImage to_;
  const std::vector<BlockMotion>* blocks_ = nullptr;
  CommonMotion common_;
  std::vector<Displacement> moved_;
  double milliseconds_ = 0;
};

void readPicture(MediaReader& reader, const std::string& path, Dib& picture) {
  const AVFrame* frame = reader.next();
  if (frame == nullptr) throw Error(inputName(path), "truncated or damaged (holds no frame)");
  ColourConverter().toDib(*frame, picture);
}

void comparePictures(const MotionOptions& options, MediaReader& first) {
  MediaReader second(options.second);
  if (second.traits().isClip) throw Error(inputName(options.second), "is a clip", usage);
  Dib from;
  Dib to;
  readPicture(first, options.input, from);
  readPicture(second, options.second, to);
  MotionRun run(options, false);
  run.compare(from, to);
  if (!options.arrows.empty()) {
    run.draw(from);
    MediaWriter writer(options.arrows, from, first.traits());
    writer.write(from, 0);
    writer.finish();
  }
  run.report();
  run.finish();
}

// Reads the clip once more and writes it with every frame moved.
void writeSteadied(const MotionOptions& options, const std::vector<Displacement>& moved) {
  const std::vector<Displacement> moves = steadyingMoves(moved, options.smooth);
  MediaReader reader(options.input);
  std::optional<MediaWriter> writer;
  ColourConverter colours;
  Dib frame;
  Dib result;
  Progress progress(outputName(options.stabilise), static_cast<int64_t>(moves.size()));
  for (const Displacement& move : moves) {
    const AVFrame* decoded = reader.next();
    if (decoded == nullptr) throw Error(inputName(options.input), "has changed meanwhile");
    colours.toDib(*decoded, frame);
    movePicture(frame, move, result);
    if (!writer) writer.emplace(options.stabilise, result, reader.traits());
    writer->write(result, decoded->pts);
    progress.advance();
  }
  writer->finish();
  progress.finish();
}

void compareFrames(const MotionOptions& options, MediaReader& reader) {
  MotionRun run(options, true);
  ColourConverter colours;
  Dib previous;
  Dib frame;
  std::optional<MediaWriter> writer;
  std::optional<Progress> progress;
  if (!options.arrows.empty()) {
    progress.emplace(outputName(options.arrows), reader.traits().frames);
  }
  int64_t time = 0;
  int64_t frames = 0;
  // Arrows begin in the earlier frame of a pair, so each frame waits for the next; the last has none.
  const auto write = [&] {
    if (options.arrows.empty()) return;
    if (!writer) writer.emplace(options.arrows, previous, reader.traits());
    writer->write(previous, time);
    progress->advance();
  };
  while (const AVFrame* decoded = reader.next()) {
    colours.toDib(*decoded, frame);
    if (frames++ > 0) {
      run.compare(previous, frame);
      if (!options.arrows.empty()) run.draw(previous);
      write();
      run.report();
    }
    std::swap(previous, frame);
    time = decoded->pts;
  }
  if (frames == 0) throw Error(inputName(options.input), "truncated or damaged (holds no frame)");
  write();
  if (writer) writer->finish();
  if (progress) progress->finish();
  if (!options.stabilise.empty()) writeSteadied(options, run.moved());
  run.finish();
}

void addOptions(CLI::App& command, MotionOptions& options) {
  command.add_option("input", options.input, "Picture or clip to read; - for standard input")
      ->required()
      ->option_text(" ");
  command.add_option("second", options.second, "Picture to find the blocks of the first in")
      ->option_text(" ");
  addInteger(command, "--block", options.block, {"pixels", 4, 1024}, "Side of a block");
  addInteger(command, "--range", options.range, {"pixels", 1, 1024},
             "How far a block is looked for each way");
  addChoice(command, "--search", options.search, "search", {"full", "ring", "sub"},
            "How displacements are tried");
  addChoice(command, "--format", options.format, "format", {"text", "csv", "json"},
            "Of the vectors on standard output");
  addFile(command, "--arrows", options.arrows, "Draw the vectors over the picture or clip",
          "as the input");
  addFile(command, "--stabilise", options.stabilise, "Write the clip without its shake", "a clip");
  addInteger(command, "--smooth", options.smooth, {"frames", 1, 1000},
             "Frames to either side over which --stabilise smooths the camera's path");
  addInteger(command, "--threads", options.threads, {"threads", 1, 1024},
             "Size of the library's team", "one a physical core");
  addSwitch(command, "--time", options.time, "Print milliseconds a pair of frames");
  command.footer(kMotionHelp);
}

void motion(const MotionOptions& options) {
  catchSignals();
  InitKVLWrapper();
  if (options.threads != 0) omp_set_num_threads(options.threads);
  if (!options.arrows.empty()) outputFormat(options.arrows);
  if (!options.stabilise.empty()) outputFormat(options.stabilise);
  checkStreams(options);
  MediaReader reader(options.input);
  checkKinds(options, reader.traits().isClip);
  if (reader.traits().isClip) {
    compareFrames(options, reader);
  } else {
    comparePictures(options, reader);
  }
}

}  // namespace

void addMotion(CLI::App& parser, Commands& commands) {
  CLI::App* command =
      parser.add_subcommand("motion", "Find what moved between pictures, or steady a clip");
  const auto options = std::make_shared<MotionOptions>();
  addOptions(*command, *options);
  commands.push_back({command, [options] { motion(*options); }});
}

}  // namespace kvl::tool
