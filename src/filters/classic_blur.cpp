#include "filters/classic_blur.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/bitmap.h"
#include "filters/classic_blur_kernels.h"
#include "filters/parallel_lines.h"

namespace kvl {
namespace {

constexpr int32_t plainBoxThreshold = 255;
constexpr double reciprocalUnit = 16777216.0;
constexpr float integerLimit = 2147483648.0f;

// Rounds a product of the 24-bit reciprocal. The top byte is all that can reach the result: a
// 32-bit value shifted by 24 is never above 255.
uint8_t roundedTopByte(uint32_t product) {
  return static_cast<uint8_t>((product + (1u << 23)) >> 24);
}

// One sample of every pixel of a line.
struct Line {
  const uint8_t* in;
  uint8_t* out;
  int bytesPerPixel;
  ptrdiff_t outStride;
  int64_t length;

  uint8_t at(int64_t i) const { return in[i * bytesPerPixel]; }
  // A tap beyond the ends adds nothing to a sum.
  uint32_t tap(int64_t i) const { return i >= 0 && i < length ? at(i) : 0; }
};

void selectiveLine(const Line& line, const SelectiveLineWeights& weights) {
  for (int64_t i = 0; i < line.length; ++i) {
    const int32_t centre = line.at(i);
    const int64_t first = std::max<int64_t>(i - weights.extent, 0);
    const int64_t last = std::min<int64_t>(i + weights.extent, line.length - 1);
    auto centreWeight = static_cast<uint32_t>(weights.centreWeight);
    uint32_t sum = 0;
    for (int64_t t = first; t <= last; ++t) {
      if (t == i) continue;
      const int32_t value = line.at(t);
      const auto weight =
          static_cast<uint32_t>(std::max(0, weights.threshold - std::abs(centre - value)));
      centreWeight -= weight;
      sum += weight * static_cast<uint32_t>(value);
    }
    sum += centreWeight * static_cast<uint32_t>(centre);
    line.out[i * line.outStride] = roundedTopByte(sum * static_cast<uint32_t>(weights.reciprocal));
  }
}

void plainBoxLine(const Line& line, const PlainBoxWeights& weights) {
  const int64_t reach = weights.reach;
  uint32_t sum = 0;
  for (int64_t t = 0; t <= std::min(reach, line.length - 1); ++t) sum += line.at(t);
  for (int64_t i = 0; i < line.length; ++i) {
    const uint32_t entering = line.tap(i + reach + 1);
    const uint32_t edges = line.tap(i - reach - 1) + entering;
    const uint32_t edgePart = (edges * static_cast<uint32_t>(weights.edge) + (1u << 14)) >> 15;
    line.out[i * line.outStride] = roundedTopByte(weights.reciprocal * (sum + edgePart));
    sum += entering - line.tap(i - reach);
  }
}

template <class Weights, void blurLine(const Line&, const Weights&)>
void blurLinesScalar(const LinePass& bundle, const Weights& weights) {
  for (int64_t line = 0; line < bundle.lines; ++line) {
    for (int c = 0; c < bundle.bytesPerPixel; ++c) {
      blurLine(
          {bundle.in + line * bundle.inStride + c, bundle.out + line * bundle.bytesPerPixel + c,
           bundle.bytesPerPixel, bundle.outStride, bundle.length},
          weights);
    }
  }
}

// The image along its rows into the work rows, and back along its columns.
template <class Kernel, class Weights>
void blurBothWays(const LinePass& forth, const LinePass& back, Kernel kernel,
                  const Weights& weights) {
  for (const LinePass& pass : {forth, back}) {
    forEachBundle(pass, [&](const LinePass& bundle) { kernel(bundle, weights); });
  }
}

void blurSelectively(const LinePass& forth, const LinePass& back, int32_t threshold, float radius) {
  const double rounded = double{radius} + 0.5;
  if (rounded >= double{integerLimit}) return;
  const auto extent = static_cast<int32_t>(rounded);
  const int64_t centreWeight = int64_t{2} * extent * threshold;
  if (extent <= 0 || centreWeight > INT32_MAX) return;
  const auto reciprocal =
      static_cast<int32_t>(reciprocalUnit / static_cast<double>(centreWeight) + 0.5);
  const SelectiveLineWeights weights = {extent, threshold, static_cast<int32_t>(centreWeight),
                                        reciprocal};
  const ClassicBlurKernels kernels = classicBlurKernels(instructionSet());
  const bool isNear = extent <= nearExtent && threshold <= nearThreshold;
  blurBothWays(forth, back, isNear ? kernels.selectiveNear : kernels.selective, weights);
}

void blurPlainly(const LinePass& forth, const LinePass& back, float radius) {
  if (radius >= integerLimit) return;
  const double whole = std::floor(double{radius});
  const auto reciprocal = static_cast<uint32_t>(reciprocalUnit / (2 * double{radius} + 1) + 0.5);
  const auto edge = static_cast<int32_t>((double{radius} - whole) * 32768 + 0.5);
  // A fraction that rounds to 0 or to 1 makes the outermost taps full ones.
  const bool hasEdge = edge > 0 && edge < 32768;
  const auto reach = static_cast<int64_t>(std::ceil(double{radius})) - (hasEdge ? 1 : 0);
  const PlainBoxWeights weights = {reach, reciprocal, hasEdge ? edge : 0};
  blurBothWays(forth, back, classicBlurKernels(instructionSet()).plainBox, weights);
}

// True when `count` rows of `rowBytes` bytes lie apart and in the address space.
bool isUsable(const RawRows& rows, int64_t rowBytes, int64_t count) {
  if (count > 1 && rows.stride < rowBytes) return false;
  return isAddressable(rows.bits, std::max<int64_t>(rows.stride, rowBytes), count);
}

}  // namespace

ClassicBlurKernels classicBlurKernels(InstructionSet level) {
  constexpr auto selective = blurLinesScalar<SelectiveLineWeights, selectiveLine>;
  ClassicBlurKernels kernels{selective, selective, blurLinesScalar<PlainBoxWeights, plainBoxLine>};
  if (level >= InstructionSet::avx2) addClassicBlurAvx2(kernels);
  return kernels;
}

void blurClassic(const RawRows& image, const RawRows& work, uint32_t width, uint32_t height,
                 int32_t threshold, float radius, int32_t components) {
  if (!(radius > 0.0f) || threshold < 1) return;
  if (image.bits == nullptr || work.bits == nullptr) return;
  if (components != 1 && components != 3) return;
  if (!isUsable(image, int64_t{width} * components, height) ||
      !isUsable(work, int64_t{height} * components, width)) {
    return;
  }
  const LinePass forth = {image.bits, image.stride, work.bits, work.stride,
                          width,      height,       components};
  const LinePass back = {work.bits, work.stride, image.bits, image.stride,
                         height,    width,       components};
  if (threshold == plainBoxThreshold) {
    blurPlainly(forth, back, radius);
  } else {
    blurSelectively(forth, back, threshold, radius);
  }
}

}  // namespace kvl
