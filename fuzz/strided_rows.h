// Rows by a first row and a signed stride, bitmap rows by their header, and what a call may write
// where that is not one rectangle.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "fuzz_frame.h"

namespace kvl::fuzz {

inline size_t bytes(int64_t count) {
  return static_cast<size_t>(count);
}

// `count` rows of `rowBytes` bytes, `stride` from one to the next.
struct StridedRows {
  int64_t stride;
  int64_t rowBytes;
  int64_t count;

  int64_t distance() const { return std::abs(stride); }
  int64_t size() const { return (count - 1) * distance() + rowBytes; }
  // Rows that share bytes.
  bool overlap() const { return count > 1 && distance() < rowBytes; }

  Fit fit() const {
    if (count <= 0) return Fit::inPool;
    const Fit row = fitOf(rowBytes, 1);
    if (count == 1) return row;
    const Fit all = std::max(row, fitOf(distance(), count, rowBytes));
    // Rows that share bytes may be far more than their memory.
    const Fit work = fitOf(rowBytes, count);
    const bool isLong = all <= Fit::apart && work != Fit::inPool;
    const bool isLarge = all == Fit::inPool && size() > static_cast<int64_t>(Case::maxBytes);
    return isLong || isLarge ? Fit::tooLarge : all;
  }
  // Whether they fit in one piece or each by itself.
  bool possible() const { return fit() <= Fit::apart; }
  // The first row, of memory whose lowest address is given.
  uint8_t* first(uint8_t* lowest) const {
    return stride < 0 ? lowest + (count - 1) * distance() : lowest;
  }
  uint8_t* readOnly(Case& test) const {
    return first(test.readOnlyRows(bytes(distance()), bytes(rowBytes), bytes(count)));
  }
  uint8_t* writable(Case& test) const {
    return first(test.rows(bytes(distance()), bytes(rowBytes), bytes(count)));
  }
};

// A stride for rows of `rowBytes` bytes: padded, tight, backwards, 0 or short.
int32_t strideFor(Case& test, int64_t rowBytes);

// Bytes of a row of the bitmap, up to whole 32-bit words; 0 where the header describes none.
int64_t bitmapRow(const BITMAPINFOHEADER& header);

// A bit count with a code that goes with it.
struct PixelFormat {
  uint16_t bitCount;
  uint32_t compression;
};
PixelFormat pixelFormat(Case& test);

// Bytes of the caller's memory that a call must leave as they were. To be asked for right before
// the call, and checked after it.
class Untouched {
 public:
  Untouched(const uint8_t* data, int64_t size)
      : data_(data), before_(data, data + size), mayChange_(bytes(size), 0) {}

  // What of it lies in the memory.
  void allow(int64_t offset, int64_t count);
  void allowRows(int64_t offset, int64_t stride, int64_t rowBytes, int64_t rows);
  void check(const char* what) const;

 private:
  const uint8_t* data_;
  std::vector<uint8_t> before_;
  std::vector<uint8_t> mayChange_;
};

// Noise that a few bytes of the input choose.
void fillWithNoise(Case& test, void* record, size_t size);

}  // namespace kvl::fuzz
