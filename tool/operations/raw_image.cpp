#include "operations/raw_image.h"

#include <algorithm>
#include <string>

#include "error.h"

namespace kvl::tool {
namespace {

constexpr int kLongestSide = 1 << 20;
constexpr double kFarthestCentre = 1 << 20;

// The centre as the library is to be given it, its y counting the rows in memory, which begin with
// the picture's lowest. The middle of the picture stands in for an empty one.
Point centreInMemory(const std::optional<Point>& centre, Size size) {
  const Point lowerRight = {size.width - 1.0, size.height - 1.0};
  if (!centre) return {lowerRight.x / 2, lowerRight.y / 2};
  const Point inMemory = {centre->x, lowerRight.y - centre->y};
  if (inMemory.y > kFarthestCentre) {
    throw Error("--center", "is too far from the picture's lower edge");
  }
  return inMemory;
}

}  // namespace

void RawImageOperation::prepare(const Dib& frame, Dib& result) {
  const Size size = frame.size();
  if (std::max(size.width, size.height) > kLongestSide) {
    throw Error(std::to_string(size.width) + "x" + std::to_string(size.height),
                "the picture has a side longer than " + std::to_string(kLongestSide) + " pixels");
  }
  result.resize(size);
}

void CentredBlur::addOptions(CLI::App& command) {
  addPoint(command, "--center", centre_, {"pixels", -1000000, 1000000},
           "Centre, counted from the top left pixel; may lie outside the picture",
           "the picture's middle");
  addAmount(command, amount_);
}

void CentredBlur::prepare(const Dib& frame, Dib& result) {
  RawImageOperation::prepare(frame, result);
  centreInMemory_ = centreInMemory(centre_, frame.size());
}

void CentredBlur::run(const Dib& frame, Dib& result) {
  const auto stride = static_cast<uint32_t>(frame.stride());
  routine_(frame.bits.data(), stride, result.bits.data(), stride,
           static_cast<uint32_t>(frame.size().width), static_cast<uint32_t>(frame.size().height),
           centreInMemory_.x, centreInMemory_.y, amount_, 3);
}

}  // namespace kvl::tool
