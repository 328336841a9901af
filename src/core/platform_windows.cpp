#include <windows.h>

#include <cpuid.h>
#include <cstdlib>

#include "core/cpuid_calls.h"
#include "core/platform.h"

namespace kvl {
namespace {

static_assert(sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION) == sizeof(LogicalProcessorEntry));

int64_t performanceFrequency() {
  LARGE_INTEGER frequency = {};
  QueryPerformanceFrequency(&frequency);
  return frequency.QuadPart;
}

void* moduleHandle(const char* name) {
  return GetModuleHandleA(name);
}

LogicalProcessorLookup procedureAddress(void* module, const char* name) {
  FARPROC procedure = GetProcAddress(static_cast<HMODULE>(module), name);
  return reinterpret_cast<LogicalProcessorLookup>(reinterpret_cast<void*>(procedure));
}

void debugOutput(const char* line) {
  OutputDebugStringA(line);
}

}  // namespace

PlatformCalls g_platform = {
    performanceFrequency, moduleHandle, procedureAddress,         std::malloc, std::free,
    debugOutput,          executeCpuid, readEnabledRegisterState,
};

void placeThread(int processor) {
  SetThreadIdealProcessor(GetCurrentThread(), static_cast<DWORD>(processor));
}

void pinRuntimes() {
  const char* const names[] = {"libgomp-1.dll", "libstdc++-6.dll"};
  for (const char* name : names) {
    HMODULE runtime = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN, name, &runtime);
  }
}

bool intersectRect(RECT& result, const RECT& a, const RECT& b) {
  return IntersectRect(&result, &a, &b) != 0;
}

bool isRectEmpty(const RECT& rect) {
  return IsRectEmpty(&rect) != 0;
}

void atFork(void (*)(), void (*)(), void (*)()) {}

CriticalSection::CriticalSection() {
  InitializeCriticalSection(&section_);
}
CriticalSection::~CriticalSection() {
  DeleteCriticalSection(&section_);
}
void CriticalSection::enter() {
  EnterCriticalSection(&section_);
}
void CriticalSection::leave() {
  LeaveCriticalSection(&section_);
}
void CriticalSection::renew() {}

}  // namespace kvl
