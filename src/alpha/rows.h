// Rows that are given by a pointer and a signed stride.
#pragma once

#include <cstdint>

#include "core/parallel.h"

namespace kvl {

// True when `count` rows of `rowBytes` bytes, `stride` from one to the next, lie within the user
// part of the address space. The stride may be 0, negative or smaller than a row.
bool rowsAreAddressable(const void* first, int64_t stride, int64_t rowBytes, int64_t count);

// Whether rows of `rowBytes` bytes keep clear of each other.
inline bool rowsAreApart(int64_t stride, int64_t rowBytes) {
  return stride >= rowBytes || stride <= -rowBytes;
}

// body(row) for [0, count) in order, on the calling thread.
template <class Body>
void sequentialRows(int32_t count, const Body& body) {
  for (int32_t row = 0; row < count; ++row) body(row);
}

}  // namespace kvl
