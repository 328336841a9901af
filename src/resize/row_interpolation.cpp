#include "resize/row_interpolation.h"

namespace kvl {
namespace {

void interpolateScalar(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count, int shift,
                       int32_t step) {
  for (ptrdiff_t i = 0; i < count; ++i) out[i] = interpolateSample(a[i], b[i], shift, step);
}

}  // namespace

RowInterpolationKernels rowInterpolationKernels(InstructionSet level) {
  RowInterpolationKernels kernels{interpolateScalar};
  if (level >= InstructionSet::avx2) addRowInterpolationAvx2(kernels);
  return kernels;
}

}  // namespace kvl
