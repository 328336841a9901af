#pragma once

#include "alpha/colour_and_alpha.h"

namespace kvl {

// Divides each colour byte by its pixel's alpha; see KVL_ReverseAlphaPremulLines.
void reversePremultiply(const ColourAndAlpha& image);

}  // namespace kvl
