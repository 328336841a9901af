// The host's table of scores: width x height entries, 0 where none has been computed yet.
#pragma once

#include <cstdint>

#include "correlation/block.h"

namespace kvl {

template <class Entry>
class ScoreTable {
 public:
  ScoreTable(Entry* entries, int64_t width, int64_t height)
      : entries_(entries), width_(width), height_(height) {}

  // The entry of a shift, or null where the index lies outside the table.
  Entry* at(Shift shift) const {
    int64_t index = 0;
    if (width_ <= 0 || height_ <= 0 ||
        __builtin_mul_overflow(shift.y + height_ / 2, width_, &index) ||
        __builtin_add_overflow(index, shift.x + width_ / 2, &index)) {
      return nullptr;
    }
    return index >= 0 && index < width_ * height_ ? entries_ + index : nullptr;
  }

 private:
  Entry* entries_;
  int64_t width_;
  int64_t height_;
};

// Scores of 32 bits are kept unsigned and compared signed.
inline int64_t scoreOfEntry(int64_t entry) {
  return entry;
}
inline int64_t scoreOfEntry(uint32_t entry) {
  return static_cast<int32_t>(entry);
}

}  // namespace kvl
