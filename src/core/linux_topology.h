// Processor topology of a Linux machine, told in the form of GetLogicalProcessorInformation.
#pragma once

#include "core/platform.h"

namespace kvl {

// Counts only what this process may use: processors outside its affinity mask do not appear, and no
// more cores appear than a control group's processor quota is worth (rounded up, at least one).
// A core's mask has one bit for each of its processors; which bits they are carries no meaning.
int lookUpLogicalProcessors(LogicalProcessorEntry* entries, uint32_t* length);

}  // namespace kvl
