#include "filters/one_pass.h"

#include <omp.h>

#include <algorithm>
#include <cstring>

#include "core/bitmap.h"
#include "core/parallel.h"

namespace kvl {

bool isUsable(const OnePassImages& images) {
  constexpr uint32_t maxSide = 1u << 20;
  if (images.source == nullptr || images.destination == nullptr) return false;
  if (images.components != 1 && images.components != 3 && images.components != 4) return false;
  if (images.width == 0 || images.width > maxSide) return false;
  if (images.height == 0 || images.height > maxSide) return false;
  if (images.rowBytes() > images.sourceStride || images.rowBytes() > images.destinationStride) {
    return false;
  }
  return isAddressable(images.source, images.sourceStride, images.height) &&
         isAddressable(images.destination, images.destinationStride, images.height);
}

void copyRows(const OnePassImages& images) {
  parallelStatic(static_cast<int32_t>(images.height), [&](int32_t y) {
    std::memcpy(images.destinationRow(y), images.sourceRow(y),
                static_cast<size_t>(images.rowBytes()));
  });
}

int32_t rowsPerClaim(int32_t rows) {
  constexpr int claimsPerThread = 16;
  return std::clamp(rows / (claimsPerThread * omp_get_max_threads()), 1, 16);
}

}  // namespace kvl
