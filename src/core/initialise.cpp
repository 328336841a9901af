#include "core/initialise.h"

#include <omp.h>

#include "core/cpu_features.h"
#include "core/instruction_set.h"
#include "core/parallel.h"
#include "core/platform.h"

namespace kvl {

int64_t g_perfFrequency = 0;
ProcessorInfo g_processorInfo = {};

namespace {

CriticalSection g_lock;
const bool g_lockRenewed = (atFork(nullptr, nullptr, [] { g_lock.renew(); }), true);

}  // namespace

// What is as it was is not stored again, here and in what this calls, so that one thread may
// initialise once more while another that has initialised goes on to work.
void initialise() {
  const Entered entered(g_lock);
  const int64_t frequency = g_platform.performanceFrequency();
  if (frequency != g_perfFrequency) g_perfFrequency = frequency;
  ProcessorInfo info = g_processorInfo;
  if (QueryProcessorInfo(info) == 0) {
    info = {};
    info.processorCores = static_cast<uint32_t>(omp_get_num_procs());
    info.logicalProcessors = info.processorCores;
  }
  if (info != g_processorInfo) g_processorInfo = info;
  const int cores = static_cast<int>(info.processorCores);
  fixTeamSize(cores != 0 ? cores : omp_get_max_threads());
  DetectCpuFeatures();
  detectInstructionSet();
}

}  // namespace kvl
