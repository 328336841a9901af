// Processor topology of a Linux machine, told in the form of GetLogicalProcessorInformation.
#pragma once

#include <string>
#include <vector>

#include "core/platform.h"

namespace kvl {

// The topology that /sys and /proc below `root` tell of the processors `allowed`. No more cores
// appear than the control group's processor quota is worth (rounded up). A core's mask has one bit
// for each of its processors; which bits they are carries no meaning. Empty where /sys tells
// nothing.
std::vector<LogicalProcessorEntry> readLinuxTopology(const std::string& root,
                                                     const std::vector<int>& allowed);

// The same of this machine, for the processors in the calling thread's affinity mask.
int lookUpLogicalProcessors(LogicalProcessorEntry* entries, uint32_t* length);

}  // namespace kvl
