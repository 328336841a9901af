#include "filters/selective_blur.h"

#include "core/bitmap.h"
#include "core/parallel.h"
#include "filters/selective_mean.h"

namespace kvl {
namespace {

// The neighbours of a full square, (2R + 1)^2 - 1.
int64_t squareNeighbours(int32_t radius) {
  constexpr int32_t largestThatMatters = 1 << 20;
  const int64_t r = radius < largestThatMatters ? radius : largestThatMatters;
  return 4 * r * (r + 1);
}

}  // namespace

void selectiveBlur(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                   const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                   int32_t threshold, int32_t radius) {
  if (radius < 1 || threshold < 1) return;
  if (sourceHeader == nullptr || destinationHeader == nullptr || sourceBits == nullptr ||
      destinationBits == nullptr) {
    return;
  }
  if (sourceHeader->biWidth != destinationHeader->biWidth) return;
  if (sourceHeader->biHeight != destinationHeader->biHeight) return;

  const int32_t width = sourceHeader->biWidth;
  const int32_t height = sourceHeader->biHeight;
  const ptrdiff_t stride = rgb24Stride(width);
  SelectiveWeights weights;
  if (stride == 0 || height <= 0 || !isAddressable(sourceBits, stride, height) ||
      !isAddressable(destinationBits, stride, height) ||
      !makeSelectiveWeights(squareNeighbours(radius), threshold, weights)) {
    return;
  }
  const SelectiveSource source{sourceBits, stride, width,   height,
                               radius,     radius, weights, selectiveMeanKernel(instructionSet())};
  parallelStatic(height, [&](int32_t y) {
    selectiveMeanOfRow(source, y, 0, width, destinationBits + y * stride);
  });
}

}  // namespace kvl
