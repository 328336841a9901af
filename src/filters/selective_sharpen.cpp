#include "filters/selective_sharpen.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/bitmap.h"
#include "core/parallel.h"
#include "filters/selective_sharpen_kernels.h"

namespace kvl {
namespace {

constexpr int bytesPerPixel = 3;

struct SharpenPlan {
  const uint8_t* source;
  uint8_t* destination;
  ptrdiff_t stride;
  int32_t width;
  int32_t height;
  SharpenGain gain;
};

// Conversion to a 32-bit integer towards zero. Saturates; not-a-number, which only an infinite gain
// brings about, gives 0. In 64 bits, so that sums of the results need no care.
int64_t truncate(double value) {
  if (std::isnan(value)) return 0;
  return static_cast<int64_t>(std::clamp<double>(value, INT32_MIN, INT32_MAX));
}

uint8_t clampToByte(int64_t value) {
  return static_cast<uint8_t>(std::clamp<int64_t>(value, 0, 255));
}

// Pixels of row y that have `left` and `right` pixels beside them.
SharpenNeighbours neighboursAt(const SharpenPlan& plan, int32_t y, int left, int right) {
  SharpenNeighbours neighbours{};
  for (int dy = y > 0 ? -1 : 0; dy <= (y < plan.height - 1 ? 1 : 0); ++dy) {
    for (int dx = -left; dx <= right; ++dx) {
      if (dx == 0 && dy == 0) continue;
      neighbours.offsets[neighbours.count++] = dy * plan.stride + ptrdiff_t{dx} * bytesPerPixel;
    }
  }
  return neighbours;
}

void sharpenRow(const SharpenPlan& plan, SharpenKernel kernel, int32_t y) {
  const uint8_t* in = plan.source + y * plan.stride;
  uint8_t* out = plan.destination + y * plan.stride;
  const auto sharpen = [&](int32_t first, int32_t last, int left, int right) {
    const ptrdiff_t at = ptrdiff_t{first} * bytesPerPixel;
    kernel(in + at, out + at, ptrdiff_t{last - first} * bytesPerPixel,
           neighboursAt(plan, y, left, right), plan.gain);
  };
  const int32_t last = plan.width - 1;
  if (last == 0) {
    sharpen(0, 1, 0, 0);
    return;
  }
  sharpen(0, 1, 0, 1);
  if (last > 1) sharpen(1, last, 1, 1);
  sharpen(last, last + 1, 1, 0);
}

int32_t contrastOf(const uint8_t* in, const SharpenNeighbours& neighbours) {
  int32_t contrast = 0;
  for (int i = 0; i < neighbours.count; ++i) {
    contrast += std::abs(in[0] - in[neighbours.offsets[i]]);
  }
  return contrast;
}

// Fractions p / n with n of at most 255 lie at least 1 / (255 * 254) apart, so that a multiple of
// 1 / 65536 lies between any two neighbours: a fraction is found unless rounding of the products
// has made them inconsistent.
SharpenMultiplier multiplierOf(double share) {
  if (!(share < 256.0)) return {};
  const auto whole = static_cast<int32_t>(share);
  int32_t lowest = 0;
  int32_t highest = 65535;
  for (int32_t n = 1; n <= 255; ++n) {
    const int32_t part = static_cast<int32_t>(n * share) - n * whole;
    lowest = std::max(lowest, (part * 65536 + n - 1) / n);
    highest = std::min(highest, ((part + 1) * 65536 - 1) / n);
  }
  return {static_cast<uint16_t>(whole), static_cast<uint16_t>(lowest), lowest <= highest};
}

// False when the call must change nothing.
bool makePlan(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
              const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
              int32_t threshold, float gain, SharpenPlan& plan) {
  if (!(gain >= 1.0f) || threshold < 1) return false;
  if (sourceHeader == nullptr || destinationHeader == nullptr || sourceBits == nullptr ||
      destinationBits == nullptr) {
    return false;
  }
  if (sourceHeader->biWidth != destinationHeader->biWidth) return false;
  if (sourceHeader->biHeight != destinationHeader->biHeight) return false;

  const int32_t height = sourceHeader->biHeight;
  const ptrdiff_t stride = rgb24Stride(sourceHeader->biWidth);
  if (stride == 0 || height <= 0 || !isAddressable(sourceBits, stride, height) ||
      !isAddressable(destinationBits, stride, height)) {
    return false;
  }
  plan = {sourceBits, destinationBits, stride, sourceHeader->biWidth, height, {}};
  plan.gain.threshold = threshold;
  plan.gain.contrastLimit = static_cast<int32_t>(8 * static_cast<uint32_t>(threshold));
  plan.gain.gain = gain;
  for (int n = 0; n <= maxSharpenNeighbours; ++n) {
    plan.gain.share[n] = (gain - 1.0) / std::max(n, 1);
  }
  for (const int n : {5, 8}) plan.gain.multiplier[n] = multiplierOf(plan.gain.share[n]);
  return true;
}

}  // namespace

void simpleSharpenScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                         const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  const double k = -gain.share[neighbours.count];
  for (; count > 0; --count, ++in, ++out) {
    if (contrastOf(in, neighbours) < gain.contrastLimit) {
      *out = *in;
      continue;
    }
    int64_t value = truncate(static_cast<float>(*in) * gain.gain);
    for (int i = 0; i < neighbours.count; ++i) {
      value += truncate(in[neighbours.offsets[i]] * k);
    }
    *out = clampToByte(value);
  }
}

void modifiedSimpleSharpenScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                                 const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  const double q = gain.share[neighbours.count];
  for (; count > 0; --count, ++in, ++out) {
    if (contrastOf(in, neighbours) < gain.contrastLimit) {
      *out = *in;
      continue;
    }
    int32_t sum = 0;
    for (int i = 0; i < neighbours.count; ++i) sum += in[neighbours.offsets[i]];
    *out = clampToByte(truncate(static_cast<float>(*in) * gain.gain) + truncate(sum * -q));
  }
}

void smoothSharpenScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count,
                         const SharpenNeighbours& neighbours, const SharpenGain& gain) {
  for (; count > 0; --count, ++in, ++out) {
    int32_t excess[maxSharpenNeighbours];
    int32_t excessSum = 0;
    for (int i = 0; i < neighbours.count; ++i) {
      const int32_t difference = std::abs(in[0] - in[neighbours.offsets[i]]);
      excess[i] = std::max(0, difference - gain.threshold);
      excessSum += excess[i];
    }
    const float ratio = static_cast<float>(excessSum) / static_cast<float>(gain.contrastLimit);
    // In this order a ratio of 0 / 0 counts as 1, and an infinite gain without contrast as 1.
    const float f = std::max(1.0f, gain.gain * std::min(1.0f, ratio));
    int64_t value = truncate(static_cast<double>(*in) * f);
    if (excessSum > 0) {
      for (int i = 0; i < neighbours.count; ++i) {
        const double weight = (1.0 - f) * excess[i] / excessSum;
        value += truncate(in[neighbours.offsets[i]] * weight);
      }
    }
    *out = clampToByte(value);
  }
}

SharpenKernels sharpenKernels(InstructionSet level) {
  SharpenKernels kernels{simpleSharpenScalar, modifiedSimpleSharpenScalar, smoothSharpenScalar};
  if (level >= InstructionSet::avx2) {
    addSimpleSharpenAvx2(kernels);
    addSmoothSharpenAvx2(kernels);
  }
  return kernels;
}

void selectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                            const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                            int32_t threshold, float gain) {
  SharpenPlan plan;
  if (!makePlan(sourceHeader, sourceBits, destinationHeader, destinationBits, threshold, gain,
                plan)) {
    return;
  }
  const SharpenKernel kernel = sharpenKernels(instructionSet()).simple;
  parallelStatic(plan.height, [&](int32_t y) { sharpenRow(plan, kernel, y); });
}

void modifiedSelectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                    const BITMAPINFOHEADER* destinationHeader,
                                    uint8_t* destinationBits, int32_t threshold, float gain) {
  SharpenPlan plan;
  if (!makePlan(sourceHeader, sourceBits, destinationHeader, destinationBits, threshold, gain,
                plan)) {
    return;
  }
  const SharpenKernel kernel = sharpenKernels(instructionSet()).modifiedSimple;
  parallelRowBlocks(plan.height, [&](int32_t y) { sharpenRow(plan, kernel, y); });
}

void selectiveSharpen(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                      const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                      int32_t threshold, float gain) {
  SharpenPlan plan;
  if (!makePlan(sourceHeader, sourceBits, destinationHeader, destinationBits, threshold, gain,
                plan)) {
    return;
  }
  const SharpenKernel kernel = sharpenKernels(instructionSet()).smooth;
  parallelStatic(plan.height, [&](int32_t y) { sharpenRow(plan, kernel, y); });
}

}  // namespace kvl
