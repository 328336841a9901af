#include "core/initialise.h"

#include <omp.h>

#include "core/cpu_features.h"
#include "core/instruction_set.h"
#include "core/parallel.h"
#include "core/platform.h"

namespace kvl {

int64_t g_perfFrequency = 0;
ProcessorInfo g_processorInfo = {};

void initialise() {
  g_perfFrequency = g_platform.performanceFrequency();
  if (QueryProcessorInfo(g_processorInfo) == 0) {
    g_processorInfo = {};
    g_processorInfo.processorCores = static_cast<uint32_t>(omp_get_num_procs());
    g_processorInfo.logicalProcessors = g_processorInfo.processorCores;
  }
  const int cores = static_cast<int>(g_processorInfo.processorCores);
  fixTeamSize(cores != 0 ? cores : omp_get_max_threads());
  DetectCpuFeatures();
  detectInstructionSet();
}

}  // namespace kvl
