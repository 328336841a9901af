#include "core/processor_info.h"

#include <bit>

#include "core/debug_output.h"
#include "core/platform.h"

namespace kvl {
namespace {

void countEntry(const LogicalProcessorEntry& entry, ProcessorInfo& info) {
  switch (entry.relationship) {
    case relationProcessorCore:
      ++info.processorCores;
      info.logicalProcessors += CountSetBits(entry.processorMask);
      break;
    case relationNumaNode:
      ++info.numaNodes;
      break;
    case relationCache:
      switch (entry.detail[0]) {
        case 1:
          ++info.l1Caches;
          break;
        case 2:
          ++info.l2Caches;
          break;
        case 3:
          ++info.l3Caches;
          break;
        default:
          break;
      }
      break;
    case relationProcessorPackage:
      ++info.processorPackages;
      break;
    default:
      break;
  }
}

void printSummary(const ProcessorInfo& info) {
  DebugPrintf("\nKVLWrapper - GetProcessorInfo results:\n");
  DebugPrintf("Number of NUMA nodes: %d\n", info.numaNodes);
  DebugPrintf("Number of physical processor packages: %d\n", info.processorPackages);
  DebugPrintf("Number of processor cores: %d\n", info.processorCores);
  DebugPrintf("Number of logical processors: %d\n", info.logicalProcessors);
  DebugPrintf("Number of processor L1/L2/L3 caches: %d/%d/%d\n", info.l1Caches, info.l2Caches,
              info.l3Caches);
}

}  // namespace

uint32_t CountSetBits(uint64_t mask) {
  return static_cast<uint32_t>(std::popcount(mask));
}

int QueryProcessorInfo(ProcessorInfo& info) {
  void* kernel = g_platform.moduleHandle("kernel32");
  if (kernel == nullptr) return 0;
  const LogicalProcessorLookup lookUp =
      g_platform.procedureAddress(kernel, "GetLogicalProcessorInformation");
  if (lookUp == nullptr) return 0;

  uint32_t length = 0;
  lookUp(nullptr, &length);
  if (length == 0) return 0;
  auto* entries = static_cast<LogicalProcessorEntry*>(g_platform.allocate(length));
  if (entries == nullptr) return 0;
  if (lookUp(entries, &length) == 0) {
    g_platform.release(entries);
    return 0;
  }

  info = {};
  for (uint32_t i = 0; i < length / sizeof(LogicalProcessorEntry); ++i) {
    countEntry(entries[i], info);
  }
  printSummary(info);
  g_platform.release(entries);
  return 1;
}

}  // namespace kvl
