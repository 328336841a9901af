// What a JPEG picture consists of, derived from its geometry.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

constexpr int32_t jpegMaxSide = 65535;
constexpr int32_t jpegBlock = 8;
constexpr int jpegMaxComponents = 3;

struct JpegComponent {
  int32_t horizontal;  // sampling factors
  int32_t vertical;
  int32_t width;  // samples
  int32_t height;
  int32_t paddedWidth;  // samples of a row as the coder has it
  int32_t rowsPerMcu;   // rows in a row of MCUs
};

struct JpegLayout {
  int32_t width;
  int32_t height;
  int32_t colorSpace;
  int32_t componentCount;
  int32_t horizontalMax;
  int32_t verticalMax;
  int32_t mcuHeight;  // pixels
  int32_t mcuRows;
  JpegComponent components[jpegMaxComponents];
};

// Fills `layout` and returns 0, or returns the status for a geometry that is not usable.
int32_t layOutJpeg(const KVL_JpegGeometry& geometry, JpegLayout& layout);

}  // namespace kvl
