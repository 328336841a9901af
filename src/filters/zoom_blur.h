#pragma once

#include "filters/one_pass.h"

namespace kvl {

void zoomBlur(const OnePassImages& images, double centreX, double centreY, double strength);

}  // namespace kvl
