#include "filter.h"

#include <omp.h>

#include <memory>
#include <optional>
#include <string>

#include "colour_conversion.h"
#include "error.h"
#include "interrupt.h"
#include "media_reader.h"
#include "media_writer.h"
#include "operation.h"
#include "options.h"
#include "output_format.h"
#include "progress.h"
#include "second_input.h"
#include "timing.h"

namespace kvl::tool {
namespace {

struct FilterOptions {
  std::string input;
  std::string second;
  std::string output;
  int threads = 0;  // 0: the library's own choice
  int repeat = 1;
  bool time = false;
};

// Milliseconds inside the library: the median of `repeat` runs on the same frame.
double runTimed(Operation& operation, const Dib& frame, Dib& result, int repeat) {
  const double median = medianMilliseconds(
      repeat, [&] { operation.prepare(frame, result); }, [&] { operation.run(frame, result); });
  operation.finish(result);
  return median;
}

// Of an operation that takes a second input for some options only, the last file that is given is
// the output.
void sortFiles(const Operation& operation, FilterOptions& options) {
  if (operation.secondInput() == nullptr) return;
  const std::string second = operation.secondInput();
  if (operation.wantsSecondInput()) {
    if (options.output.empty()) throw Error(second, "is required, and an output", usage);
    return;
  }
  if (!options.output.empty()) throw Error(second, "is not used with these options", usage);
  options.output.swap(options.second);
}

void checkKinds(const FilterOptions& options, bool clipIn, bool clipOut) {
  if (clipIn == clipOut) return;
  throw Error(outputName(options.output),
              clipOut ? "is to be a clip, but " + inputName(options.input) + " is a picture"
                      : "is to be a picture, but " + inputName(options.input) + " is a clip",
              usage);
}

// The arguments that every operation takes.
void addFilterOptions(CLI::App& command, const Operation& operation, FilterOptions& options) {
  command.add_option("input", options.input, "Picture or clip to read; - for standard input")
      ->required()
      ->option_text(" ");
  const char* second = operation.secondInput();
  if (second != nullptr) {
    command.add_option(second, options.second, "Picture or clip of the same size")
        ->required()
        ->option_text(" ");
  }
  command.add_option("output", options.output, "Picture or clip to write; - for standard output")
      ->required(second == nullptr)
      ->option_text(" ");
  addInteger(command, "--threads", options.threads, {"threads", 1, 1024},
             "Size of the library's team", "one a physical core");
  addInteger(command, "--repeat", options.repeat, {"runs", 1, 1000},
             "Run each frame so often from the same input; --time takes the median");
  addSwitch(command, "--time", options.time,
            "Print milliseconds a frame inside the library, and megapixels a second");
  command.footer(kFormatsHelp);
}

void filter(const std::string& name, Operation& operation, FilterOptions options) {
  sortFiles(operation, options);
  const bool withAlpha = operation.keepsAlpha();
  const bool clipOut =
      (withAlpha ? outputFormatWithAlpha(options.output) : outputFormat(options.output)).isClip;
  catchSignals();
  InitKVLWrapper();
  if (options.threads != 0) omp_set_num_threads(options.threads);

  MediaReader reader(options.input);
  checkKinds(options, reader.traits().isClip, clipOut);

  std::optional<SecondInput> second;
  if (operation.wantsSecondInput()) second.emplace(options.second, reader.traits().isClip);

  ColourConverter colours;
  Dib frame;
  Dib result;
  std::optional<MediaWriter> writer;
  std::optional<Progress> progress;
  if (clipOut) progress.emplace(outputName(options.output), reader.traits().frames);
  int64_t frames = 0;
  double milliseconds = 0;
  while (const AVFrame* decoded = reader.next()) {
    colours.toDib(*decoded, frame, withAlpha);
    if (second) operation.useSecond(second->next(frame.size()));
    milliseconds += runTimed(operation, frame, result, options.repeat);
    if (!writer) writer.emplace(options.output, result, reader.traits());
    writer->write(result, decoded->pts);
    ++frames;
    if (progress) progress->advance();
  }
  if (!writer) throw Error(inputName(options.input), "truncated or damaged (holds no frame)");
  writer->finish();
  if (progress) progress->finish();
  operation.conclude();
  if (options.time) {
    printTime(name, frame.size(), operation.pixels(frame), frames, milliseconds);
  }
}

}  // namespace

void addOperations(CLI::App& parser, Commands& commands) {
  for (const OperationEntry& entry : operations()) {
    CLI::App* command = parser.add_subcommand(entry.name, entry.summary);
    const std::shared_ptr<Operation> operation = entry.make();
    const auto options = std::make_shared<FilterOptions>();
    operation->addOptions(*command);
    addFilterOptions(*command, *operation, *options);
    commands.push_back({command, [=, name = entry.name] { filter(name, *operation, *options); }});
  }
}

}  // namespace kvl::tool
