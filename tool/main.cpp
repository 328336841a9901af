// The kvl command: one subcommand an operation, `kvl convert` and `kvl info`.

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "command.h"
#include "convert.h"
#include "error.h"
#include "filter.h"
#include "info.h"
#include "interrupt.h"
#include "jpeg_command.h"
#include "kvl/kvl.h"
#include "motion/motion.h"

namespace kvl::tool {
namespace {

void printError(const std::string& text) {
  std::string line = text;
  std::ranges::replace(line, '\n', ' ');
  std::fprintf(stderr, "kvl: %s\n", line.c_str());
}

// The OpenMP run-time reads how idle threads wait when it is loaded, so a choice of ours needs a
// second start. Threads that spin would take the cores from the decoder and the encoder.
void waitPassively(char** argv) {
  if (std::getenv("OMP_WAIT_POLICY") != nullptr || std::getenv("GOMP_SPINCOUNT") != nullptr) return;
  if (setenv("OMP_WAIT_POLICY", "passive", 1) == 0) execv("/proc/self/exe", argv);
}

// CLI11 asks for a subcommand where an unknown one was given.
std::string usageText(const CLI::App& parser, const CLI::ParseError& error) {
  const std::vector<CLI::App*> commands = parser.get_subcommands();
  if (!commands.empty()) {
    return error.what() + ("; see kvl " + commands.front()->get_name() + " --help");
  }
  const std::vector<std::string> unknown = parser.remaining();
  std::string text = error.what();
  if (!unknown.empty()) {
    text =
        unknown.front() + (unknown.front()[0] == '-' ? ": unknown option" : ": unknown operation");
  }
  return text + "; see kvl --help";
}

int runCommand(int argc, char** argv) {
  CLI::App parser("Applies the kvl library's image operations to pictures and clips", "kvl");
  parser.set_version_flag("--version", "kvl " KVL_VERSION_STRING, "Print the version and exit");
  parser.set_help_flag("-h,--help", "Print this help and exit");
  parser.require_subcommand(1);

  Commands commands;
  addInfo(parser, commands);
  addMotion(parser, commands);
  addJpeg(parser, commands);
  addConvert(parser, commands);
  addOperations(parser, commands);

  try {
    parser.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return parser.exit(error);
    printError(usageText(parser, error));
    return usage;
  }

  for (const Command& command : commands) {
    if (command.parser->parsed()) command.run();
  }
  return success;
}

}  // namespace
}  // namespace kvl::tool

int main(int argc, char** argv) {
  using namespace kvl::tool;
  waitPassively(argv);
  try {
    return runCommand(argc, argv);
  } catch (const Interrupted& interrupted) {
    printError("interrupted");
    return 128 + interrupted.signal;
  } catch (const Error& error) {
    printError(error.what());
    return error.status();
  } catch (const std::bad_alloc&) {
    printError("out of memory");
  } catch (const std::exception& error) {
    printError(error.what());
  }
  return failure;
}
