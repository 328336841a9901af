#include "core/parallel.h"

#include <atomic>

namespace kvl {
namespace {

// What the run-time gives a thread that was never told a team size.
std::atomic<int> g_defaultTeamSize = 0;
std::atomic<int> g_teamSize = 0;
// How often the team size was fixed, and what a thread had seen of that when it last adopted it.
std::atomic<int> g_fixed = 0;
thread_local int t_adopted = 0;

}  // namespace

void fixTeamSize(int threads) {
  if (g_fixed == 0) g_defaultTeamSize = omp_get_max_threads();
  g_teamSize = threads;
  t_adopted = ++g_fixed;
  omp_set_num_threads(threads);
}

void adoptTeamSize() {
  const int fixed = g_fixed.load(std::memory_order_acquire);
  if (t_adopted == fixed || omp_in_parallel()) return;
  t_adopted = fixed;
  if (omp_get_max_threads() == g_defaultTeamSize) omp_set_num_threads(g_teamSize);
}

}  // namespace kvl
