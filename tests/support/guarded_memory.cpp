#include "support/guarded_memory.h"

#include <cstdlib>
#include <cstring>

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

uint32_t Random::next() {
  state_ = state_ * 6364136223846793005u + 1442695040888963407u;
  return static_cast<uint32_t>(state_ >> 33);
}

int32_t Random::range(int32_t low, int32_t high) {
  const auto span = static_cast<uint32_t>(high - low) + 1;
  return low + static_cast<int32_t>(next() % span);
}

GuardedMemory::GuardedMemory(size_t bytes, GuardAt guard) : size_(bytes) {
  const size_t usable = (bytes + pageBytes - 1) / pageBytes * pageBytes;
  mapped_ = usable + 2 * pageBytes;
  base_ = reserve(mapped_);
  if (base_ == nullptr || (usable > 0 && !makeUsable(base_ + pageBytes, usable))) std::abort();
  data_ = base_ + pageBytes + (guard == GuardAt::end ? usable - bytes : 0);
  fill(0xCD);
}

GuardedMemory::~GuardedMemory() {
#if defined(_WIN32)
  VirtualFree(base_, 0, MEM_RELEASE);
#else
  munmap(base_, mapped_);
#endif
}

void GuardedMemory::fill(uint8_t value) {
  std::memset(data_, value, size_);
}

void GuardedMemory::fillRandom(uint64_t seed) {
  Random random(seed);
  for (size_t i = 0; i < size_;) {
    const uint32_t kind = random.next() % 8;
    const size_t run = kind == 0 ? 1 + random.next() % 40 : 1;
    const uint8_t value = kind == 1   ? 255
                          : kind == 2 ? 0
                                      : static_cast<uint8_t>(random.next() & 255);
    for (size_t j = 0; j < run && i < size_; ++j) data_[i++] = value;
  }
}

}  // namespace kvl::test
