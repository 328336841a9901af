#include <dlfcn.h>
#include <omp.h>
#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/cpuid_calls.h"
#include "core/linux_topology.h"
#include "core/platform.h"

namespace kvl {
namespace {

// Counters are read through clock_gettime, whose unit is the nanosecond.
int64_t performanceFrequency() {
  return 1'000'000'000;
}

// Any token that is not null: there is one source of topology and it needs no module.
void* moduleHandle(const char*) {
  return &g_platform;
}

LogicalProcessorLookup procedureAddress(void*, const char*) {
  return lookUpLogicalProcessors;
}

void debugOutput(const char* line) {
  const char* wanted = std::getenv("KVL_DEBUG");
  if (wanted != nullptr && *wanted != '\0') std::fputs(line, stderr);
}

}  // namespace

PlatformCalls g_platform = {
    performanceFrequency, moduleHandle, procedureAddress,         std::malloc, std::free,
    debugOutput,          executeCpuid, readEnabledRegisterState,
};

void placeThread(int) {}

void pinRuntimes() {
  Dl_info runtime;
  if (dladdr(reinterpret_cast<void*>(&omp_get_max_threads), &runtime) != 0) {
    dlopen(runtime.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  }
}

bool intersectRect(RECT& result, const RECT& a, const RECT& b) {
  const RECT both = {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                     std::min(a.bottom, b.bottom)};
  const bool empty = isRectEmpty(a) || isRectEmpty(b) || isRectEmpty(both);
  result = empty ? RECT{0, 0, 0, 0} : both;
  return !empty;
}

bool isRectEmpty(const RECT& rect) {
  return rect.left >= rect.right || rect.top >= rect.bottom;
}

void atFork(void (*prepare)(), void (*parent)(), void (*child)()) {
  pthread_atfork(prepare, parent, child);
}

CriticalSection::CriticalSection() {
  renew();
}
CriticalSection::~CriticalSection() {
  pthread_mutex_destroy(&mutex_);
}
void CriticalSection::enter() {
  pthread_mutex_lock(&mutex_);
}
void CriticalSection::leave() {
  pthread_mutex_unlock(&mutex_);
}
void CriticalSection::renew() {
  pthread_mutexattr_t recursive;
  pthread_mutexattr_init(&recursive);
  pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex_, &recursive);
  pthread_mutexattr_destroy(&recursive);
}

}  // namespace kvl
