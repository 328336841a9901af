#include "filters/gaussian_blur_vector.h"

namespace kvl {

void addGaussianSsse3(GaussianKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
