// The ways in which operations share rows out over the OpenMP team. Bodies must not throw.
#pragma once

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "core/platform.h"

namespace kvl {

// Makes `threads` the team size of the process.
void fixTeamSize(int threads);

// Lets a process that has run regions fork, and its child run regions of its own. GCC's run-time
// keeps the team of a thread for that thread's next region, and a child has none of its threads: it
// would wait for them forever. So a thread gives its team up before it forks, and gets a new one
// with its next region. One that forks inside a region cannot: in the child it works alone from
// then on. Call it once.
void watchForks();

// Gives the calling thread the process's team size. The run-time keeps that number a thread, so a
// host thread other than the one that initialised has to be told once; one that has chosen its own
// keeps it.
void adoptTeamSize();

// Sets the calling thread's team size for the length of a scope, and puts the old one back.
class TeamSizeScope {
 public:
  explicit TeamSizeScope(int threads) : before_(omp_get_max_threads()) {
    omp_set_num_threads(threads);
  }
  ~TeamSizeScope() { omp_set_num_threads(before_); }
  TeamSizeScope(const TeamSizeScope&) = delete;
  TeamSizeScope& operator=(const TeamSizeScope&) = delete;

 private:
  int before_;
};

// Rows [start, end).
struct RowRange {
  int32_t start;
  int32_t end;
};

// The contiguous band of thread `thread` of `threads`: ceil(rows / threads) rows, the last bands
// shorter or empty.
inline RowRange bandOfThread(int32_t rows, int thread, int threads) {
  const int64_t chunk = (int64_t{rows} + threads - 1) / threads;
  const int64_t start = chunk * thread;
  const int64_t end = std::min<int64_t>(start + chunk, rows);
  return start < end ? RowRange{static_cast<int32_t>(start), static_cast<int32_t>(end)}
                     : RowRange{0, 0};
}

// body(RowRange), once a thread that has rows, each thread placed on the processor of its number.
template <class Body>
void parallelBands(int32_t rows, const Body& body) {
  if (rows <= 0) return;
  adoptTeamSize();
#pragma omp parallel
  {
    const int thread = omp_get_thread_num();
    placeThread(thread);
    const RowRange band = bandOfThread(rows, thread, omp_get_num_threads());
    if (band.start < band.end) body(band);
  }
}

// body(index) for every index of [0, count), one block of nearly equal size a thread.
template <class Body>
void parallelStatic(int32_t count, const Body& body) {
  if (count <= 0) return;
  adoptTeamSize();
#pragma omp parallel for schedule(static)
  for (int32_t i = 0; i < count; ++i) body(i);
}

// body(row) for every row of [0, rows), shared out in blocks of 16 neighbours.
template <class Body>
void parallelRowBlocks(int32_t rows, const Body& body) {
  constexpr int32_t rowsPerBlock = 16;
  parallelStatic(rows / rowsPerBlock + (rows % rowsPerBlock > 0), [&](int32_t block) {
    const int32_t first = block * rowsPerBlock;
    const int32_t last = first + std::min(rowsPerBlock, rows - first);
    for (int32_t row = first; row < last; ++row) body(row);
  });
}

// How many neighbours a thread should claim at once where they share cache lines of the output, as
// the columns of a transposing pass do: each thread gets about four claims.
inline int32_t neighboursPerClaim(int32_t count) {
  adoptTeamSize();
  return std::max(1, count / (4 * omp_get_max_threads()));
}

// body(index, thread) for every index of [0, count), handed out on demand `chunk` at a time.
// `thread` is below omp_get_max_threads() as it stands after adoptTeamSize().
template <class Body>
void parallelDynamic(int32_t count, int32_t chunk, const Body& body) {
  if (count <= 0) return;
  adoptTeamSize();
#pragma omp parallel for schedule(dynamic, chunk)
  for (int32_t i = 0; i < count; ++i) body(i, omp_get_thread_num());
}

// Rounds [0, rounds) of a job that has one serial part: in every round one thread calls
// serial(round) while the others share out body(round, item, thread) for items [0, items(round)),
// and joins them when it is done. A barrier ends each round. Once serial() has returned anything
// but 0 no further round begins, and that is returned. `thread` is as for parallelDynamic().
template <class Serial, class Items, class Body>
int32_t parallelRounds(int32_t rounds, const Serial& serial, const Items& items, const Body& body) {
  adoptTeamSize();
  int32_t status = 0;
  // Rounds before this one run. A thread that is late to see it set by a faster one is still in a
  // round that runs anyway.
  std::atomic<int32_t> end = rounds;
#pragma omp parallel reduction(| : status)
  {
    const int thread = omp_get_thread_num();
    placeThread(thread);
    for (int32_t round = 0; round < end; ++round) {
#pragma omp single nowait
      {
        status = serial(round);
        if (status != 0) end = round + 1;
      }
      const int32_t count = items(round);
#pragma omp for schedule(dynamic, 1) nowait
      for (int32_t item = 0; item < count; ++item) body(round, item, thread);
#pragma omp barrier
    }
  }
  return status;
}

}  // namespace kvl
