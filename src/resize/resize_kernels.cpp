#include "resize/resize_kernels.h"

#include <cstring>

namespace kvl {
namespace {

constexpr int32_t scalarBlockLines = 16;

uint8_t narrow(int32_t sum) {
  return static_cast<uint8_t>(sum >> shareBits);
}

void blendScalar(const ResizeLine& line, Halves halves, ptrdiff_t offset, uint8_t* out,
                 ptrdiff_t count) {
  const int32_t rounding = roundingTerm(halves);
  if (line.count == 1) {
    std::memcpy(out, line.first + offset, static_cast<size_t>(count));
    return;
  }
  if (line.count == 2) {
    const uint8_t* a = line.first + offset;
    const uint8_t* b = line.second + offset;
    for (ptrdiff_t i = 0; i < count; ++i) {
      out[i] = narrow(a[i] * (wholeShare - line.share) + b[i] * line.share + rounding);
    }
    return;
  }
  for (ptrdiff_t i = 0; i < count; ++i) {
    const uint8_t* sample = line.first + offset + i;
    int32_t sum = rounding;
    int32_t remaining = wholeShare;
    for (int32_t k = 1; k < line.count; ++k, sample += line.step) {
      const int32_t after = roundedShare(line.weights[k].weight);
      sum += (remaining - after) * *sample;
      remaining = after;
    }
    out[i] = narrow(sum + remaining * *sample);
  }
}

void transposeScalar(const uint8_t* lines, ptrdiff_t stride, uint8_t* const* out) {
  for (ptrdiff_t x = 0; x < blockBytes; ++x) {
    for (ptrdiff_t y = 0; y < scalarBlockLines; ++y) out[x][y] = lines[y * stride + x];
  }
}

}  // namespace

ResizeKernels resizeKernels(InstructionSet level) {
  ResizeKernels kernels{blendScalar, transposeScalar, scalarBlockLines};
  if (level >= InstructionSet::ssse3) addResizeSsse3(kernels);
  if (level >= InstructionSet::avx2) addResizeAvx2(kernels);
  return kernels;
}

}  // namespace kvl
