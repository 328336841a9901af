#include "core/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/initialise.h"
#include "kvl/kvl.h"

namespace kvl {
namespace {

TEST(Bands, AreContiguousAndTheLastOnesShorterOrEmpty) {
  const auto bands = [](int rows, int threads) {
    std::vector<std::pair<int, int>> all;
    for (int t = 0; t < threads; ++t) {
      const RowRange band = bandOfThread(rows, t, threads);
      all.emplace_back(band.start, band.end);
    }
    return all;
  };
  using Bands = std::vector<std::pair<int, int>>;
  EXPECT_EQ(bands(7, 4), (Bands{{0, 2}, {2, 4}, {4, 6}, {6, 7}}));
  EXPECT_EQ(bands(2, 4), (Bands{{0, 1}, {1, 2}, {0, 0}, {0, 0}}));
  EXPECT_EQ(bands(INT32_MAX, 2), (Bands{{0, 1 << 30}, {1 << 30, INT32_MAX}}));
  EXPECT_EQ(bands(0, 2), (Bands{{0, 0}, {0, 0}}));
}

TEST(Parallel, EverySplitVisitsEachRowOnceAndNoneForNoRows) {
  for (const int threads : {1, 2, 3, 7}) {
    fixTeamSize(threads);
    for (const int rows : {-3, 0, 1, 2, 7, 100}) {
      std::vector<std::atomic<int>> visits(static_cast<size_t>(rows > 0 ? rows : 0));
      parallelBands(rows, [&](RowRange band) {
        for (int y = band.start; y < band.end; ++y) ++visits[static_cast<size_t>(y)];
      });
      parallelStatic(rows, [&](int y) { ++visits[static_cast<size_t>(y)]; });
      std::atomic<int> strangers = 0;
      parallelDynamic(rows, 3, [&](int y, int thread) {
        ++visits[static_cast<size_t>(y)];
        if (thread < 0 || thread >= threads) ++strangers;
      });
      for (const auto& count : visits) EXPECT_EQ(count, 3) << rows << " rows";
      EXPECT_EQ(strangers, 0);
    }
  }
  initialise();
}

TEST(TeamSize, HoldsForEveryHostThreadThatDidNotChooseItsOwn) {
  const int runtimeDefault = [] {
    int threads = 0;
    std::thread([&] { threads = omp_get_max_threads(); }).join();
    return threads;
  }();
  fixTeamSize(runtimeDefault + 2);
  EXPECT_EQ(KVL_GetNumOpenMPThreads(), runtimeDefault + 2);

  int other = 0, chosen = 0, chosenLater = 0, inRegion = 0;
  std::thread([&] {
    other = KVL_GetNumOpenMPThreads();
    parallelBands(1000, [&](RowRange) {
      if (omp_get_thread_num() == 0) inRegion = omp_get_num_threads();
    });
  }).join();
  std::thread([&] {
    omp_set_num_threads(runtimeDefault + 1);
    chosen = KVL_GetNumOpenMPThreads();
    omp_set_num_threads(runtimeDefault);
    chosenLater = KVL_GetNumOpenMPThreads();
  }).join();
  EXPECT_EQ(other, runtimeDefault + 2);
  EXPECT_EQ(inRegion, runtimeDefault + 2);
  EXPECT_EQ(chosen, runtimeDefault + 1);
  EXPECT_EQ(chosenLater, runtimeDefault);
  initialise();
}

}  // namespace
}  // namespace kvl
