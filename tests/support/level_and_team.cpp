#include "support/level_and_team.h"

#include <gtest/gtest.h>
#include <omp.h>

#include "core/initialise.h"
#include "core/parallel.h"

namespace kvl::test {
namespace {

void run(InstructionSet level, int threads, const std::function<void()>& body) {
  SCOPED_TRACE(std::string(levelName(level)) + ", " + std::to_string(threads) + " threads");
  limitInstructionSet(level);
  fixTeamSize(threads);
  body();
  limitInstructionSet(InstructionSet::avx2);
}

}  // namespace

const char* levelName(InstructionSet level) {
  switch (level) {
    case InstructionSet::scalar:
      return "scalar";
    case InstructionSet::sse2:
      return "sse2";
    case InstructionSet::ssse3:
      return "ssse3";
    case InstructionSet::sse41:
      return "sse41";
    case InstructionSet::avx2:
      return "avx2";
  }
  return "?";
}

std::vector<InstructionSet> availableLevels() {
  initialise();
  std::vector<InstructionSet> levels;
  for (const InstructionSet level :
       {InstructionSet::scalar, InstructionSet::sse2, InstructionSet::ssse3, InstructionSet::sse41,
        InstructionSet::avx2}) {
    limitInstructionSet(level);
    if (instructionSet() == level) levels.push_back(level);
  }
  limitInstructionSet(InstructionSet::avx2);
  return levels;
}

bool hasLevel(InstructionSet level) {
  return level <= availableLevels().back();
}

void forEachLevelAndTeam(const std::function<void()>& body) {
  const std::vector<InstructionSet> levels = availableLevels();
  for (const InstructionSet level : levels) {
    const bool ends = level == levels.front() || level == levels.back();
    for (const int threads : ends ? std::vector{1, 2, 3, 7} : std::vector{2}) {
      run(level, threads, body);
    }
  }
  initialise();
}

void atLevel(InstructionSet level, const std::function<void()>& body) {
  initialise();
  run(level, 1, body);
  initialise();
}

}  // namespace kvl::test
