#include "convert/yuv_to_rgb_kernels.h"

namespace kvl {

void addYuvToRgbSsse3(YuvToRgbKernels&) {}

}  // namespace kvl
