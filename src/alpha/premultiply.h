#pragma once

#include "alpha/colour_and_alpha.h"

namespace kvl {

// Multiplies each colour byte by its pixel's alpha; see KVL_PremultiplyAlphaLines.
void premultiply(const ColourAndAlpha& image);

}  // namespace kvl
