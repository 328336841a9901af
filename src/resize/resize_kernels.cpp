#include "resize/resize_kernels.h"

#include <cstring>

namespace kvl {
namespace {

constexpr int32_t scalarBlockLines = 16;

uint8_t narrow(int32_t sum) {
  return static_cast<uint8_t>(sum >> shareBits);
}

void blendLine(const ResizeLine& line, int32_t rounding, ptrdiff_t offset, ptrdiff_t bytes,
               uint8_t* out) {
  if (line.count == 1) {
    std::memcpy(out, line.first + offset, static_cast<size_t>(bytes));
    return;
  }
  if (line.count == 2) {
    const uint8_t* a = line.first + offset;
    const uint8_t* b = line.second + offset;
    for (ptrdiff_t i = 0; i < bytes; ++i) {
      out[i] = narrow(a[i] * (wholeShare - line.share) + b[i] * line.share + rounding);
    }
    return;
  }
  for (ptrdiff_t i = 0; i < bytes; ++i) {
    const uint8_t* sample = line.first + offset + i;
    int32_t sum = rounding;
    int32_t remaining = wholeShare;
    for (int32_t k = 1; k < line.count; ++k, sample += line.step) {
      const int32_t after = shareAfter(line.edges[k]);
      sum += (remaining - after) * *sample;
      remaining = after;
    }
    out[i] = narrow(sum + remaining * *sample);
  }
}

void blendScalar(const ResizeLine* lines, ptrdiff_t count, Halves halves, ptrdiff_t offset,
                 ptrdiff_t bytes, uint8_t* out, ptrdiff_t outStride) {
  for (ptrdiff_t y = 0; y < count; ++y) {
    blendLine(lines[y], roundingTerm(halves), offset, bytes, out + y * outStride);
  }
}

void transposeScalar(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride) {
  for (ptrdiff_t x = 0; x < blockBytes; ++x) {
    for (ptrdiff_t y = 0; y < scalarBlockLines; ++y) out[x * outStride + y] = in[y * inStride + x];
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
