// Motion search by sums of positive differences, with the geometry in the host's options.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

struct BrighteningSearch {
  CorrelationBlockResult* result;
  const uint8_t* imageA;
  const uint8_t* imageB;
  const CorrelationOptions* options;
};

CorrelationVector correlationNorm(const BrighteningSearch& search, int32_t range,
                                  uint32_t* scoreTable);
CorrelationVector correlationIt(const BrighteningSearch& search, int32_t range, bool stopAtLimit,
                                uint32_t* scoreTable, uint32_t* firstLimitBlock);

// In sub_pixel_search.cpp.
CorrelationVector correlationSub(const BrighteningSearch& search, const CorrelationVector* centre);

}  // namespace kvl
