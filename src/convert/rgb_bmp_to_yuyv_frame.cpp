#include "convert/rgb_bmp_to_yuyv_frame.h"

#include "convert/packed_dib.h"
#include "convert/yuv422_row.h"

namespace kvl {

void copyRgbBmpToYuyvFrame(const BITMAPINFOHEADER* bitmap, POINT sourceAt, uint8_t* frame,
                           int32_t frameStride, int32_t frameHeight, POINT frameAt, SIZE area,
                           bool bt601) {
  if (bitmap == nullptr || frame == nullptr) return;
  const PackedDib dib = packedDib(bitmap);
  const TargetFrame target{frame, frameStride, frameHeight};
  if (dib.rowBytes == 0 || !isUsable(target)) return;

  Yuv422Plan plan = planYuv422Rows(rgbToYuvOf(bt601 ? bt601Studio : bt709Studio), Yuv422Order::uyvy,
                                   target.rowBytes(), frameAt.x, area.cx,
                                   {sourceAt.x, dib.header.biWidth, dib.header.biBitCount / 8});
  plan.blocks = rgbBlocks(instructionSet());
  fillBands(target, frameAt.y, area.cy,
            [](uint8_t* at, uint64_t bytes) { fillYuv422Black(at, bytes, Yuv422Order::uyvy); });
  const RowRange inside = rowsInside(frameAt.y, area.cy, target.height);
  parallelBands(inside.end - inside.start, [&](RowRange band) {
    for (int32_t r = inside.start + band.start; r < inside.start + band.end; ++r) {
      const uint8_t* source = GetDibRowPointer(dib, int64_t{sourceAt.y} + r);
      convertYuv422Row(plan, target.row(int64_t{frameAt.y} + r), source,
                       source != nullptr ? dib.end() - source : 0);
    }
  });
}

}  // namespace kvl
