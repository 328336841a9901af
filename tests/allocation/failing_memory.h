// Every allocation of the library, counted, and made to fail where a test wants it. The program
// that links this has its operator new and delete, and malloc and its kin by the linker's --wrap.
#pragma once

#include <functional>

namespace kvl::test {

enum class Failing { none, one, allFrom };

struct MemoryUse {
  int allocations = 0;  // asked for, failed ones included
  int failed = 0;
  int held = 0;  // blocks, files and folders that were taken and not given back
};

// Runs call() and fails its allocation `which`, counted from 1, or all from that one on. Files and
// folders that are opened count as allocations.
MemoryUse useMemory(const std::function<void()>& call, Failing failing = Failing::none,
                    int which = 0);

// What a host's own function allocates in its scope is not the library's.
class HostsOwnMemory {
 public:
  HostsOwnMemory();
  ~HostsOwnMemory();
  HostsOwnMemory(const HostsOwnMemory&) = delete;
  HostsOwnMemory& operator=(const HostsOwnMemory&) = delete;
};

}  // namespace kvl::test
