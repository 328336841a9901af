#include "core/linux_topology.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <bit>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <thread>

namespace kvl {
namespace {

namespace fs = std::filesystem;

// A made-up /sys and /proc: eight processors as four cores of two threads, processor n beside
// n + 4, on two NUMA nodes, with caches of three levels.
class LinuxTopology : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (fs::temp_directory_path() / "kvl-topology-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    root_ = name;
    for (int cpu = 0; cpu < 8; ++cpu) {
      const int core = cpu % 4;
      const std::string siblings = std::to_string(core) + "," + std::to_string(core + 4);
      const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(cpu);
      write(folder + "/topology/thread_siblings_list", siblings);
      write(folder + "/topology/physical_package_id", "0");
      const char* const caches[4][3] = {{"1", "Data", siblings.c_str()},
                                        {"1", "Instruction", siblings.c_str()},
                                        {"2", "Unified", siblings.c_str()},
                                        {"3", "Unified", "0-7"}};
      for (int i = 0; i < 4; ++i) {
        const std::string cache = folder + "/cache/index" + std::to_string(i);
        write(cache + "/level", caches[i][0]);
        write(cache + "/type", caches[i][1]);
        write(cache + "/shared_cpu_list", caches[i][2]);
      }
    }
    write("sys/devices/system/node/node0/cpulist", "0-1,4-5");
    write("sys/devices/system/node/node1/cpulist", "2-3,6-7");
    write("proc/self/cgroup", "0::/\n");
  }
  void TearDown() override { fs::remove_all(root_); }

  void write(const std::string& path, const std::string& text) {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << text << "\n";
  }

  // Cores, processors, nodes, packages, caches.
  std::vector<int> count(const std::vector<int>& allowed) {
    std::vector<int> counts(5);
    for (const LogicalProcessorEntry& e : readLinuxTopology(root_.string(), allowed)) {
      if (e.relationship == relationProcessorCore) {
        ++counts[0];
        counts[1] += std::popcount(e.processorMask);
      }
      counts[2] += e.relationship == relationNumaNode;
      counts[3] += e.relationship == relationProcessorPackage;
      counts[4] += e.relationship == relationCache;
    }
    return counts;
  }

  using Counts = std::vector<int>;
  const std::vector<int> all = {0, 1, 2, 3, 4, 5, 6, 7};
  fs::path root_;
};

TEST_F(LinuxTopology, CountsWhatTheProcessMayUse) {
  EXPECT_EQ(count(all), (Counts{4, 8, 2, 1, 13}));
  EXPECT_EQ(count({0, 4, 5}), (Counts{2, 3, 1, 1, 7})) << "an affinity mask";
  EXPECT_EQ(count({}), (Counts{0, 0, 0, 0, 0}));
  EXPECT_EQ(count({0, 99}), (Counts{0, 0, 0, 0, 0})) << "a processor that /sys does not tell of";
  fs::remove_all(root_ / "sys/devices/system/node");
  EXPECT_EQ(count(all)[2], 1) << "a kernel without NUMA support";
}

TEST_F(LinuxTopology, HoldsToTheSmallestQuotaOfItsControlGroups) {
  write("proc/self/cgroup", "0::/host/player\n");
  write("sys/fs/cgroup/host/player/cpu.max", "max 100000");
  EXPECT_EQ(count(all)[0], 4);
  write("sys/fs/cgroup/host/cpu.max", "250000 100000");
  EXPECT_EQ(count(all)[0], 3) << "two and a half processors' time";
  write("sys/fs/cgroup/host/player/cpu.max", "50000 100000");
  EXPECT_EQ(count(all), (Counts{1, 2, 1, 1, 4}));
  write("proc/self/cgroup", "5:memory:/m\n4:cpu,cpuacct:/old\n");
  EXPECT_EQ(count(all)[0], 4);
  write("sys/fs/cgroup/cpu/old/cpu.cfs_quota_us", "200000");
  write("sys/fs/cgroup/cpu/old/cpu.cfs_period_us", "100000");
  EXPECT_EQ(count(all)[0], 2);
  write("sys/fs/cgroup/cpu/old/cpu.cfs_quota_us", "-1");
  EXPECT_EQ(count(all)[0], 4);
}

TEST(LinuxMachine, ShowsOneCoreToAThreadBoundToOneProcessor) {
  std::thread([] {
    const int here = sched_getcpu();
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(here, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    std::vector<LogicalProcessorEntry> entries(64);
    auto length = static_cast<uint32_t>(entries.size() * sizeof entries[0]);
    ASSERT_EQ(lookUpLogicalProcessors(entries.data(), &length), 1);
    entries.resize(length / sizeof entries[0]);
    int cores = 0;
    for (const LogicalProcessorEntry& e : entries) {
      if (e.relationship == relationProcessorCore) {
        ++cores;
        EXPECT_EQ(e.processorMask, 1u);
      }
    }
    EXPECT_EQ(cores, 1);
    length -= 1;
    EXPECT_EQ(lookUpLogicalProcessors(entries.data(), &length), 0) << "a buffer too small";
    EXPECT_EQ(length, entries.size() * sizeof entries[0]);
  }).join();
}

}  // namespace
}  // namespace kvl
