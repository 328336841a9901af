#include "resize/resize_passes.h"

#include <cstring>

#include "resize/resize_lines.h"

namespace kvl {
namespace {

const uint8_t* sourceRow(const ResizePlan& plan, int64_t row) {
  return plan.source + row * static_cast<int64_t>(plan.setup.srcStride);
}

void fillBorder(const ResizePlan& plan) {
  const Border border(plan);
  const size_t components = plan.setup.bytesPerPixel;
  const size_t rowBytes = static_cast<size_t>(plan.setup.srcWidth) * components;
  std::memcpy(border.below, sourceRow(plan, plan.vertical.lowest), rowBytes);
  std::memcpy(border.above, sourceRow(plan, plan.vertical.highest), rowBytes);
  for (int64_t y = 0; y < plan.vertical.imageSamples; ++y) {
    const uint8_t* row = sourceRow(plan, y);
    const auto offset = static_cast<size_t>(y) * components;
    const auto copyPixel = [&](uint8_t* column, int32_t x) {
      std::memcpy(column + offset, row + static_cast<size_t>(x) * components, components);
    };
    copyPixel(border.left, plan.horizontal.lowest);
    copyPixel(border.right, plan.horizontal.highest);
  }
}

}  // namespace

void resample(const ResizePlan& plan) {
  if (plan.setup.borderBuffers != 0) fillBorder(plan);
  if (plan.halves) {
    drawHalves(plan);
  } else if (interpolates(plan.horizontal.scale)) {
    drawRows(plan);
  } else {
    drawStrips(plan);
  }
}

}  // namespace kvl
