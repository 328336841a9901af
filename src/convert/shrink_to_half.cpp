#include "convert/shrink_to_half.h"

#include <algorithm>

#include "convert/halving_kernels.h"
#include "convert/media_subtype.h"
#include "core/bitmap.h"
#include "core/parallel.h"
#include "core/pixel_memory.h"

namespace kvl {
namespace {

enum Flags : uint32_t { interlaced = 1, average = 2 };

constexpr uint8_t blackLuma = 0;
constexpr uint8_t noChroma = 127;

// Bytes that alternate from the start of a row.
struct Filler {
  uint8_t even;
  uint8_t odd;
};

// One plane, or a whole packed image.
struct HalvingPlan {
  const uint8_t* source;
  int64_t sourceStride;
  int64_t sourceBytes;  // from `source` to the end of the frame
  uint8_t* destination;
  int64_t destinationStride;
  int32_t destinationRows;
  int32_t rows;       // of the result
  int64_t outputs;    // a row
  int64_t unitBytes;  // of an output
  HalvingKernel kernel;
  Filler restOfRow;
  Filler restOfPlane;
  bool interlaced;
};

void fill(uint8_t* at, int64_t bytes, Filler filler) {
  if (bytes <= 0) return;
  if (filler.even == filler.odd) {
    FastFill(at, filler.even, static_cast<uint64_t>(bytes));
    return;
  }
  for (int64_t i = 0; i < bytes; ++i) at[i] = i % 2 == 0 ? filler.even : filler.odd;
}

// A row whose samples run past the end of the frame: there the frame's last unit goes on.
void halveAtTheEnd(const HalvingPlan& plan, int64_t a, int64_t b, uint8_t* out) {
  constexpr int64_t outputsAtOnce = 16;  // whole blocks of every kernel
  constexpr int64_t largestUnit = 2;
  const int64_t size = plan.unitBytes;
  uint8_t rowA[2 * outputsAtOnce * largestUnit], rowB[2 * outputsAtOnce * largestUnit];
  const auto unitAt = [&](int64_t at) {
    return plan.source + std::min(at, plan.sourceBytes - size);
  };
  for (int64_t i = 0; i < plan.outputs; i += outputsAtOnce) {
    const int64_t count = std::min(outputsAtOnce, plan.outputs - i);
    for (int64_t k = 0; k < 2 * count; ++k) {
      std::copy_n(unitAt(a + (2 * i + k) * size), size, rowA + k * size);
      std::copy_n(unitAt(b + (2 * i + k) * size), size, rowB + k * size);
    }
    plan.kernel(rowA, rowB, out + i * size, count);
  }
}

// Row `row` of the result from rows a and b of the source.
void halveRow(const HalvingPlan& plan, int64_t row, int64_t a, int64_t b) {
  uint8_t* out = plan.destination + row * plan.destinationStride;
  a *= plan.sourceStride;
  b *= plan.sourceStride;
  const int64_t needed = 2 * plan.outputs * plan.unitBytes;
  if (std::max(a, b) + needed <= plan.sourceBytes) {
    plan.kernel(plan.source + a, plan.source + b, out, plan.outputs);
  } else {
    halveAtTheEnd(plan, a, b, out);
  }
  const int64_t written = plan.outputs * plan.unitBytes;
  fill(out + written, plan.destinationStride - written, plan.restOfRow);
}

// How many claims the rows of the result make: of one row each, or of two, one of either field.
int32_t claims(const HalvingPlan& plan) {
  return plan.interlaced ? plan.rows / 2 : plan.rows;
}

void halveClaim(const HalvingPlan& plan, int64_t claim) {
  if (plan.interlaced) {
    halveRow(plan, 2 * claim, 4 * claim, 4 * claim + 2);
    halveRow(plan, 2 * claim + 1, 4 * claim + 1, 4 * claim + 3);
  } else {
    halveRow(plan, claim, 2 * claim, 2 * claim + 1);
  }
}

void fillRestOfPlane(const HalvingPlan& plan, int32_t firstRow) {
  for (int64_t row = firstRow; row < plan.destinationRows; ++row) {
    fill(plan.destination + row * plan.destinationStride, plan.destinationStride, plan.restOfPlane);
  }
}

void halveHere(const HalvingPlan& plan) {
  for (int32_t claim = 0; claim < claims(plan); ++claim) halveClaim(plan, claim);
  fillRestOfPlane(plan, plan.rows);
}

void halveInParallel(const HalvingPlan& plan) {
  parallelBands(claims(plan), [&](RowRange band) {
    for (int32_t claim = band.start; claim < band.end; ++claim) halveClaim(plan, claim);
  });
  fillRestOfPlane(plan, plan.rows);
}

// Where one plane lies in its frame.
struct Plane {
  int64_t offset;
  int64_t stride;
  int64_t rows;
};

HalvingPlan planePlan(const SourceFrame& source, int64_t sourceBytes, const Plane& from,
                      const DestinationFrame& destination, const Plane& to, int64_t outputs,
                      HalvingKernel kernel, uint8_t filler, uint32_t flags) {
  return {source.bits + from.offset,
          from.stride,
          sourceBytes - from.offset,
          destination.bits + to.offset,
          to.stride,
          static_cast<int32_t>(to.rows),
          static_cast<int32_t>(std::min(to.rows, from.rows / 2)),
          outputs,
          1,
          kernel,
          {filler, filler},
          {filler, filler},
          (flags & interlaced) != 0};
}

// The pairs have half of the luma's rows, rounded up, and so has their result. Where the source has
// an odd number of them the result can lack a row, for which the last one is paired with itself.
void halvePairs(HalvingPlan plan, int64_t sourceRows, int64_t lumaRows) {
  const auto wanted = static_cast<int32_t>((lumaRows + 1) / 2);
  plan.unitBytes = 2;
  plan.rows = std::min(plan.rows, wanted);
  for (int32_t claim = 0; claim < claims(plan); ++claim) halveClaim(plan, claim);
  if (plan.rows < wanted) halveRow(plan, plan.rows, sourceRows - 1, sourceRows - 1);
  fillRestOfPlane(plan, wanted);
}

int32_t halvePlanes(Subtype subtype, const SourceFrame& source, const DestinationFrame& destination,
                    uint32_t flags) {
  const PlanarLayout from = planarLayout(subtype, source.size);
  const PlanarLayout to = planarLayout(subtype, destination.size);
  if (!isAddressable(source.bits, from) || !isAddressable(destination.bits, to)) {
    return statusInvalidArgument;
  }
  const HalvingKernels kernels = halvingKernels(instructionSet());
  const HalvingKernel plane = (flags & average) != 0 ? kernels.average : kernels.sample;
  const int64_t width = destination.size.cx;
  const HalvingPlan luma = planePlan(source, from.bytes(), {0, from.lumaStride, from.lumaRows},
                                     destination, {0, to.lumaStride, to.lumaRows},
                                     std::min(width, to.lumaStride), plane, blackLuma, flags);
  halveHere(luma);
  for (int i = 0; i < from.chromaPlanes; ++i) {
    const Plane chromaFrom = {from.firstChroma() + i * from.chromaPlane(), from.chromaStride,
                              from.chromaRows};
    const Plane chromaTo = {to.firstChroma() + i * to.chromaPlane(), to.chromaStride,
                            to.chromaRows};
    if (subtype == Subtype::nv12) {
      halvePairs(planePlan(source, from.bytes(), chromaFrom, destination, chromaTo,
                           to.chromaStride / 2, kernels.pairs, noChroma, flags),
                 from.chromaRows, luma.rows);
    } else {
      halveHere(planePlan(source, from.bytes(), chromaFrom, destination, chromaTo,
                          std::min(width, to.chromaStride), plane, noChroma, flags));
    }
  }
  return statusOk;
}

// A packed layout: its kernel, and the pixels and bytes of one of its units.
struct PackedLayout {
  HalvingKernel kernel;
  int64_t unitBytes;
  int64_t unitPixels;
  Filler restOfRow;
  Filler restOfPlane;
};

int64_t strideOr(int32_t stride, int64_t packed) {
  return stride > 0 ? stride : packed;
}

int32_t halvePacked(Subtype subtype, const SourceFrame& source, const DestinationFrame& destination,
                    uint32_t flags) {
  const HalvingKernels kernels = halvingKernels(instructionSet());
  const auto packedStride = [subtype](int64_t width) {
    switch (subtype) {
      case Subtype::yuy2:
        return (2 * width + 3) & ~int64_t{3};
      case Subtype::rgb24:
        return (3 * (width + 1)) & ~int64_t{3};
      case Subtype::rgb32:
        return 4 * width;
      default:
        return (width + 3) & ~int64_t{3};
    }
  };
  const PackedLayout layout = [&]() -> PackedLayout {
    switch (subtype) {
      case Subtype::yuy2:
        return {kernels.yuy2, 4, 2, {0, 255}, {blackLuma, noChroma}};
      case Subtype::rgb24:
        return {kernels.rgb24, 3, 1, {0, 0}, {0, 0}};
      case Subtype::rgb32:
        return {kernels.rgb32, 4, 1, {0, 0}, {0, 0}};
      default:
        return {(flags & average) != 0 ? kernels.average : kernels.sample, 1, 1, {0, 0}, {0, 0}};
    }
  }();
  const int64_t sourceStride = strideOr(source.stride, packedStride(source.size.cx));
  const int64_t stride = strideOr(destination.stride, packedStride(destination.size.cx));
  if (!isAddressable(source.bits, sourceStride, source.size.cy) ||
      !isAddressable(destination.bits, stride, destination.size.cy)) {
    return statusInvalidArgument;
  }
  HalvingPlan plan = {source.bits,
                      sourceStride,
                      sourceStride * source.size.cy,
                      destination.bits,
                      stride,
                      destination.size.cy,
                      std::min(destination.size.cy, source.size.cy / 2),
                      std::min<int64_t>(destination.size.cx, stride),
                      layout.unitBytes,
                      layout.kernel,
                      layout.restOfRow,
                      layout.restOfPlane,
                      (flags & interlaced) != 0};
  if (subtype == Subtype::rgb8) {
    halveHere(plan);
    return statusOk;
  }
  const int64_t columns = std::min(destination.size.cx, source.size.cx / 2);
  plan.outputs = std::min({columns / layout.unitPixels, stride / layout.unitBytes,
                           sourceStride / (2 * layout.unitBytes)});
  halveInParallel(plan);
  return statusOk;
}

}  // namespace

int32_t shrinkToHalf(const GUID* subtype, const SourceFrame& source,
                     const DestinationFrame& destination, uint32_t flags) {
  if (source.bits == nullptr || destination.bits == nullptr || subtype == nullptr) {
    return statusInvalidArgument;
  }
  if (source.size.cx <= 0 || source.size.cy <= 0 || destination.size.cx <= 0 ||
      destination.size.cy <= 0) {
    return statusInvalidArgument;
  }
  const Subtype layout = subtypeOf(subtype);
  switch (layout) {
    case Subtype::yv12:
    case Subtype::yv16:
    case Subtype::yv24:
    case Subtype::nv12:
      return halvePlanes(layout, source, destination, flags);
    case Subtype::yuy2:
    case Subtype::rgb24:
    case Subtype::rgb32:
    case Subtype::rgb8:
      return halvePacked(layout, source, destination, flags);
    default:
      return statusNotImplemented;
  }
}

}  // namespace kvl
