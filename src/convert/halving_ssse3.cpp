#include "convert/halving_vector.h"

namespace kvl {

void addHalvingSsse3(HalvingKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
