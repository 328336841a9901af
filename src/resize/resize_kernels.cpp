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

void interpolateScalar(const InterpolatedBytes* table, ptrdiff_t components, ptrdiff_t bytes,
                       const uint8_t* in, ptrdiff_t inStride, ptrdiff_t count, uint8_t* out,
                       ptrdiff_t outStride) {
  for (ptrdiff_t y = 0; y < count; ++y, in += inStride, out += outStride) {
    for (ptrdiff_t i = 0; i < bytes; ++i) {
      const InterpolatedBytes& group = table[i / 8];
      const uint8_t* sample = in + group.first + group.positions[i % 8];
      const int32_t share = group.shares[i % 8];
      out[i] = narrow(sample[0] * (wholeShare - share) + sample[components] * share +
                      roundingTerm(Halves::down));
    }
  }
}

template <ptrdiff_t components>
void halveScalar(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  const auto column = [&](ptrdiff_t i) { return (a[i] + b[i] + 1) >> 1; };
  for (ptrdiff_t x = 0; x < count; ++x) {
    for (ptrdiff_t c = 0; c < components; ++c) {
      const ptrdiff_t at = 2 * x * components + c;
      out[x * components + c] = static_cast<uint8_t>((column(at) + column(at + components)) >> 1);
    }
  }
}

constexpr ResizeKernels scalarKernels = {blendScalar,       transposeScalar, scalarBlockLines,
                                         interpolateScalar, halveScalar<1>,  halveScalar<3>};

}  // namespace

const ResizeKernels& scalarResize() {
  return scalarKernels;
}

ResizeKernels resizeKernels(InstructionSet level) {
  ResizeKernels kernels = scalarKernels;
  if (level >= InstructionSet::ssse3) addResizeSsse3(kernels);
  if (level >= InstructionSet::avx2) addResizeAvx2(kernels);
  return kernels;
}

}  // namespace kvl
