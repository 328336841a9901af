#include "filters/gaussian_blur_vector.h"

namespace kvl {

void addGaussianAvx2(GaussianKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
