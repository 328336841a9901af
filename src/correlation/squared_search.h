// Motion search by sums of squared differences.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

struct SquaredSearch {
  int64_t* bestScore;
  const uint8_t* imageA;
  int32_t strideA;
  const uint8_t* imageB;
  int32_t strideB;
  const uint8_t* mask;
  int32_t width;
  int32_t height;
  const RECT* block;
};

CorrelationVector correlationNormal(const SquaredSearch& search, int32_t range);
CorrelationVector correlationIterativ(const SquaredSearch& search, const POINT* start,
                                      int32_t maxSteps, int32_t limit, int64_t* scoreTable);

}  // namespace kvl
