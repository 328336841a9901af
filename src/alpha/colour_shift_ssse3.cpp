#include "alpha/colour_shift_vector.h"

namespace kvl {

void addColourShiftSsse3(ColourShiftKernels& kernels) {
  kernels = {shift};
}

}  // namespace kvl
