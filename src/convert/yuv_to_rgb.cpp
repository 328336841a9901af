#include "convert/yuv_to_rgb.h"

#include <algorithm>

#include "convert/media_subtype.h"
#include "convert/yuv_to_rgb_kernels.h"
#include "core/bitmap.h"
#include "core/parallel.h"

namespace kvl {
namespace {

// Sums are in 1/64 and saturate at 16 bits.
int32_t saturate(int32_t sum) {
  return std::clamp<int32_t>(sum, INT16_MIN, INT16_MAX);
}

int32_t product(uint8_t sample, uint8_t centre, int16_t factor) {
  return (static_cast<int8_t>(sample - centre) * factor + 64) >> 7;
}

uint8_t toByte(int32_t sum) {
  return static_cast<uint8_t>(std::clamp(saturate(sum) >> 6, 0, 255));
}

// What a chroma sample adds to each component.
struct Colour {
  int32_t blue;
  int32_t green;
  int32_t red;
};

Colour colourOf(uint8_t u, uint8_t v, const YuvToRgbMatrix& m) {
  return {product(u, m.uCentre, m.blueFromU),
          saturate(product(u, m.uCentre, m.greenFromU) + product(v, m.vCentre, m.greenFromV)),
          product(v, m.vCentre, m.redFromV)};
}

void writePixel(uint8_t* out, uint8_t y, const Colour& colour, const YuvToRgbMatrix& m) {
  const int32_t luma = saturate(product(y, 128, m.lumaFactor) + m.lumaBias);
  out[0] = toByte(luma + colour.blue);
  out[1] = toByte(luma + colour.green);
  out[2] = toByte(luma + colour.red);
}

void convertFull(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& m) {
  for (ptrdiff_t x = 0; x < width; ++x, out += 3) {
    writePixel(out, row.y[x], colourOf(row.u[x], row.v[x], m), m);
  }
}

// Chroma sample i at u[i * chromaStep], v[i * chromaStep]; luma sample x at y[x * lumaStep].
template <ptrdiff_t lumaStep, ptrdiff_t chromaStep>
void convertShared(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& m) {
  for (ptrdiff_t x = 0; x < width; x += 2, out += 6) {
    const ptrdiff_t i = x / 2 * chromaStep;
    const Colour colour = colourOf(row.u[i], row.v[i], m);
    writePixel(out, row.y[x * lumaStep], colour, m);
    if (x + 1 < width) writePixel(out + 3, row.y[(x + 1) * lumaStep], colour, m);
  }
}

void convertNv12(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& m) {
  convertShared<1, 2>({row.y, row.u, row.u + 1}, out, width, m);
}

template <ptrdiff_t y, ptrdiff_t u, ptrdiff_t v>
void convertPacked(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& m) {
  convertShared<2, 4>({row.y + y, row.y + u, row.y + v}, out, width, m);
}

int16_t usable(int16_t factor) {
  return std::max<int16_t>(factor, -INT16_MAX);
}

YuvToRgbMatrix matrixOf(const ColorConversionParams& params) {
  return {usable(params.lumaFactor),
          usable(params.redFromV),
          usable(params.greenFromU),
          usable(params.greenFromV),
          usable(params.blueFromU),
          params.lumaBias,
          params.uCentre,
          params.vCentre};
}

// Chroma row of luma row y: y / rowsPerChroma.
struct YuvToRgbPlan {
  YuvRow first;
  int64_t lumaStride;
  int64_t chromaStride;
  int32_t rowsPerChroma;
  uint8_t* firstDestination;
  int64_t destinationStride;
  int32_t width;
  int32_t height;
  YuvToRgbMatrix matrix;
  YuvToRgbKernel kernel;
};

void convertRow(const YuvToRgbPlan& plan, int32_t y) {
  const int64_t chroma = y / plan.rowsPerChroma * plan.chromaStride;
  const YuvRow row = {plan.first.y + y * plan.lumaStride, plan.first.u + chroma,
                      plan.first.v + chroma};
  plan.kernel(row, plan.firstDestination + y * plan.destinationStride, plan.width, plan.matrix);
}

bool isPacked(Subtype subtype) {
  return subtype == Subtype::yuy2 || subtype == Subtype::uyvy || subtype == Subtype::yvyu;
}

YuvToRgbKernel kernelFor(Subtype subtype) {
  const YuvToRgbKernels kernels = yuvToRgbKernels(instructionSet());
  switch (subtype) {
    case Subtype::yuy2:
      return kernels.yuy2;
    case Subtype::uyvy:
      return kernels.uyvy;
    case Subtype::yvyu:
      return kernels.yvyu;
    case Subtype::nv12:
      return kernels.nv12;
    case Subtype::yv24:
      return kernels.full;
    case Subtype::yv12:
    case Subtype::iyuv:
    case Subtype::yv16:
      return kernels.half;
    default:
      return nullptr;
  }
}

// Fills the source's part of the plan; false when there can be no such frame.
bool planSource(YuvToRgbPlan& plan, Subtype subtype, const uint8_t* source, int32_t stride,
                SIZE size) {
  if (isPacked(subtype)) {
    const int64_t rowBytes = (int64_t{size.cx} + 1) / 2 * 4;
    plan.lumaStride = stride > 0 ? stride : rowBytes;
    plan.first = {source, source, source};  // of which the kernels use the first
    plan.rowsPerChroma = 1;
    return plan.lumaStride >= rowBytes && isAddressable(source, plan.lumaStride, size.cy);
  }
  const PlanarLayout layout = planarLayout(subtype, size);
  if (!isAddressable(source, layout)) return false;
  const uint8_t* chroma = source + layout.firstChroma();
  const uint8_t* second = subtype == Subtype::nv12 ? chroma : chroma + layout.chromaPlane();
  plan.first =
      subtype == Subtype::iyuv ? YuvRow{source, chroma, second} : YuvRow{source, second, chroma};
  plan.lumaStride = layout.lumaStride;
  plan.chromaStride = layout.chromaStride;
  plan.rowsPerChroma = layout.chromaRows == layout.lumaRows ? 1 : 2;
  return true;
}

bool planDestination(YuvToRgbPlan& plan, uint8_t* destination, int32_t stride, SIZE size) {
  const int64_t rowBytes = int64_t{3} * size.cx;
  const int64_t distance = stride == 0  ? (rowBytes + 3) & ~int64_t{3}
                           : stride < 0 ? -int64_t{stride}
                                        : stride;
  if (distance < rowBytes || !isAddressable(destination, distance, size.cy)) return false;
  const bool topDown = stride < 0;
  plan.firstDestination = topDown ? destination : destination + (size.cy - 1) * distance;
  plan.destinationStride = topDown ? distance : -distance;
  return true;
}

}  // namespace

const YuvToRgbKernels& scalarYuvToRgb() {
  static constexpr YuvToRgbKernels kernels = {convertFull,
                                              convertShared<1, 1>,
                                              convertNv12,
                                              convertPacked<0, 1, 3>,
                                              convertPacked<1, 0, 2>,
                                              convertPacked<0, 3, 1>};
  return kernels;
}

YuvToRgbKernels yuvToRgbKernels(InstructionSet level) {
  YuvToRgbKernels kernels = scalarYuvToRgb();
  if (level >= InstructionSet::ssse3) addYuvToRgbSsse3(kernels);
  if (level >= InstructionSet::avx2) addYuvToRgbAvx2(kernels);
  return kernels;
}

int32_t convertYuvToRgb24(const GUID* subtype, const uint8_t* source, int32_t sourceStride,
                          SIZE size, uint8_t* destination, int32_t destinationStride,
                          const ColorConversionParams* params) {
  if (subtype == nullptr || source == nullptr || destination == nullptr || params == nullptr ||
      size.cx <= 0 || size.cy <= 0) {
    return statusInvalidArgument;
  }
  const Subtype layout = subtypeOf(subtype);
  YuvToRgbPlan plan = {};
  plan.kernel = kernelFor(layout);
  if (plan.kernel == nullptr) return statusNotImplemented;
  if (params->lumaFactor == 0 || !planSource(plan, layout, source, sourceStride, size) ||
      !planDestination(plan, destination, destinationStride, size)) {
    return statusInvalidArgument;
  }
  plan.width = size.cx;
  plan.height = size.cy;
  plan.matrix = matrixOf(*params);
  parallelBands(plan.height, [&](RowRange band) {
    for (int32_t y = band.start; y < band.end; ++y) convertRow(plan, y);
  });
  return statusOk;
}

}  // namespace kvl
