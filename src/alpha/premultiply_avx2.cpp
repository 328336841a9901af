#include "alpha/premultiply_vector.h"

namespace kvl {

void addPremultiplyAvx2(PremultiplyKernels& kernels) {
  kernels = {premultiplyBlocks};
}

}  // namespace kvl
