#include "convert/rgb24_to_y.h"

#include <algorithm>

#include "convert/rgb_blocks.h"
#include "convert/target_frame.h"

namespace kvl {
namespace {

constexpr int64_t bytesPerPixel = 3;

void convertRow(const RgbToYuv& colours, const RgbBlocks& blocks, const uint8_t* in, uint8_t* out,
                int32_t width) {
  int32_t x = 0;
  if (blocks.luma != nullptr) {
    blocks.luma(out, in, width / pixelsPerBlock, colours);
    x = static_cast<int32_t>(width / pixelsPerBlock * pixelsPerBlock);
  }
  for (; x < width; ++x) {
    const int32_t y = addWrapping(lumaOf(colours, in + x * bytesPerPixel), colours.lumaOffset);
    out[x] = static_cast<uint8_t>(std::clamp(y, 0, 255));
  }
}

}  // namespace

void convertRgb24ToY(const uint8_t* source, int32_t sourceStride, uint8_t* plane,
                     int32_t planeStride, int32_t width, int32_t height,
                     const ColorConversionParams* colours) {
  if (source == nullptr || plane == nullptr || colours == nullptr) return;
  const TargetFrame target{plane, planeStride, height};
  if (width <= 0 || height <= 0) return;
  // Rows that share bytes would be written by several threads.
  if (height > 1 && target.rowBytes() < width) return;
  if (!areRowsAddressable(plane, planeStride, height) ||
      !areRowsAddressable(source, sourceStride, height)) {
    return;
  }
  const RgbToYuv c = rgbToYuvOf(*colours);
  const RgbBlocks blocks = rgbBlocks(instructionSet());
  parallelBands(height, [&](RowRange band) {
    for (int64_t y = band.start; y < band.end; ++y) {
      convertRow(c, blocks, source + y * sourceStride, target.row(y), width);
    }
  });
}

}  // namespace kvl
