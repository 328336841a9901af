#include "operations/grey_plane.h"

#include <algorithm>

namespace kvl::tool {

void toGrey(const Dib& picture, GreyPlane& plane) {
  plane.size = picture.size();
  plane.samples.clear();
  for (int32_t y = 0; y < plane.size.height; ++y) {
    const uint8_t* pixel = picture.bits.data() + static_cast<size_t>(y) * picture.stride();
    for (int32_t x = 0; x < plane.size.width; ++x, pixel += 3) {
      const int brightness = 29 * pixel[0] + 150 * pixel[1] + 77 * pixel[2];
      plane.samples.push_back(static_cast<uint8_t>((brightness + 128) >> 8));
    }
  }
}

void fromGrey(const GreyPlane& plane, Dib& picture) {
  const uint8_t* sample = plane.samples.data();
  for (int32_t y = 0; y < plane.size.height; ++y) {
    uint8_t* pixel = picture.bits.data() + static_cast<size_t>(y) * picture.stride();
    for (int32_t x = 0; x < plane.size.width; ++x, pixel += 3) std::fill_n(pixel, 3, *sample++);
  }
}

}  // namespace kvl::tool
