#include <omp.h>

#include "core/initialise.h"
#include "core/parallel.h"
#include "core/platform.h"
#include "kvl/kvl.h"

namespace {

const bool g_loaded = (kvl::pinRuntimes(), kvl::watchForks(), true);

}  // namespace

void InitKVLWrapper() {
  kvl::initialise();
}

int32_t KVL_GetNumOpenMPThreads() {
  kvl::adoptTeamSize();
  return omp_get_max_threads();
}
