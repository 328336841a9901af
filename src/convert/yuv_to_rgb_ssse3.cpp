#include "convert/yuv_to_rgb_vector.h"

namespace kvl {

void addYuvToRgbSsse3(YuvToRgbKernels& kernels) {
  kernels = vectorKernels();
}

}  // namespace kvl
