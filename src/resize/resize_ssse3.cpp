#include "resize/resize_vector.h"

namespace kvl {

void addResizeSsse3(ResizeKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
