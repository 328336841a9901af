#include "convert/halving_vector.h"

namespace kvl {

void addHalvingAvx2(HalvingKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
