#include "filters/zoom_blur.h"

#include <algorithm>
#include <cmath>

#include "core/exact_math.h"
#include "filters/similarity_average.h"

namespace kvl {
namespace {

// From here on the near end of a ray would pass the centre.
constexpr double maxStrength = 2.0;
constexpr int strengthBits = 16;

void placeOnRay(int32_t strength, SimilaritySample* samples, int32_t count) {
  for (int32_t k = 0; k < count; ++k) {
    constexpr int64_t unit = int64_t{1} << (30 - strengthBits - 1);
    samples[k].scale =
        static_cast<int32_t>(divideHalfAway(unit * strength * (2 * k + 1 - count), count));
    samples[k].turn = 0;
  }
}

}  // namespace

void zoomBlur(const OnePassImages& images, double centreX, double centreY, double strength) {
  if (!isUsable(images) || !isUsableCentre(centreX, centreY)) return;
  if (!std::isfinite(strength) || strength < 0) return;
  const auto fixed =
      static_cast<int32_t>(roundHalfEven(std::min(strength, maxStrength) * (1 << strengthBits)));
  if (fixed == 0) {
    copyRows(images);
    return;
  }
  averageAlongPath(images, centreX, centreY,
                   {static_cast<double>(fixed) / (1 << strengthBits), fixed, placeOnRay});
}

}  // namespace kvl
