#include "convert/rgb_bmp_to_rgb_frame.h"

#include "convert/packed_dib.h"
#include "convert/rgb_blocks.h"
#include "convert/target_frame.h"
#include "core/pixel_memory.h"

namespace kvl {
namespace {

constexpr int64_t frameBytesPerPixel = 4;

struct RgbFramePlan {
  RgbBlocks blocks;
  int bitCount;
  int64_t rowBytes;
  int64_t leftMargin;  // [0, leftMargin) and [rightMargin, rowBytes) become 0
  int64_t rightMargin;
  int64_t spanAt;
  int64_t spanSource;
  int64_t spanPixels;
};

// Columns of the bitmap count 3 bytes whatever its depth.
RgbFramePlan planRows(const BITMAPINFOHEADER& bitmap, int32_t sourceLeft, int64_t rowBytes,
                      int32_t left, int32_t width) {
  RgbFramePlan plan{};
  plan.blocks = rgbBlocks(instructionSet());
  plan.bitCount = bitmap.biBitCount;
  plan.rowBytes = rowBytes;
  const int64_t at = frameBytesPerPixel * left;
  const int64_t end = at + frameBytesPerPixel * width;
  plan.leftMargin = std::clamp<int64_t>(at, 0, rowBytes);
  plan.rightMargin = at > 0 ? std::clamp<int64_t>(end, 0, rowBytes) : rowBytes;

  if (bitmap.biBitCount != 24 && bitmap.biBitCount != 32) return plan;
  const int64_t sourceAt = int64_t{3} * sourceLeft;
  const int64_t sourceStep = bitmap.biBitCount / 8;
  Range span{0, width};
  span.clip(at, frameBytesPerPixel, rowBytes);
  span.clip(sourceAt, sourceStep, sourceStep * bitmap.biWidth);
  plan.spanAt = at + frameBytesPerPixel * span.first;
  plan.spanSource = sourceAt + sourceStep * span.first;
  plan.spanPixels = span.count();
  return plan;
}

void ExpandRgb24ToRgb32Row(const RgbBlocks& blocks, uint8_t* out, const uint8_t* in,
                           int64_t pixels) {
  int64_t i = 0;
  if (blocks.expand != nullptr) {
    blocks.expand(out, in, pixels / pixelsPerBlock);
    i = pixels / pixelsPerBlock * pixelsPerBlock;
  }
  for (; i < pixels; ++i) {
    for (int c = 0; c < 3; ++c) out[4 * i + c] = in[3 * i + c];
    out[4 * i + 3] = 0;
  }
}

void copyRow(const RgbFramePlan& plan, uint8_t* row, const uint8_t* source) {
  if (plan.leftMargin > 0) FastFill(row, 0, static_cast<uint64_t>(plan.leftMargin));
  if (plan.rightMargin < plan.rowBytes) {
    FastFill(row + plan.rightMargin, 0, static_cast<uint64_t>(plan.rowBytes - plan.rightMargin));
  }
  if (source == nullptr || plan.spanPixels == 0) return;
  uint8_t* out = row + plan.spanAt;
  const uint8_t* in = source + plan.spanSource;
  if (plan.bitCount == 24) {
    ExpandRgb24ToRgb32Row(plan.blocks, out, in, plan.spanPixels);
  } else {
    FastCopy(out, in, static_cast<uint64_t>(frameBytesPerPixel * plan.spanPixels));
  }
}

}  // namespace

void copyRgbBmpToRgbFrame(const BITMAPINFOHEADER* bitmap, POINT sourceAt, uint8_t* frame,
                          POINT frameAt, int32_t frameStride, int32_t frameHeight, SIZE area) {
  if (bitmap == nullptr || frame == nullptr) return;
  const PackedDib dib = packedDib(bitmap);
  const TargetFrame target{frame, frameStride, frameHeight};
  if (dib.rowBytes == 0 || !isUsable(target)) return;

  const RgbFramePlan plan = planRows(dib.header, sourceAt.x, target.rowBytes(), frameAt.x, area.cx);
  fillBands(target, frameAt.y, area.cy,
            [](uint8_t* at, uint64_t bytes) { FastFill(at, 0, bytes); });
  const RowRange inside = rowsInside(frameAt.y, area.cy, target.height);
  parallelStatic(inside.end - inside.start, [&](int32_t i) {
    const int64_t r = int64_t{inside.start} + i;
    copyRow(plan, target.row(frameAt.y + r), GetDibRowPointer(dib, sourceAt.y + r));
  });
}

}  // namespace kvl
