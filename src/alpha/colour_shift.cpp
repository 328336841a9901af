#include "alpha/colour_shift.h"

#include <algorithm>
#include <cmath>

#include "alpha/colour_shift_kernels.h"
#include "alpha/rows.h"
#include "alpha/wrapping.h"
#include "core/bitmap.h"

namespace kvl {
namespace {

constexpr int32_t blockPixels = 16;
constexpr int32_t bytesPerPixel = 3;

// Luminance weights in 1/65536.
constexpr int32_t weightRed = 19595, weightGreen = 38470, weightBlue = 7471;

int32_t luminance(int32_t red, int32_t green, int32_t blue) {
  return wrap(int64_t{weightRed} * red + int64_t{weightGreen} * green + int64_t{weightBlue} * blue);
}

struct ShiftTable {
  int32_t shifted[256];
};

ShiftTable shiftTable(float amount) {
  ShiftTable table;
  const int32_t k = truncateToInt(255 - std::abs(amount) * 220);
  const int32_t bias = amount > 0 ? wrap(int64_t{255} - k) : 0;
  for (int32_t i = 0; i < 256; ++i) {
    const int32_t shifted = wrap(int64_t{wrappingProduct(i, k) / 256} + bias);
    table.shifted[i] = amount != 0 ? shifted : i;
  }
  return table;
}

struct Plan {
  int32_t width;
  int64_t stride;
  ColourShiftKernels kernels;
  ColourShiftFactors factors;
  // In the order of the bytes of a pixel.
  ShiftTable tables[bytesPerPixel];
};

uint8_t toByte(int32_t value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// Where the ratio is infinite or no number, so is the product or it is beyond any integer: 0.
uint8_t scaled(int32_t value, float ratio) {
  return toByte(truncateToInt(static_cast<float>(value) * ratio));
}

void shiftPixel(const Plan& plan, uint8_t* pixel) {
  const int32_t before = luminance(pixel[2], pixel[1], pixel[0]);
  const int32_t blue = plan.tables[0].shifted[pixel[0]];
  const int32_t green = plan.tables[1].shifted[pixel[1]];
  const int32_t red = plan.tables[2].shifted[pixel[2]];
  const int32_t after = luminance(red, green, blue);
  if (plan.factors.preserveByRatio) {
    const float ratio = static_cast<float>(before) / static_cast<float>(after);
    pixel[0] = scaled(blue, ratio);
    pixel[1] = scaled(green, ratio);
    pixel[2] = scaled(red, ratio);
    return;
  }
  const int32_t difference = wrap(int64_t{before} - after) >> 16;
  const int32_t newBlue = wrap(int64_t{blue} + difference);
  const int32_t newRed = wrap(int64_t{red} + difference);
  const int32_t rest = wrap(before - int64_t{weightBlue} * newBlue - int64_t{weightRed} * newRed);
  pixel[0] = toByte(newBlue);
  pixel[1] = toByte(rest / weightGreen);
  pixel[2] = toByte(newRed);
}

void shiftRow(const Plan& plan, uint8_t* row) {
  const int32_t blocks = plan.kernels.blocks != nullptr ? plan.width / blockPixels : 0;
  if (blocks > 0) plan.kernels.blocks(row, blocks, plan.factors);
  for (int32_t x = blocks * blockPixels; x < plan.width; ++x) {
    shiftPixel(plan, row + int64_t{x} * bytesPerPixel);
  }
}

}  // namespace

ColourShiftKernels colourShiftKernels(InstructionSet level) {
  ColourShiftKernels kernels{nullptr};
  if (level >= InstructionSet::ssse3) addColourShiftSsse3(kernels);
  if (level >= InstructionSet::avx2) addColourShiftAvx2(kernels);
  return kernels;
}

void colourShift(const BITMAPINFOHEADER* header, uint8_t* bits, float red, float green, float blue,
                 bool preserveByRatio) {
  if (header == nullptr || bits == nullptr || (red == 0 && green == 0 && blue == 0)) return;
  const auto stride = static_cast<int64_t>(CalcDibStride(header));
  const int64_t rowBytes = int64_t{header->biWidth} * bytesPerPixel;
  const int32_t height = header->biHeight;
  if (stride == 0 || height <= 0 || !rowsAreAddressable(bits, stride, rowBytes, height)) return;

  Plan plan{header->biWidth, stride, colourShiftKernels(instructionSet()), {}, {}};
  plan.factors.preserveByRatio = preserveByRatio;
  const float amounts[bytesPerPixel] = {blue, green, red};
  for (int c = 0; c < bytesPerPixel; ++c) {
    const float scale = 1 - std::abs(amounts[c]) * 0.8627451f;
    plan.factors.scale[c] = scale;
    plan.factors.offset[c] = amounts[c] > 0 ? (1 - scale) * 255 : 0;
    plan.tables[c] = shiftTable(amounts[c]);
  }
  const auto body = [&](int32_t y) { shiftRow(plan, bits + y * plan.stride); };
  if (rowsAreApart(stride, rowBytes)) {
    parallelStatic(height, body);
  } else {
    sequentialRows(height, body);
  }
}

}  // namespace kvl
