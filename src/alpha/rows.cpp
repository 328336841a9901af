#include "alpha/rows.h"

#include <algorithm>

namespace kvl {

bool rowsAreAddressable(const void* first, int64_t stride, int64_t rowBytes, int64_t count) {
  constexpr int64_t userSpace = int64_t{1} << 47;
  if (rowBytes < 0 || count < 0) return false;
  if (rowBytes == 0 || count == 0) return true;
  const uint64_t address = reinterpret_cast<uintptr_t>(first);
  if (address >= userSpace || rowBytes > userSpace) return false;
  if (count > 1 && std::max(stride, -stride) > userSpace / (count - 1)) return false;
  const auto start = static_cast<int64_t>(address);
  const int64_t last = start + stride * (count - 1);
  return std::min(start, last) >= 0 && std::max(start, last) <= userSpace - rowBytes;
}

}  // namespace kvl
