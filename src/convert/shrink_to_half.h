#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

struct SourceFrame {
  const uint8_t* bits;
  int32_t stride;
  SIZE size;
};

struct DestinationFrame {
  uint8_t* bits;
  int32_t stride;
  SIZE size;
};

int32_t shrinkToHalf(const GUID* subtype, const SourceFrame& source,
                     const DestinationFrame& destination, uint32_t flags);

}  // namespace kvl
