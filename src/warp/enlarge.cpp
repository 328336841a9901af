#include "warp/enlarge.h"

#include <cstring>
#include <utility>

#include "core/parallel.h"
#include "resize/row_interpolation.h"

namespace kvl {
namespace {

size_t enlargedRowBytes(const Enlargement& e) {
  return (static_cast<size_t>(e.box.right - e.box.left) << e.shift) *
         static_cast<size_t>(e.bytesPerPixel);
}

uint8_t* repeatPixel(uint8_t* out, const uint8_t* pixel, int32_t bytesPerPixel, int32_t times) {
  for (int32_t i = 0; i < times; ++i) {
    for (int32_t c = 0; c < bytesPerPixel; ++c) *out++ = pixel[c];
  }
  return out;
}

template <int32_t bytesPerPixel>
void enlargeRow(const uint8_t* pixels, int32_t count, uint8_t* out, int shift) {
  const int32_t factor = 1 << shift, half = factor / 2;
  out = repeatPixel(out, pixels, bytesPerPixel, half);
  for (int32_t i = 1; i < count; ++i, pixels += bytesPerPixel) {
    for (int32_t k = 0; k < factor; ++k, out += bytesPerPixel) {
      for (int32_t c = 0; c < bytesPerPixel; ++c) {
        out[c] = interpolateSample(pixels[c], pixels[bytesPerPixel + c], shift, k);
      }
    }
  }
  repeatPixel(out, pixels, bytesPerPixel, factor - half);
}

// Row `row` of the box, counted from its top.
void enlargeSourceRow(const Enlargement& e, int32_t row, uint8_t* out) {
  const int32_t count = e.box.right - e.box.left;
  const uint8_t* pixels =
      e.source->row(int64_t{e.box.top} + row) + ptrdiff_t{e.box.left} * e.bytesPerPixel;
  switch (e.bytesPerPixel) {
    case 1:
      return enlargeRow<1>(pixels, count, out, e.shift);
    case 3:
      return enlargeRow<3>(pixels, count, out, e.shift);
    default:
      return enlargeRow<4>(pixels, count, out, e.shift);
  }
}

}  // namespace

size_t enlargeScratchBytes(const Enlargement& enlargement, int threads) {
  return 2 * enlargedRowBytes(enlargement) * static_cast<size_t>(threads);
}

void enlarge(const Enlargement& e, uint8_t* scratch) {
  const size_t rowBytes = enlargedRowBytes(e);
  const int32_t rows = e.box.bottom - e.box.top;
  const int32_t factor = 1 << e.shift, half = factor / 2;
  const RowInterpolationKernels kernels = rowInterpolationKernels(instructionSet());
  const auto fill = [&](int64_t first, int32_t count, const uint8_t* row) {
    for (int32_t i = 0; i < count; ++i) std::memcpy(e.enlarged->row(first + i), row, rowBytes);
  };
  // Gap g lies between the rows g - 1 and g of the box: one before its first row, one after its
  // last. What is interpolated does not depend on whether memory runs up or down the picture.
  parallelBands(rows + 1, [&](RowRange gaps) {
    uint8_t* above = scratch + 2 * rowBytes * static_cast<size_t>(omp_get_thread_num());
    uint8_t* below = above + rowBytes;
    if (gaps.start > 0) enlargeSourceRow(e, gaps.start - 1, above);
    for (int32_t gap = gaps.start; gap < gaps.end; ++gap) {
      const int64_t first = int64_t{gap} * factor - half;
      if (gap < rows) enlargeSourceRow(e, gap, below);
      if (gap == 0) {
        fill(0, half, below);
      } else if (gap == rows) {
        fill(first, factor - half, above);
      } else {
        for (int32_t k = 0; k < factor; ++k) {
          kernels.interpolate(above, below, e.enlarged->row(first + k),
                              static_cast<ptrdiff_t>(rowBytes), e.shift, k);
        }
      }
      std::swap(above, below);
    }
  });
}

}  // namespace kvl
