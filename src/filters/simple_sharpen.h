#pragma once

#include "filters/one_pass.h"

namespace kvl {

// `threshold` in levels; see KVL_SharpenSimpleUni.
void sharpenSimple(const OnePassImages& images, int32_t threshold, float gain);

}  // namespace kvl
