#include "allocation/failing_memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

#if !defined(_WIN32)
#include <dirent.h>
#endif

namespace kvl::test {
namespace {

constexpr int mostHeld = 4096;

struct Watch {
  std::mutex lock;
  bool on = false;
  Failing failing = Failing::none;
  int which = 0;
  MemoryUse use;
  void* held[mostHeld] = {};
};

Watch g_watch;
thread_local bool t_hostsOwn = false;

bool refuses() {
  const std::lock_guard<std::mutex> guard(g_watch.lock);
  if (!g_watch.on || t_hostsOwn) return false;
  const int index = ++g_watch.use.allocations;
  const bool refused = (g_watch.failing == Failing::one && index == g_watch.which) ||
                       (g_watch.failing == Failing::allFrom && index >= g_watch.which);
  g_watch.use.failed += refused;
  if (refused) errno = ENOMEM;
  return refused;
}

template <class Block>
Block* took(Block* block) {
  const std::lock_guard<std::mutex> guard(g_watch.lock);
  if (block == nullptr || !g_watch.on || t_hostsOwn) return block;
  if (g_watch.use.held == mostHeld) std::abort();
  g_watch.held[g_watch.use.held++] = block;
  return block;
}

// Blocks may be given back after the call that took them.
template <class Block>
Block* gave(Block* block) {
  const std::lock_guard<std::mutex> guard(g_watch.lock);
  void** const end = g_watch.held + g_watch.use.held;
  void** const at = std::find(g_watch.held, end, block);
  if (block != nullptr && at != end) {
    *at = end[-1];
    --g_watch.use.held;
  }
  return block;
}

// Registered before the library keeps anything, so that it runs after the library's own clean-up.
[[maybe_unused]] const int g_registered = std::atexit([] {
  if (g_watch.use.held == 0) return;
  std::fprintf(stderr, "%d blocks are still held at the end\n", g_watch.use.held);
  std::_Exit(1);
});

}  // namespace

MemoryUse useMemory(const std::function<void()>& call, Failing failing, int which) {
  const int heldBefore = g_watch.use.held;
  g_watch.use.allocations = g_watch.use.failed = 0;
  g_watch.failing = failing;
  g_watch.which = which;
  g_watch.on = true;
  call();
  g_watch.on = false;
  MemoryUse use = g_watch.use;
  use.held -= heldBefore;
  return use;
}

HostsOwnMemory::HostsOwnMemory() {
  t_hostsOwn = true;
}
HostsOwnMemory::~HostsOwnMemory() {
  t_hostsOwn = false;
}

}  // namespace kvl::test

using kvl::test::gave;
using kvl::test::refuses;
using kvl::test::took;

extern "C" {

void* __real_malloc(size_t bytes);
void* __real_calloc(size_t count, size_t bytes);
void* __real_realloc(void* block, size_t bytes);
void __real_free(void* block);

void* __wrap_malloc(size_t bytes) {
  return refuses() ? nullptr : took(__real_malloc(bytes));
}
void* __wrap_calloc(size_t count, size_t bytes) {
  return refuses() ? nullptr : took(__real_calloc(count, bytes));
}
void* __wrap_realloc(void* block, size_t bytes) {
  return refuses() ? nullptr : took(__real_realloc(gave(block), bytes));
}
void __wrap_free(void* block) {
  __real_free(gave(block));
}

#if !defined(_WIN32)
FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(FILE* file);
DIR* __real_opendir(const char* path);
int __real_closedir(DIR* folder);

FILE* __wrap_fopen(const char* path, const char* mode) {
  return refuses() ? nullptr : took(__real_fopen(path, mode));
}
int __wrap_fclose(FILE* file) {
  return __real_fclose(gave(file));
}
DIR* __wrap_opendir(const char* path) {
  return refuses() ? nullptr : took(__real_opendir(path));
}
int __wrap_closedir(DIR* folder) {
  return __real_closedir(gave(folder));
}
#endif

}  // extern "C"

void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  return refuses() ? nullptr : took(__real_malloc(bytes != 0 ? bytes : 1));
}
void* operator new(size_t bytes) {
  void* const block = operator new(bytes, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new[](size_t bytes) {
  return operator new(bytes);
}
void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
  return operator new(bytes, std::nothrow);
}
void operator delete(void* block) noexcept {
  __real_free(gave(block));
}
void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}
void operator delete[](void* block) noexcept {
  operator delete(block);
}
void operator delete[](void* block, size_t) noexcept {
  operator delete(block);
}
