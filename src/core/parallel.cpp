#include "core/parallel.h"

#include <atomic>

namespace kvl {
namespace {

// What the run-time gives a thread that was never told a team size.
std::atomic<int> g_defaultTeamSize = 0;
std::atomic<int> g_teamSize = 0;
// How often the team size was set to another.
std::atomic<int> g_fixed = 0;

struct ThreadState {
  int adopted = 0;          // what g_fixed was when this thread last adopted the team size
  bool keptTeam = false;    // it could not give its team up before it last forked
  bool teamIsLost = false;  // its team did not come along with it into this process
};
thread_local ThreadState t_state;

// LLVM's run-time starts anew in a child by itself, and Windows has no fork.
#if !defined(__clang__) && !defined(_WIN32)
#define KVL_WATCHES_FORKS
// The team may be one from before this library was unloaded and loaded again, so whether the thread
// has one cannot be remembered here. Where it has none, this does nothing.
void giveTeamUp() {
  if (!t_state.teamIsLost) t_state.keptTeam = omp_pause_resource_all(omp_pause_soft) != 0;
}

void loseKeptTeam() {
  if (t_state.keptTeam) t_state.teamIsLost = true;
}
#endif

}  // namespace

void watchForks() {
#ifdef KVL_WATCHES_FORKS
  atFork(giveTeamUp, nullptr, loseKeptTeam);
#endif
}

void fixTeamSize(int threads) {
  if (g_fixed == 0) g_defaultTeamSize = omp_get_max_threads();
  if (g_fixed == 0 || g_teamSize != threads) {
    g_teamSize = threads;
    ++g_fixed;
  }
  t_state.adopted = g_fixed;
  omp_set_num_threads(threads);
}

void adoptTeamSize() {
  ThreadState& thread = t_state;
  const int fixed = g_fixed.load(std::memory_order_acquire);
  if ((thread.adopted == fixed && !thread.teamIsLost) || omp_in_parallel()) return;
  thread.adopted = fixed;
  if (thread.teamIsLost) {
    omp_set_num_threads(1);
  } else if (omp_get_max_threads() == g_defaultTeamSize) {
    omp_set_num_threads(g_teamSize);
  }
}

}  // namespace kvl
