// This host's allocator for the warp's temporary images.
#pragma once

#include "kvl/kvl.h"

namespace kvl::tool {

KvlWarpHostAllocator* warpAllocator();

}  // namespace kvl::tool
