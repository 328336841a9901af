// The machine's topology, counted once at initialisation.
#pragma once

#include <cstdint>

namespace kvl {

struct ProcessorInfo {
  uint32_t numaNodes;
  uint32_t processorCores;
  uint32_t logicalProcessors;
  uint32_t l1Caches;
  uint32_t l2Caches;
  uint32_t l3Caches;
  uint32_t processorPackages;

  bool operator==(const ProcessorInfo&) const = default;
};

// Fills `info` and prints a summary to the debug output. Returns 1, or 0 with `info` unchanged and
// nothing printed.
int QueryProcessorInfo(ProcessorInfo& info);

uint32_t CountSetBits(uint64_t mask);

}  // namespace kvl
