#include "convert/rgb24_to_yuy2.h"

#include "convert/yuv422_row.h"

namespace kvl {
namespace {

constexpr int bytesPerPixel = 3;

// Rows of a bitmap from the top; rows of 0 bytes all lie in one place and have no known length.
struct SourceRows {
  const uint8_t* top;
  int64_t stride;
  int32_t height;

  bool isUsable() const { return height > 0 && areRowsAddressable(top, stride, height); }
  int64_t columns() const {
    if (stride == 0) return INT32_MAX;
    return (stride < 0 ? -stride : stride) / bytesPerPixel;
  }
};

}  // namespace

void convertRgb24ToYuy2(const uint8_t* source, int32_t sourceStride, int32_t sourceHeight,
                        uint8_t* frame, int32_t frameStride, int32_t frameHeight, POINT sourceAt,
                        POINT frameAt, SIZE area, const ColorConversionParams* colours) {
  if (source == nullptr || frame == nullptr || colours == nullptr) return;
  const TargetFrame target{frame, frameStride, frameHeight};
  if (!isUsable(target)) return;
  SourceRows rows{source, sourceStride, sourceHeight};
  if (!rows.isUsable()) return;
  if (rows.stride > 0) {
    rows.top += (rows.height - 1) * rows.stride;
    rows.stride = -rows.stride;
  }

  Yuv422Plan plan = planYuv422Rows(rgbToYuvOf(*colours), Yuv422Order::yuy2, target.rowBytes(),
                                   frameAt.x, area.cx, {sourceAt.x, rows.columns(), bytesPerPixel});
  plan.blocks = rgbBlocks(instructionSet());
  fillBands(target, frameAt.y, area.cy,
            [](uint8_t* at, uint64_t bytes) { fillYuv422Black(at, bytes, Yuv422Order::yuy2); });
  const RowRange inside = rowsInside(frameAt.y, area.cy, target.height);
  parallelBands(inside.end - inside.start, [&](RowRange band) {
    for (int32_t r = inside.start + band.start; r < inside.start + band.end; ++r) {
      const int64_t y = int64_t{sourceAt.y} + r;
      const bool exists = y >= 0 && y < rows.height;
      convertYuv422Row(plan, target.row(int64_t{frameAt.y} + r),
                       exists ? rows.top + y * rows.stride : nullptr,
                       rows.columns() * bytesPerPixel);
    }
  });
}

}  // namespace kvl
