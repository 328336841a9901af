#include "core/parallel.h"

#include <atomic>

namespace kvl {
namespace {

// What the run-time gives a thread that was never told a team size; 0 until initialisation.
std::atomic<int> g_defaultTeamSize = 0;
std::atomic<int> g_teamSize = 0;

}  // namespace

void fixTeamSize(int threads) {
  if (g_defaultTeamSize == 0) g_defaultTeamSize = omp_get_max_threads();
  g_teamSize = threads;
  omp_set_num_threads(threads);
}

void adoptTeamSize() {
  const int size = g_teamSize.load(std::memory_order_relaxed);
  if (size == 0 || omp_in_parallel()) return;
  const int current = omp_get_max_threads();
  if (current != size && current == g_defaultTeamSize.load(std::memory_order_relaxed)) {
    omp_set_num_threads(size);
  }
}

}  // namespace kvl
