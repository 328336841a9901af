#include "convert/halving_kernels.h"

namespace kvl {

void addHalvingSsse3(HalvingKernels&) {}

}  // namespace kvl
