#include "info.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/cpu_features.h"
#include "core/initialise.h"
#include "core/instruction_set.h"
#include "error.h"
#include "kvl/kvl.h"

namespace kvl::tool {
namespace {

std::string processorFlags() {
  const struct {
    const char* name;
    bool present;
  } flags[] = {
      {"SSE2", g_hasSSE2 != 0},    {"SSSE3", g_hasSSSE3 != 0}, {"SSE4.1", g_hasSSE41 != 0},
      {"SSE4.2", g_hasSSE42 != 0}, {"AVX", g_hasAVX != 0},     {"AVX2", g_hasAVX2 != 0},
  };
  std::string names;
  for (const auto& flag : flags) {
    if (flag.present) names += names.empty() ? flag.name : std::string(" ") + flag.name;
  }
  return names.empty() ? "none" : names;
}

const char* vectorLevel() {
  switch (instructionSet()) {
    case InstructionSet::scalar:
      return "scalar";
    case InstructionSet::sse2:
      return "SSE2";
    case InstructionSet::ssse3:
      return "SSSE3";
    case InstructionSet::sse41:
      return "SSE4.1";
    case InstructionSet::avx2:
      return "AVX2";
  }
  return "unknown";
}

void line(const char* what, const std::string& value) {
  std::printf("%-20s %s\n", what, value.c_str());
}

void printInfo() {
  InitKVLWrapper();
  const int teamSize = KVL_GetNumOpenMPThreads();
  // The library exports no more than that, so its discovery runs once more in the tool's own copy.
  initialise();

  const ProcessorInfo& found = g_processorInfo;
  line("version", KVL_VERSION_STRING);
  line("processor packages", std::to_string(found.processorPackages));
  line("physical cores", std::to_string(found.processorCores));
  line("logical processors", std::to_string(found.logicalProcessors));
  line("NUMA nodes", std::to_string(found.numaNodes));
  line("level 1 caches", std::to_string(found.l1Caches));
  line("level 2 caches", std::to_string(found.l2Caches));
  line("level 3 caches", std::to_string(found.l3Caches));
  line("processor flags", processorFlags());
  line("vector level", vectorLevel());
  line("team size", std::to_string(teamSize) + " threads");
  line("performance counter", std::to_string(g_perfFrequency) + " ticks a second");
  if (std::fflush(stdout) != 0) throw Error(outputName("-"), std::strerror(errno));
}

}  // namespace

void addInfo(CLI::App& parser, Commands& commands) {
  CLI::App* command = parser.add_subcommand("info", "What initialisation found on this machine");
  commands.push_back({command, printInfo});
}

}  // namespace kvl::tool
