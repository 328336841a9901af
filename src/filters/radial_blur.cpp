#include "filters/radial_blur.h"

#include <algorithm>
#include <cmath>

#include "core/exact_math.h"
#include "filters/similarity_average.h"

namespace kvl {
namespace {

constexpr double maxAngle = 360.0;
constexpr int angleBits = 16;

void placeOnArc(int32_t angle, SimilaritySample* samples, int32_t count) {
  for (int32_t k = 0; k < count; ++k) {
    constexpr int64_t unit = 1 << (19 - angleBits - 1);
    const SineCosine turn = sineCosine(divideHalfAway(unit * angle * (2 * k + 1 - count), count));
    samples[k] = {turn.cosine - (1 << 30), turn.sine};
  }
}

}  // namespace

void radialBlur(const OnePassImages& images, double centreX, double centreY, double angle) {
  if (!isUsable(images) || !isUsableCentre(centreX, centreY)) return;
  if (!std::isfinite(angle) || angle < 0) return;
  const auto fixed =
      static_cast<int32_t>(roundHalfEven(std::min(angle, maxAngle) * (1 << angleBits)));
  if (fixed == 0) {
    copyRows(images);
    return;
  }
  constexpr double radiansPerDegree = 0.017453292519943295;
  averageAlongPath(
      images, centreX, centreY,
      {static_cast<double>(fixed) / (1 << angleBits) * radiansPerDegree, fixed, placeOnArc});
}

}  // namespace kvl
