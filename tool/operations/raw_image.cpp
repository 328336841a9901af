#include "operations/raw_image.h"

#include <algorithm>
#include <string>

#include "error.h"

namespace kvl::tool {
namespace {

constexpr int kLongestSide = 1 << 20;
constexpr double kFarthestCentre = 1 << 20;

}  // namespace

void RawImageOperation::prepare(const Dib& frame, Dib& result) {
  const Size size = frame.size();
  if (std::max(size.width, size.height) > kLongestSide) {
    throw Error(std::to_string(size.width) + "x" + std::to_string(size.height),
                "the picture has a side longer than " + std::to_string(kLongestSide) + " pixels");
  }
  result.resize(size);
}

void addCentre(CLI::App& command, std::optional<Point>& centre) {
  addPoint(command, "--center", centre, {"pixels", -1000000, 1000000},
           "Centre, counted from the top left pixel; may lie outside the picture",
           "the picture's middle");
}

Point centreInMemory(const std::optional<Point>& centre, Size size) {
  const Point lowerRight = {size.width - 1.0, size.height - 1.0};
  if (!centre) return {lowerRight.x / 2, lowerRight.y / 2};
  const Point inMemory = {centre->x, lowerRight.y - centre->y};
  if (inMemory.y > kFarthestCentre) {
    throw Error("--center", "is too far from the picture's lower edge");
  }
  return inMemory;
}

}  // namespace kvl::tool
