#include "convert/yuv_to_rgb_vector.h"

namespace kvl {

void addYuvToRgbAvx2(YuvToRgbKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
