// What InitKVLWrapper does and finds.
#pragma once

#include <cstdint>

#include "core/processor_info.h"

namespace kvl {

// Ticks a second of the platform's high-resolution counter.
extern int64_t g_perfFrequency;
extern ProcessorInfo g_processorInfo;

void initialise();

}  // namespace kvl
