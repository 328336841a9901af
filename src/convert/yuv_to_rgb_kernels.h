// The row kernels of the conversion from YUV to RGB.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// Factors in 1/8192, none of them -32768.
struct YuvToRgbMatrix {
  int16_t lumaFactor;
  int16_t redFromV;
  int16_t greenFromU;
  int16_t greenFromV;
  int16_t blueFromU;
  int16_t lumaBias;
  uint8_t uCentre;
  uint8_t vCentre;
};

// A row of the source. Layouts with one plane use y alone, NV12 y and, for its pairs, u.
struct YuvRow {
  const uint8_t* y;
  const uint8_t* u;
  const uint8_t* v;
};

// `width` pixels of blue, green and red. A chroma sample that two pixels share serves both.
using YuvToRgbKernel = void (*)(const YuvRow& row, uint8_t* out, ptrdiff_t width,
                                const YuvToRgbMatrix& matrix);

struct YuvToRgbKernels {
  YuvToRgbKernel full;  // planes with a chroma sample a pixel
  YuvToRgbKernel half;  // planes with one for two pixels
  YuvToRgbKernel nv12;
  YuvToRgbKernel yuy2;
  YuvToRgbKernel uyvy;
  YuvToRgbKernel yvyu;
};

YuvToRgbKernels yuvToRgbKernels(InstructionSet level);
void addYuvToRgbSsse3(YuvToRgbKernels& kernels);
void addYuvToRgbAvx2(YuvToRgbKernels& kernels);

// What vectors are too wide for.
const YuvToRgbKernels& scalarYuvToRgb();

}  // namespace kvl
