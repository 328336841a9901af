#include "convert/yuv_to_rgb_kernels.h"

namespace kvl {

void addYuvToRgbAvx2(YuvToRgbKernels&) {}

}  // namespace kvl
