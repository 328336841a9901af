#include "resize/resize_vector.h"

namespace kvl {

void addResizeAvx2(ResizeKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
