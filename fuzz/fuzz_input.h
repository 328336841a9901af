// Numbers out of the bytes of a fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvl::fuzz {

// Takes bytes from the end, so that a file can lie before them; zeros once none are left.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t byte() { return size_ > 0 ? data_[--size_] : uint8_t{0}; }
  int32_t int16() { return static_cast<int16_t>(byte() | byte() << 8); }
  // A whole number of [low, high].
  int32_t range(int32_t low, int32_t high) {
    return low + (byte() << 8 | byte()) % (high - low + 1);
  }

  const uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};

}  // namespace kvl::fuzz
