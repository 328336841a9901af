// Memory that ends, or begins, at an unreadable page, so that an access outside it faults.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvl::test {

// A small generator of its own, so that a seed means the same bytes on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
  uint32_t next();
  // A whole number of [low, high].
  int32_t range(int32_t low, int32_t high);

 private:
  uint64_t state_;
};

enum class GuardAt { end, start };

// Every other seed takes the other end.
inline GuardAt guardOf(uint64_t seed) {
  return seed % 2 != 0 ? GuardAt::end : GuardAt::start;
}

class GuardedMemory {
 public:
  // All bytes are 0xCD.
  explicit GuardedMemory(size_t bytes, GuardAt guard = GuardAt::end);
  ~GuardedMemory();
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  std::vector<uint8_t> bytes() const { return {data_, data_ + size_}; }

  void fill(uint8_t value);
  // Noise with flat runs and extremes.
  void fillRandom(uint64_t seed);

 private:
  size_t size_;
  size_t mapped_;
  uint8_t* base_;
  uint8_t* data_;
};

}  // namespace kvl::test
