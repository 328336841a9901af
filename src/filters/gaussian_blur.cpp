#include "filters/gaussian_blur.h"

#include <algorithm>

#include "core/bitmap.h"
#include "core/debug_output.h"
#include "core/parallel.h"
#include "filters/gaussian_blur_kernels.h"

namespace kvl {
namespace {

constexpr int maxRadius = 8;
constexpr ptrdiff_t bytesPerPixel = 3;

// Row r - 1: centre weight and side weights of radius r in units of 1/65536. The rows do not all
// sum to 65536, and the results depend on that.
constexpr int32_t GaussianKernelTable[maxRadius][maxRadius + 1] = {
    {58394, 3571, 0, 0, 0, 0, 0, 0, 0},
    {26386, 16004, 3571, 0, 0, 0, 0, 0, 0},
    {15639, 13271, 8109, 3568, 0, 0, 0, 0, 0},
    {10684, 9976, 8121, 5763, 3566, 0, 0, 0, 0},
    {7887, 7641, 6946, 5927, 4745, 3566, 0, 0, 0},
    {6112, 6022, 5758, 5343, 4813, 4207, 3570, 0, 0},
    {4902, 4871, 4777, 4625, 4420, 4170, 3884, 3570, 0},
    {4031, 4023, 4001, 3963, 3911, 3845, 3765, 3674, 3571},
};

struct GaussianPlan {
  int32_t width;
  int32_t height;
  ptrdiff_t stride;
  int radius;
  const int32_t* weights;
  GaussianKernels kernels;
};

uint8_t narrow(int32_t sum) {
  return static_cast<uint8_t>(std::min(sum >> 16, 255));
}

void horizontalScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count, const int32_t* weights,
                      int radius) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    int32_t sum = weights[0] * in[i];
    for (int d = 1; d <= radius; ++d) {
      sum += weights[d] * (in[i - d * bytesPerPixel] + in[i + d * bytesPerPixel]);
    }
    out[i] = narrow(sum);
  }
}

void verticalScalar(const uint8_t* const* rows, uint8_t* out, ptrdiff_t count,
                    const int32_t* weights, int radius) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    int32_t sum = weights[0] * rows[radius][i];
    for (int d = 1; d <= radius; ++d) {
      sum += weights[d] * (rows[radius - d][i] + rows[radius + d][i]);
    }
    out[i] = narrow(sum);
  }
}

// Pixels at either end of a row that are filtered from a copy in which the ends are repeated: more
// than the taps need, so that they fill vectors too.
constexpr int32_t endPixels = 16;
static_assert(endPixels >= maxRadius);

// Pixels [first, last) of a row, at most twice endPixels, whose taps may hang over its ends.
void blurNearEnds(const GaussianPlan& plan, const uint8_t* in, uint8_t* out, int32_t first,
                  int32_t last) {
  uint8_t padded[(2 * endPixels + 2 * maxRadius) * bytesPerPixel];
  uint8_t* pixel = padded;
  for (int32_t x = first - plan.radius; x < last + plan.radius; ++x) {
    const uint8_t* source = in + std::clamp(x, 0, plan.width - 1) * bytesPerPixel;
    for (int c = 0; c < bytesPerPixel; ++c) *pixel++ = source[c];
  }
  plan.kernels.horizontal(padded + plan.radius * bytesPerPixel, out + first * bytesPerPixel,
                          (last - first) * bytesPerPixel, plan.weights, plan.radius);
}

void blurRow(const GaussianPlan& plan, const uint8_t* in, uint8_t* out) {
  if (plan.width <= 2 * endPixels) {
    blurNearEnds(plan, in, out, 0, plan.width);
    return;
  }
  blurNearEnds(plan, in, out, 0, endPixels);
  plan.kernels.horizontal(in + endPixels * bytesPerPixel, out + endPixels * bytesPerPixel,
                          (plan.width - 2 * endPixels) * bytesPerPixel, plan.weights, plan.radius);
  blurNearEnds(plan, in, out, plan.width - endPixels, plan.width);
}

void blurColumnsOfRow(const GaussianPlan& plan, const uint8_t* bits, uint8_t* out, int32_t y) {
  const uint8_t* rows[2 * maxRadius + 1];
  for (int d = -plan.radius; d <= plan.radius; ++d) {
    rows[d + plan.radius] = bits + std::clamp(y + d, 0, plan.height - 1) * plan.stride;
  }
  plan.kernels.vertical(rows, out, ptrdiff_t{plan.width} * bytesPerPixel, plan.weights,
                        plan.radius);
}

}  // namespace

GaussianKernels gaussianKernels(InstructionSet level) {
  GaussianKernels kernels{horizontalScalar, verticalScalar};
  if (level >= InstructionSet::ssse3) addGaussianSsse3(kernels);
  if (level >= InstructionSet::avx2) addGaussianAvx2(kernels);
  return kernels;
}

void gaussianBlur(const BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                  const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  if (radius < 1) return;
  if (workHeader == nullptr || workBits == nullptr || imageHeader == nullptr ||
      imageBits == nullptr) {
    return;
  }
  if (workHeader->biWidth != imageHeader->biWidth) return;
  if (workHeader->biHeight != imageHeader->biHeight) return;
  DebugPrintf("KVL_GaussianBlur\n");

  const int32_t stride = rgb24Stride(workHeader->biWidth);
  const int32_t height = workHeader->biHeight;
  if (stride == 0 || height <= 0 || !isAddressable(workBits, stride, height) ||
      !isAddressable(imageBits, stride, height)) {
    return;
  }
  radius = std::min(radius, maxRadius);
  const GaussianPlan plan{workHeader->biWidth,
                          height,
                          stride,
                          radius,
                          GaussianKernelTable[radius - 1],
                          gaussianKernels(instructionSet())};
  parallelRowBlocks(height, [&](int32_t y) {
    blurRow(plan, imageBits + y * plan.stride, workBits + y * plan.stride);
  });
  parallelRowBlocks(
      height, [&](int32_t y) { blurColumnsOfRow(plan, workBits, imageBits + y * plan.stride, y); });
}

}  // namespace kvl
