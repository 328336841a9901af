#include "jpeg/layout.h"

#include <algorithm>

namespace kvl {
namespace {

int32_t divideUp(int32_t value, int32_t by) {
  return (value + by - 1) / by;
}

bool isSide(int32_t value) {
  return value >= 1 && value <= jpegMaxSide;
}

bool isFactor(uint8_t value) {
  return value >= 1 && value <= 4;
}

}  // namespace

int32_t layOutJpeg(const KVL_JpegGeometry& geometry, JpegLayout& layout) {
  if (!isSide(geometry.width) || !isSide(geometry.height)) return KVL_JPEG_BAD_CODER;
  if (geometry.componentCount < 1) return KVL_JPEG_BAD_CODER;
  const bool grey = geometry.colorSpace == KVL_JPEG_GREY;
  if (!grey && geometry.colorSpace != KVL_JPEG_YCBCR && geometry.colorSpace != KVL_JPEG_RGB) {
    return KVL_JPEG_UNSUPPORTED;
  }
  if (geometry.componentCount != (grey ? 1 : 3)) return KVL_JPEG_BAD_CODER;

  layout = {geometry.width,
            geometry.height,
            geometry.colorSpace,
            geometry.componentCount,
            1,
            1,
            0,
            0,
            {}};
  for (int c = 0; c < layout.componentCount; ++c) {
    if (!isFactor(geometry.horizontal[c]) || !isFactor(geometry.vertical[c])) {
      return KVL_JPEG_BAD_CODER;
    }
    layout.horizontalMax = std::max<int32_t>(layout.horizontalMax, geometry.horizontal[c]);
    layout.verticalMax = std::max<int32_t>(layout.verticalMax, geometry.vertical[c]);
  }
  layout.mcuHeight = jpegBlock * layout.verticalMax;
  layout.mcuRows = divideUp(layout.height, layout.mcuHeight);
  for (int c = 0; c < layout.componentCount; ++c) {
    JpegComponent& component = layout.components[c];
    component.horizontal = geometry.horizontal[c];
    component.vertical = geometry.vertical[c];
    component.width = divideUp(layout.width * component.horizontal, layout.horizontalMax);
    component.height = divideUp(layout.height * component.vertical, layout.verticalMax);
    component.paddedWidth = divideUp(component.width, jpegBlock) * jpegBlock;
    component.rowsPerMcu = jpegBlock * component.vertical;
  }
  return KVL_JPEG_OK;
}

}  // namespace kvl
