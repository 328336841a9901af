#include "convert/halving_kernels.h"

namespace kvl {

void addHalvingAvx2(HalvingKernels&) {}

}  // namespace kvl
