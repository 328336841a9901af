#include "filters/modified_selective_blur.h"

#include <algorithm>

#include "core/bitmap.h"
#include "core/parallel.h"
#include "filters/selective_mean.h"
#include "filters/swapped_size.h"
#include "filters/transpose_rgb24.h"

namespace kvl {
namespace {

// A tile is filtered on the stack and then stored as columns, 48 bytes of each. It is wide so that
// the rows are read as long streams.
constexpr int32_t tileRows = 16;
constexpr int32_t tileColumns = 512;
constexpr int32_t bytesPerPixel = 3;

// Filters every line of the input and stores it as a column of the output.
void selectiveBlurLinePass(const SelectiveSource& input, uint8_t* output, ptrdiff_t outputStride) {
  const TransposeRgb24Kernel transpose = transposeRgb24Kernel(instructionSet());
  const int32_t blocks = input.height / tileRows + (input.height % tileRows > 0);
  parallelDynamic(blocks, neighboursPerClaim(blocks), [&](int32_t block, int) {
    uint8_t tile[tileRows * tileColumns * bytesPerPixel];
    constexpr ptrdiff_t tileStride = ptrdiff_t{tileColumns} * bytesPerPixel;
    const int32_t top = block * tileRows;
    const int32_t rows = std::min(tileRows, input.height - top);
    for (int32_t left = 0; left < input.width;) {
      const int32_t columns = std::min(tileColumns, input.width - left);
      for (int32_t row = 0; row < rows; ++row) {
        selectiveMeanOfRow(input, top + row, left, left + columns, tile + row * tileStride);
      }
      transpose(tile, tileStride, output + left * outputStride + ptrdiff_t{top} * bytesPerPixel,
                outputStride, columns, rows);
      left += columns;
    }
  });
}

}  // namespace

void modifiedSelectiveBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                           const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits,
                           int32_t threshold, int32_t radius) {
  if (radius < 1 || threshold < 1) return;
  if (workHeader == nullptr || imageHeader == nullptr || workBits == nullptr ||
      imageBits == nullptr) {
    return;
  }
  if (workHeader->biWidth != imageHeader->biWidth) return;
  if (workHeader->biHeight != imageHeader->biHeight) return;

  const int32_t width = imageHeader->biWidth;
  const int32_t height = imageHeader->biHeight;
  const ptrdiff_t imageStride = rgb24Stride(width);
  SelectiveWeights weights;
  if (imageStride == 0 || height <= 0 || !isAddressable(imageBits, imageStride, height) ||
      !isAddressable(workBits, imageStride, height) ||
      !makeSelectiveWeights(2 * int64_t{radius}, threshold, weights)) {
    return;
  }
  // The work rows lie closer together than rows of a bitmap, so that all of them fit.
  const ptrdiff_t workStride = imageStride * height / width;
  const SelectiveMeanKernels kernels = selectiveMeanKernels(instructionSet());
  const SwappedSize transposed(*workHeader);
  selectiveBlurLinePass({imageBits, imageStride, width, height, radius, 0, weights, kernels},
                        workBits, workStride);
  selectiveBlurLinePass({workBits, workStride, height, width, radius, 0, weights, kernels},
                        imageBits, imageStride);
}

}  // namespace kvl
