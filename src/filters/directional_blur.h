#pragma once

#include "filters/one_pass.h"

namespace kvl {

// `angle` in degrees, `length` in pixels; see KVL_BlurDirectional.
void directionalBlur(const OnePassImages& images, double angle, double length);

}  // namespace kvl
