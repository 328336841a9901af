#include "alpha/colour_shift_vector.h"

namespace kvl {

void addColourShiftAvx2(ColourShiftKernels& kernels) {
  kernels = {shift};
}

}  // namespace kvl
