// Runs a body at every instruction level that this processor has, and for several team sizes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/instruction_set.h"

namespace kvl::test {

const char* levelName(InstructionSet level);

// scalar up to the highest that the processor and operating system support.
std::vector<InstructionSet> availableLevels();
bool hasLevel(InstructionSet level);

// Calls body() for every level of availableLevels(), the lowest and the highest with 1, 2, 3 and 7
// threads, those between with 2. Afterwards level and team are as initialisation leaves them. A
// failure names the pair.
void forEachLevelAndTeam(const std::function<void()>& body);

// The same for one thread and one level.
void atLevel(InstructionSet level, const std::function<void()>& body);

}  // namespace kvl::test
