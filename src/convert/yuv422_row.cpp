#include "convert/yuv422_row.h"

#include <cstring>

namespace kvl {
namespace {

constexpr int64_t bytesPerPair = 4;
constexpr int64_t pairsPerBlock = pixelsPerBlock / 2;

// The mean of two chroma values, halves upwards and then towards zero.
int32_t chromaOfPair(int32_t first, int32_t second) {
  return addWrapping(addWrapping(first, second), 1) / 2;
}

void convertPair(uint8_t* out, const uint8_t* first, const uint8_t* second, const RgbToYuv& c,
                 Yuv422Order order) {
  const int32_t y0 = addWrapping(lumaOf(c, first), c.lumaOffset);
  const int32_t y1 = addWrapping(lumaOf(c, second), c.lumaOffset);
  const int32_t u = chromaOfPair(addWrapping(chromaOf(c, c.u, first), c.uOffset),
                                 addWrapping(chromaOf(c, c.u, second), c.uOffset));
  const int32_t v = chromaOfPair(addWrapping(chromaOf(c, c.v, first), c.vOffset),
                                 addWrapping(chromaOf(c, c.v, second), c.vOffset));
  const int lumaAt = order == Yuv422Order::yuy2 ? 0 : 1;
  out[lumaAt] = static_cast<uint8_t>(y0);
  out[lumaAt + 2] = static_cast<uint8_t>(y1);
  out[1 - lumaAt] = static_cast<uint8_t>(u);
  out[3 - lumaAt] = static_cast<uint8_t>(v);
}

// Rows of fewer than 24 bits a pixel have no colours to convert.
void convertRun(const Yuv422Plan& plan, uint8_t* out, const uint8_t* in) {
  if (plan.bytesPerPixel < 3) return;
  const auto convertBlocks =
      plan.bytesPerPixel == 3 ? plan.blocks.yuv422From24 : plan.blocks.yuv422From32;
  int64_t pair = 0;
  if (convertBlocks != nullptr) {
    const int64_t blocks = plan.runPairs / pairsPerBlock;
    convertBlocks(out, in, blocks, plan.colours, plan.order);
    pair = blocks * pairsPerBlock;
    // Blocks take wider pixels for ones of 4 bytes.
    in += blocks * pixelsPerBlock * std::min(plan.bytesPerPixel, 4);
  }
  for (; pair < plan.runPairs; ++pair, in += ptrdiff_t{2} * plan.bytesPerPixel) {
    convertPair(out + pair * bytesPerPair, in, in + plan.bytesPerPixel, plan.colours, plan.order);
  }
}

void convertEdge(const Yuv422Plan& plan, const EdgePair& edge, bool pixelFirst, uint8_t* row,
                 const uint8_t* source, int64_t sourceBytes) {
  if (edge.range.count() == 0) return;
  // With fewer than 24 bits the three bytes of the last pixel can reach past the bitmap.
  uint8_t pixel[3] = {};
  const auto readable = std::clamp<int64_t>(sourceBytes - edge.source, 0, sizeof pixel);
  std::memcpy(pixel, source + edge.source, static_cast<size_t>(readable));
  constexpr uint8_t black[3] = {};
  convertPair(row + edge.at, pixelFirst ? pixel : black, pixelFirst ? black : pixel, plan.colours,
              plan.order);
}

}  // namespace

Yuv422Plan planYuv422Rows(const RgbToYuv& colours, Yuv422Order order, int64_t rowBytes,
                          int32_t left, int32_t width, const SourceColumns& source) {
  const int64_t right = int64_t{left} + width;
  const int64_t startCeil = int64_t{left} + (left & 1);
  const int64_t startFloor = int64_t{left} - (left & 1);
  const int64_t endCeil = right + (right & 1);
  const int64_t endFloor = right - (right & 1);
  const int64_t bytesPerPixel = source.bytesPerPixel;

  Yuv422Plan plan{};
  plan.colours = colours;
  plan.order = order;
  plan.bytesPerPixel = source.bytesPerPixel;
  plan.rowBytes = rowBytes;
  plan.leftMargin = std::clamp<int64_t>(2 * startFloor, 0, rowBytes);
  plan.rightMargin = startFloor > 0 ? std::clamp<int64_t>(2 * endCeil, 0, rowBytes) : rowBytes;

  const auto edgePair = [&](bool exists, int64_t at, int64_t pixel) {
    Range range{0, exists ? 1 : 0};
    range.clip(at, bytesPerPair, rowBytes);
    range.clip(source.first + pixel, 1, source.count);
    return EdgePair{range, at, (source.first + pixel) * bytesPerPixel};
  };
  const int64_t firstOfRun = startCeil - startFloor > 0 ? 1 : 0;
  const int64_t pairs = std::max<int64_t>(0, (endFloor - startCeil) / 2);
  plan.leftEdge = edgePair(startFloor != startCeil, 2 * startFloor, 0);
  plan.rightEdge =
      edgePair(endFloor != endCeil, 2 * startCeil + bytesPerPair * pairs, firstOfRun + 2 * pairs);

  Range run{0, pairs};
  run.clip(2 * startCeil, bytesPerPair, rowBytes);
  run.clip(source.first + firstOfRun, 2, source.count);
  plan.runAt = 2 * startCeil + bytesPerPair * run.first;
  plan.runSource = (source.first + firstOfRun + 2 * run.first) * bytesPerPixel;
  plan.runPairs = run.count();
  return plan;
}

void fillYuv422Black(uint8_t* at, uint64_t bytes, Yuv422Order order) {
  constexpr uint64_t blockBytes = 16;
  uint8_t block[blockBytes];
  const unsigned lumaAt = order == Yuv422Order::yuy2 ? 0 : 1;
  for (unsigned i = 0; i < blockBytes; ++i) block[i] = i % 2 == lumaAt ? 0x0F : 0x80;
  bytes -= bytes % bytesPerPair;
  for (; bytes >= blockBytes; bytes -= blockBytes, at += blockBytes) {
    std::memcpy(at, block, blockBytes);
  }
  std::memcpy(at, block, bytes);
}

void convertYuv422Row(const Yuv422Plan& plan, uint8_t* row, const uint8_t* source,
                      int64_t sourceBytes) {
  fillYuv422Black(row, static_cast<uint64_t>(plan.leftMargin), plan.order);
  fillYuv422Black(row + plan.rightMargin, static_cast<uint64_t>(plan.rowBytes - plan.rightMargin),
                  plan.order);
  if (source == nullptr) return;
  convertEdge(plan, plan.leftEdge, false, row, source, sourceBytes);
  if (plan.runPairs > 0) convertRun(plan, row + plan.runAt, source + plan.runSource);
  convertEdge(plan, plan.rightEdge, true, row, source, sourceBytes);
}

}  // namespace kvl
