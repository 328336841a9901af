#include "core/linux_topology.h"

#include <dirent.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

namespace kvl {
namespace {

struct Close {
  void operator()(FILE* file) const { std::fclose(file); }
  void operator()(DIR* folder) const { closedir(folder); }
};
using File = std::unique_ptr<FILE, Close>;
using Folder = std::unique_ptr<DIR, Close>;

std::string readLine(const std::string& path) {
  char line[4096] = "";
  const File file(std::fopen(path.c_str(), "re"));
  if (file != nullptr && std::fgets(line, sizeof line, file.get()) == nullptr) line[0] = '\0';
  line[std::strcspn(line, "\n")] = '\0';
  return line;
}

std::vector<int> allowedProcessors() {
  // The kernel rejects a mask smaller than its own, whose size it does not tell.
  for (int capacity = CPU_SETSIZE; capacity <= (1 << 20); capacity *= 2) {
    std::vector<cpu_set_t> mask(static_cast<size_t>(capacity / CPU_SETSIZE));
    const size_t bytes = mask.size() * sizeof(cpu_set_t);
    if (sched_getaffinity(0, bytes, mask.data()) == 0) {
      std::vector<int> processors;
      for (int cpu = 0; cpu < capacity; ++cpu) {
        if (CPU_ISSET_S(static_cast<size_t>(cpu), bytes, mask.data())) processors.push_back(cpu);
      }
      return processors;
    }
    if (errno != EINVAL) break;
  }
  return {};
}

// "0-3,8" contains 2?
bool listContains(const std::string& list, int cpu) {
  const char* at = list.c_str();
  while (*at != '\0') {
    char* next = nullptr;
    const long first = std::strtol(at, &next, 10);
    if (next == at) return false;
    long last = first;
    if (*next == '-') last = std::strtol(next + 1, &next, 10);
    if (first <= cpu && cpu <= last) return true;
    at = *next == ',' ? next + 1 : next;
  }
  return false;
}

// Whole processors' worth of time that one group may use; 0 when it is not limited.
long groupQuota(const std::string& folder) {
  long quota = 0, period = 0;
  if (std::sscanf(readLine(folder + "/cpu.max").c_str(), "%ld %ld", &quota, &period) != 2) {
    quota = std::atol(readLine(folder + "/cpu.cfs_quota_us").c_str());
    period = std::atol(readLine(folder + "/cpu.cfs_period_us").c_str());
  }
  return quota > 0 && period > 0 ? (quota + period - 1) / period : 0;
}

// The smallest quota of this process's control group and the groups above it, 0 for none.
long processorQuota(const std::string& root) {
  long smallest = 0;
  const File groups(std::fopen((root + "/proc/self/cgroup").c_str(), "re"));
  if (groups == nullptr) return 0;
  char line[4096];
  while (std::fgets(line, sizeof line, groups.get()) != nullptr) {
    line[std::strcspn(line, "\n")] = '\0';
    const char* controllers = std::strchr(line, ':');
    const char* path = controllers != nullptr ? std::strchr(controllers + 1, ':') : nullptr;
    if (path == nullptr) continue;
    const std::string names(controllers + 1, path);
    if (!names.empty() && ("," + names + ",").find(",cpu,") == std::string::npos) continue;
    const std::string hierarchy = root + "/sys/fs/cgroup" + (names.empty() ? "" : "/cpu");
    for (std::string group = path + 1;;) {
      const long quota = groupQuota(hierarchy + group);
      if (quota > 0) smallest = smallest == 0 ? quota : std::min(smallest, quota);
      if (group.empty()) break;
      group.resize(group.find_last_of('/') == std::string::npos ? 0 : group.find_last_of('/'));
    }
  }
  return smallest;
}

LogicalProcessorEntry entry(uint32_t relationship, size_t processors, uint8_t cacheLevel = 0) {
  LogicalProcessorEntry e = {};
  e.processorMask = processors >= 64 ? ~uint64_t{0} : (uint64_t{1} << processors) - 1;
  e.relationship = relationship;
  e.detail[0] = cacheLevel;
  return e;
}

}  // namespace

std::vector<LogicalProcessorEntry> readLinuxTopology(const std::string& root,
                                                     const std::vector<int>& allowed) {
  struct Cache {
    uint8_t level = 0;
    size_t processors = 0;
  };
  const std::string processors = root + "/sys/devices/system/cpu/cpu";
  std::vector<std::string> coreOrder;
  std::map<std::string, std::vector<int>> cores;
  for (const int cpu : allowed) {
    const std::string siblings =
        readLine(processors + std::to_string(cpu) + "/topology/thread_siblings_list");
    if (siblings.empty()) return {};
    if (cores[siblings].empty()) coreOrder.push_back(siblings);
    cores[siblings].push_back(cpu);
  }
  if (coreOrder.empty()) return {};
  const long quota = processorQuota(root);
  if (quota > 0 && static_cast<size_t>(quota) < coreOrder.size()) {
    coreOrder.resize(static_cast<size_t>(quota));
  }

  std::vector<LogicalProcessorEntry> entries;
  std::map<std::string, size_t> packages;
  std::map<std::string, Cache> caches;
  std::vector<int> counted;
  for (const std::string& core : coreOrder) {
    entries.push_back(entry(relationProcessorCore, cores[core].size()));
    for (const int cpu : cores[core]) {
      counted.push_back(cpu);
      const std::string folder = processors + std::to_string(cpu);
      ++packages[readLine(folder + "/topology/physical_package_id")];
      for (int index = 0;; ++index) {
        const std::string cache = folder + "/cache/index" + std::to_string(index);
        const std::string level = readLine(cache + "/level");
        if (level.empty()) break;
        const std::string key =
            level + readLine(cache + "/type") + readLine(cache + "/shared_cpu_list");
        caches[key].level = static_cast<uint8_t>(std::atoi(level.c_str()));
        ++caches[key].processors;
      }
    }
  }
  for (const auto& [id, members] : packages) {
    entries.push_back(entry(relationProcessorPackage, members));
  }
  for (const auto& [key, cache] : caches) {
    entries.push_back(entry(relationCache, cache.processors, cache.level));
  }

  size_t nodes = 0;
  const std::string nodeFolder = root + "/sys/devices/system/node";
  if (const Folder folder{opendir(nodeFolder.c_str())}) {
    while (const dirent* node = readdir(folder.get())) {
      int number = 0;
      if (std::sscanf(node->d_name, "node%d", &number) != 1) continue;
      const std::string list = readLine(nodeFolder + "/" + node->d_name + "/cpulist");
      const auto inNode = [&](int cpu) { return listContains(list, cpu); };
      const auto members = std::count_if(counted.begin(), counted.end(), inNode);
      if (members == 0) continue;
      entries.push_back(entry(relationNumaNode, static_cast<size_t>(members)));
      ++nodes;
    }
  }
  // A kernel without NUMA support shows no nodes: the machine is one.
  if (nodes == 0) entries.push_back(entry(relationNumaNode, counted.size()));
  return entries;
}

int lookUpLogicalProcessors(LogicalProcessorEntry* entries, uint32_t* length) {
  try {
    const std::vector<LogicalProcessorEntry> found = readLinuxTopology("", allowedProcessors());
    const size_t needed = found.size() * sizeof(LogicalProcessorEntry);
    const bool fits = entries != nullptr && needed != 0 && needed <= *length;
    if (fits) std::memcpy(entries, found.data(), needed);
    *length = static_cast<uint32_t>(needed);
    return fits ? 1 : 0;
  } catch (...) {
    *length = 0;
    return 0;
  }
}

}  // namespace kvl
