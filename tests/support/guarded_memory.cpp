#include "support/guarded_memory.h"

#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#endif

namespace kvl::test {
namespace {

constexpr size_t pageBytes = 4096;

uint8_t* reserve(size_t bytes) {
#if defined(_WIN32)
  return static_cast<uint8_t*>(VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS));
#else
  void* at = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return at == MAP_FAILED ? nullptr : static_cast<uint8_t*>(at);
#endif
}

bool makeUsable(uint8_t* at, size_t bytes) {
#if defined(_WIN32)
  return VirtualAlloc(at, bytes, MEM_COMMIT, PAGE_READWRITE) != nullptr;
#else
  return mprotect(at, bytes, PROT_READ | PROT_WRITE) == 0;
#endif
}

}  // namespace

GuardedMemory::GuardedMemory(size_t bytes, GuardAt guard) : size_(bytes) {
  const size_t usable = (bytes + pageBytes - 1) / pageBytes * pageBytes;
  mapped_ = usable + 2 * pageBytes;
  base_ = reserve(mapped_);
  if (base_ == nullptr || (usable > 0 && !makeUsable(base_ + pageBytes, usable))) std::abort();
  data_ = base_ + pageBytes + (guard == GuardAt::end ? usable - bytes : 0);
}

GuardedMemory::~GuardedMemory() {
#if defined(_WIN32)
  VirtualFree(base_, 0, MEM_RELEASE);
#else
  munmap(base_, mapped_);
#endif
}

}  // namespace kvl::test
