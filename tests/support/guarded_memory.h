// Memory that ends, or begins, at an unreadable page, so that an access outside it faults.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvl::test {

enum class GuardAt { end, start };

class GuardedMemory {
 public:
  explicit GuardedMemory(size_t bytes, GuardAt guard = GuardAt::end);
  ~GuardedMemory();
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  size_t size_;
  size_t mapped_;
  uint8_t* base_;
  uint8_t* data_;
};

}  // namespace kvl::test
