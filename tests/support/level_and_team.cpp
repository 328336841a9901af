#include "support/level_and_team.h"

#include <gtest/gtest.h>
#include <omp.h>

#include "core/initialise.h"
#include "core/parallel.h"

namespace kvl::test {
namespace {

void run(InstructionSet level, int threads, const std::function<void()>& body) {
  if (testing::Test::HasFailure()) return;
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

void forEachLevel(const std::function<void()>& body) {
  for (const InstructionSet level : availableLevels()) run(level, 1, body);
  initialise();
}

void atLevel(InstructionSet level, const std::function<void()>& body) {
  initialise();
  run(level, 1, body);
  initialise();
}

void forEachLevelAndTeam(const std::vector<Check>& checks) {
  forEachLevelAndTeam([&] {
    for (const Check& check : checks) check();
  });
}

void forEachLevel(const std::vector<Check>& checks) {
  forEachLevel([&] {
    for (const Check& check : checks) check();
  });
}

std::vector<SmallSize> smallSizes(int32_t gap) {
  std::vector<SmallSize> sizes;
  for (int32_t width = 1; width <= 33; ++width) {
    for (int32_t height = 1; height <= 33; height += width % 3 + gap) {
      const uint64_t seed = sizes.size() + 1;
      sizes.push_back({width, height, guardOf(seed), seed});
    }
  }
  return sizes;
}

void forEverySmallSize(int32_t gap, const std::function<void(const SmallSize&)>& body) {
  forEachLevel([&] {
    for (const SmallSize& size : smallSizes(gap)) body(size);
  });
}

}  // namespace kvl::test
