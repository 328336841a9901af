#include "alpha/premultiply_vector.h"

namespace kvl {

void addPremultiplySsse3(PremultiplyKernels& kernels) {
  kernels = {premultiplyBlocks};
}

}  // namespace kvl
