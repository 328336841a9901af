#pragma once

#include "filters/one_pass.h"

namespace kvl {

void radialBlur(const OnePassImages& images, double centreX, double centreY, double angle);

}  // namespace kvl
