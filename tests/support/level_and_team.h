// Runs a body at every instruction level that this processor has, and for several team sizes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/instruction_set.h"
#include "support/guarded_memory.h"

namespace kvl::test {

const char* levelName(InstructionSet level);

// scalar up to the highest that the processor and operating system support.
std::vector<InstructionSet> availableLevels();
bool hasLevel(InstructionSet level);

// Calls body() for every level of availableLevels(), the lowest and the highest with 1, 2, 3 and 7
// threads, those between with 2. Afterwards level and team are as initialisation leaves them. A
// failure names the pair, and ends the walk.
void forEachLevelAndTeam(const std::function<void()>& body);

// The same with one thread, at every level or at one.
void forEachLevel(const std::function<void()>& body);
void atLevel(InstructionSet level, const std::function<void()>& body);

// Checks that were prepared once, in turn.
using Check = std::function<void()>;
void forEachLevelAndTeam(const std::vector<Check>& checks);
void forEachLevel(const std::vector<Check>& checks);

struct SmallSize {
  int32_t width;
  int32_t height;
  GuardAt guard;
  uint64_t seed;  // 1, 2, 3 ...
};

// Widths of 1 to 33 with heights of 1 to 33, `gap` to `gap` + 2 apart.
std::vector<SmallSize> smallSizes(int32_t gap);

// body(size) for all of them at every level.
void forEverySmallSize(int32_t gap, const std::function<void(const SmallSize&)>& body);

}  // namespace kvl::test
