// The seam to the operating system: one implementation for Windows, one for Linux.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvl/kvl.h"

#if !defined(_WIN32)
#include <pthread.h>
#endif

namespace kvl {

// One entry of what GetLogicalProcessorInformation returns, in its 64-bit layout.
struct LogicalProcessorEntry {
  uint64_t processorMask;
  uint32_t relationship;
  uint32_t padding;
  uint8_t detail[16];
};
static_assert(sizeof(LogicalProcessorEntry) == 32);

enum LogicalProcessorRelationship : uint32_t {
  relationProcessorCore = 0,
  relationNumaNode = 1,
  relationCache = 2,
  relationProcessorPackage = 3,
};

// Fills `entries`, or only tells the length in bytes that it needs; returns 0 on failure.
using LogicalProcessorLookup = int (*)(LogicalProcessorEntry* entries, uint32_t* length);

struct CpuidRegisters {
  uint32_t eax, ebx, ecx, edx;
};

// The system calls of initialisation and diagnostics. They are a table so that a made-up machine
// can stand behind them.
struct PlatformCalls {
  int64_t (*performanceFrequency)();
  void* (*moduleHandle)(const char* name);
  LogicalProcessorLookup (*procedureAddress)(void* module, const char* name);
  void* (*allocate)(size_t bytes);
  void (*release)(void* block);
  void (*debugOutput)(const char* line);
  CpuidRegisters (*cpuid)(uint32_t leaf, uint32_t subleaf);
  // Extended control register 0; asked for only where cpuid reports OSXSAVE.
  uint64_t (*enabledRegisterState)();
};

extern PlatformCalls g_platform;

// Hints that the calling thread runs best on the processor of that number. Linux has no such hint,
// only masks that bind, and those belong to the host: there it does nothing.
void placeThread(int processor);

// Keeps the compiler's run-times loaded for as long as the process lives: the idle workers of OpenMP
// wait inside its code, so it must not go when a host unloads this library, and on Windows the C++
// run-time leaves memory behind each time that it goes.
void pinRuntimes();

// Windows' rectangle rules: a rectangle is empty unless left < right and top < bottom, and an empty
// intersection is stored as all zeros. The result may be one of the inputs.
bool intersectRect(RECT& result, const RECT& a, const RECT& b);
bool isRectEmpty(const RECT& rect);

// Has these called round every fork() of the process, each where it is not null: `prepare` before
// it, `parent` and `child` after it, all on the forking thread. They go with the library when it is
// unloaded. Does nothing on Windows, which has no fork.
void atFork(void (*prepare)(), void (*parent)(), void (*child)());

// May be entered again by the thread that holds it.
class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;
  void enter();
  void leave();
  // Only in the child of a fork: free again, whichever thread of the parent held it.
  void renew();

 private:
#if defined(_WIN32)
  CRITICAL_SECTION section_;
#else
  pthread_mutex_t mutex_;
#endif
};

// Holds a section for the length of a scope.
class Entered {
 public:
  explicit Entered(CriticalSection& section) : section_(section) { section_.enter(); }
  ~Entered() { section_.leave(); }
  Entered(const Entered&) = delete;
  Entered& operator=(const Entered&) = delete;

 private:
  CriticalSection& section_;
};

}  // namespace kvl
