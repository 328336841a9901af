#include "correlation/grey_conversion.h"

#include <cstring>

#include "core/bitmap.h"
#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "correlation/addressable_rows.h"
#include "correlation/grey_kernels.h"

namespace kvl {
namespace {

constexpr ptrdiff_t bytesPerPixel = 3;
constexpr uint32_t modeBlank = 1, modeRepeat = 2, modeInterpolate = 4;

void greyRowScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i, in += bytesPerPixel) {
    out[i] = static_cast<uint8_t>((77 * in[0] + 151 * in[1] + 28 * in[2]) >> 8);
  }
}

struct GreyPlan {
  const uint8_t* source;
  ptrdiff_t sourceStride;
  uint8_t* destination;
  ptrdiff_t width;
  int32_t height;
  GreyKernel greyRow;
  // 0 .. 2 where one byte of each pixel is taken as it is, or negative.
  int component;
  // 0 where no rows are replaced.
  uint32_t repairMode;
  bool replacesOddDistance;

  uint8_t* row(int32_t r) const { return destination + r * width; }

  // Rows at an odd distance from the last, or at an even one. The first two stay.
  bool isReplaced(int32_t r) const {
    if (repairMode != modeBlank && repairMode != modeRepeat && repairMode != modeInterpolate) {
      return false;
    }
    return r >= 2 && ((height - r - 1) % 2 != 0) == replacesOddDistance;
  }
};

void convertRow(const GreyPlan& plan, int32_t r) {
  const uint8_t* in = plan.source + r * plan.sourceStride;
  uint8_t* out = plan.row(r);
  if (plan.component < 0) {
    plan.greyRow(in, out, plan.width);
    return;
  }
  in += plan.component;
  for (ptrdiff_t i = 0; i < plan.width; ++i) out[i] = in[bytesPerPixel * i];
}

void replaceRow(const GreyPlan& plan, int32_t r) {
  const auto bytes = static_cast<uint64_t>(plan.width);
  if (plan.repairMode == modeBlank) {
    FastFill(plan.row(r), 0, bytes);
  } else {
    FastCopy(plan.row(r), plan.row(r - 1), bytes);
  }
}

void averageWithNext(const GreyPlan& plan, int32_t r) {
  uint8_t* row = plan.row(r);
  const uint8_t* next = plan.row(r + 1);
  for (ptrdiff_t i = 0; i < plan.width; ++i) row[i] = static_cast<uint8_t>((row[i] + next[i]) / 2);
}

// A row and the replaced one after it, if there is one, are done together: the copy then finds the
// converted row in place.
void convertPixels(const GreyPlan& plan) {
  parallelStatic(plan.height, [&](int32_t r) {
    if (plan.isReplaced(r)) return;
    convertRow(plan, r);
    if (r + 1 < plan.height && plan.isReplaced(r + 1)) replaceRow(plan, r + 1);
  });
  if (plan.repairMode != modeInterpolate) return;
  const bool lastIsOdd = (plan.height - 1) % 2 != 0;
  const int32_t first = lastIsOdd != plan.replacesOddDistance ? 1 : 0;
  parallelStatic((plan.height - first) / 2,
                 [&](int32_t pair) { averageWithNext(plan, first + 2 * pair); });
}

// Packed 16-bit pixels whose first byte is the brightness. Replaced rows take nothing from the
// source, which holds the kept field only.
void convertPairs(const GreyPlan& plan) {
  const uint8_t* in = plan.source;
  for (int32_t r = 0; r < plan.height; ++r) {
    const bool odd = r % 2 != 0;
    if (odd && (plan.repairMode == modeBlank || plan.repairMode == modeRepeat)) {
      replaceRow(plan, r);
      continue;
    }
    uint8_t* out = plan.row(r);
    for (ptrdiff_t i = 0; i < plan.width; ++i) out[i] = in[2 * i];
    in += 2 * plan.width;
  }
}

}  // namespace

GreyKernel greyKernel(InstructionSet level) {
  if (level >= InstructionSet::avx2) return greyRowAvx2;
  if (level >= InstructionSet::ssse3) return greyRowSsse3;
  return greyRowScalar;
}

void convertFrameToGray(const uint8_t* source, int32_t sourceStride, uint8_t* destination,
                        int32_t destinationStride, int32_t width, int32_t height) {
  if (source == nullptr || destination == nullptr || width < 1 || height < 1 ||
      !areRowsAddressable(source, sourceStride, height) ||
      !areRowsAddressable(destination, destinationStride, height)) {
    return;
  }
  const GreyKernel greyRow = greyKernel(instructionSet());
  parallelStatic(height, [&](int32_t r) {
    greyRow(source + ptrdiff_t{r} * sourceStride, destination + ptrdiff_t{r} * destinationStride,
            width);
  });
}

void convertToGray(const BITMAPINFOHEADER* source, uint8_t* destination,
                   const CorrelationOptions* options) {
  if (source == nullptr || destination == nullptr || options == nullptr) return;
  const int32_t width = options->width;
  const int32_t height = options->height;
  if (width < 1 || height < 1) return;
  // A packed bitmap may lie anywhere in a file's bytes.
  uint16_t pixelOffset = 0;
  std::memcpy(&pixelOffset, source, sizeof pixelOffset);
  const bool pairs = options->source16Bit != 0;
  const int64_t stride = pairs ? 2 * int64_t{width} : rgb24Stride(width);
  const uint8_t* pixels = reinterpret_cast<const uint8_t*>(source) + pixelOffset;
  if (stride == 0 || !isAddressable(pixels, stride, height) ||
      !isAddressable(destination, width, height)) {
    return;
  }
  const GreyPlan plan{
      pixels,
      stride,
      destination,
      width,
      height,
      greyKernel(instructionSet()),
      options->channel >= 1 && options->channel <= 3 ? static_cast<int>(options->channel) - 1 : -1,
      options->fieldRepair != 0 ? options->fieldRepairMode : 0,
      options->fieldParity != 0};
  pairs ? convertPairs(plan) : convertPixels(plan);
}

}  // namespace kvl
