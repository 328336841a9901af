// One plane of samples for the routines that take a single component.
#pragma once

#include <cstdint>
#include <vector>

#include "dib.h"

namespace kvl::tool {

// Rows without padding, in the memory order of the picture that they come from.
struct GreyPlane {
  Size size;
  std::vector<uint8_t> samples;

  uint32_t stride() const { return static_cast<uint32_t>(size.width); }
};

// The brightness of each pixel: 0.299 red + 0.587 green + 0.114 blue.
void toGrey(const Dib& picture, GreyPlane& plane);

// Gives all three components of `picture`, which has the plane's size, the plane's samples.
void fromGrey(const GreyPlane& plane, Dib& picture);

}  // namespace kvl::tool
