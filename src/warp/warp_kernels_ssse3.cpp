#include "warp/warp_vector.h"

namespace kvl {

void addWarpSsse3(WarpKernels& kernels, int32_t channels) {
  kernels.splatRow = channels == 1   ? splatRowVector<1>
                     : channels == 3 ? splatRowVector<3>
                                     : splatRowVector<4>;
}

}  // namespace kvl
