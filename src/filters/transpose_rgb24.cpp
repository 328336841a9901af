#include "filters/transpose_rgb24.h"

namespace kvl {

void transposeRgb24Scalar(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride,
                          int32_t columns, int32_t rows) {
  for (int32_t x = 0; x < columns; ++x) {
    for (int32_t y = 0; y < rows; ++y) {
      const uint8_t* from = in + y * inStride + ptrdiff_t{x} * 3;
      uint8_t* to = out + x * outStride + ptrdiff_t{y} * 3;
      for (int c = 0; c < 3; ++c) to[c] = from[c];
    }
  }
}

TransposeRgb24Kernel transposeRgb24Kernel(InstructionSet level) {
  return level >= InstructionSet::avx2 ? transposeRgb24Avx2 : transposeRgb24Scalar;
}

}  // namespace kvl
