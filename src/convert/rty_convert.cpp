#include "convert/rty_convert.h"

#include <omp.h>

#include <cstring>

#include "convert/rgb_blocks.h"
#include "convert/target_frame.h"
#include "core/bitmap.h"
#include "core/parallel.h"

namespace kvl {
namespace {

constexpr int64_t bytesPerPixel = 3;

constexpr uint32_t interlacedFlag = 1;
constexpr uint32_t bottomUpFlag = 8;

enum Mode : uint32_t { box420 = 0, even422 = 1, full444 = 2, vertical420 = 3 };

struct Plane {
  uint8_t* top;
  int64_t stride;
};

struct ScratchRows {
  uint8_t* u;
  uint8_t* v;
};

struct RtyPlan {
  RgbToYuv colours;
  RgbBlocks blocks;
  int64_t width;
  int64_t height;
  const uint8_t* source;  // the first row
  int64_t rowStep;
  int64_t storedStride;
  Plane y, u, v;
  uint8_t* scratchA;
  uint8_t* scratchB;
  int64_t scratchRowSize;
  bool interlaced;

  int64_t chromaWidth() const { return (width + 1) / 2; }
  int64_t pairsOfRows() const { return ((height + 2) >> 2) + (height >> 2); }
  ScratchRows sliceOf(uint8_t* scratch, int thread) const {
    uint8_t* slice = scratch + int64_t{2} * thread * scratchRowSize;
    return {slice, slice + scratchRowSize};
  }
};

void ConvertRgbRowToPlanes(const RtyPlan& plan, const uint8_t* in, uint8_t* y, uint8_t* u,
                           uint8_t* v) {
  const RgbToYuv& c = plan.colours;
  int64_t x = 0;
  if (plan.blocks.planes != nullptr) {
    plan.blocks.planes(y, u, v, in, plan.width / pixelsPerBlock, c);
    x = plan.width / pixelsPerBlock * pixelsPerBlock;
  }
  for (; x < plan.width; ++x) {
    const uint8_t* pixel = in + x * bytesPerPixel;
    y[x] = static_cast<uint8_t>(addWrapping(lumaOf(c, pixel), c.lumaOffset));
    u[x] = static_cast<uint8_t>(addWrapping(chromaOf(c, c.u, pixel), c.uOffset));
    v[x] = static_cast<uint8_t>(addWrapping(chromaOf(c, c.v, pixel), c.vOffset));
  }
}

// How many of a row's chroma samples come from whole blocks inside the row of twice as many.
int64_t blockedColumns(const RtyPlan& plan) {
  return plan.width / 2 / pixelsPerBlock * pixelsPerBlock;
}

// Means of two rows: of 2 x 2 samples in the blocks, of the even columns alone after them.
void AverageChroma2x2(const RtyPlan& plan, uint8_t* out, const uint8_t* a, const uint8_t* b) {
  const int64_t count = plan.chromaWidth();
  int64_t i = 0;
  if (plan.blocks.average2x2 != nullptr) {
    i = count / pixelsPerBlock * pixelsPerBlock;
    int64_t whole = i;
    const bool lacksLast = 2 * i > plan.scratchRowSize;
    if (lacksLast) whole -= pixelsPerBlock;
    plan.blocks.average2x2(out, a, b, whole / pixelsPerBlock);
    if (lacksLast) {
      uint8_t last[2][2 * pixelsPerBlock];
      const uint8_t* const rows[] = {a, b};
      for (int r = 0; r < 2; ++r) {
        std::memcpy(last[r], rows[r] + 2 * whole, 2 * pixelsPerBlock - 1);
        last[r][2 * pixelsPerBlock - 1] = last[r][2 * pixelsPerBlock - 2];
      }
      plan.blocks.average2x2(out + whole, last[0], last[1], 1);
    }
  }
  for (; i < count; ++i) out[i] = static_cast<uint8_t>((2 * b[2 * i] + 2 * a[2 * i] + 2) >> 2);
}

void averageEvenColumns(const RtyPlan& plan, uint8_t* out, const uint8_t* a, const uint8_t* b) {
  int64_t i = 0;
  if (plan.blocks.averageEven != nullptr) {
    i = blockedColumns(plan);
    plan.blocks.averageEven(out, a, b, i / pixelsPerBlock);
  }
  for (; i < plan.chromaWidth(); ++i) {
    out[i] = static_cast<uint8_t>((b[2 * i] + 2 + (b[2 * i] + 2 * a[2 * i])) >> 2);
  }
}

void takeEvenColumns(const RtyPlan& plan, uint8_t* out, const uint8_t* in) {
  int64_t i = 0;
  if (plan.blocks.evenColumns != nullptr) {
    i = blockedColumns(plan);
    plan.blocks.evenColumns(out, in, i / pixelsPerBlock);
  }
  for (; i < plan.chromaWidth(); ++i) out[i] = in[2 * i];
}

using AverageRows = void (*)(const RtyPlan& plan, uint8_t* out, const uint8_t* a, const uint8_t* b);

// Pair k, with row k of the chroma, is of the rows 2k and 2k + 1; of a source in two fields it is of
// the field k % 2.
void convertPairs(const RtyPlan& plan, AverageRows average) {
  const int64_t pairs = plan.pairsOfRows();
  const int64_t partner = plan.interlaced ? 2 : 1;
  // The last pair of the first field then has one row.
  const bool lacksLast = plan.interlaced && plan.height % 4 == 2;
  parallelBands(static_cast<int32_t>(pairs), [&](RowRange band) {
    const int thread = omp_get_thread_num();
    const ScratchRows a = plan.sliceOf(plan.scratchA, thread);
    const ScratchRows b = plan.sliceOf(plan.scratchB, thread);
    for (int64_t pair = band.start; pair < band.end; ++pair) {
      const int64_t four = pair / 2, first = pair % 2 * (plan.interlaced ? 1 : 2);
      // From four rows to the next the source moves by the stored stride, whatever their order.
      const uint8_t* in = plan.source + first * plan.rowStep + four * 4 * plan.storedStride;
      uint8_t* y = plan.y.top + (4 * four + first) * plan.y.stride;
      ConvertRgbRowToPlanes(plan, in, y, a.u, a.v);
      const bool single = lacksLast && pair == pairs - 1;
      if (!single) {
        ConvertRgbRowToPlanes(plan, in + partner * plan.rowStep, y + partner * plan.y.stride, b.u,
                              b.v);
      }
      average(plan, plan.u.top + pair * plan.u.stride, a.u, single ? a.u : b.u);
      average(plan, plan.v.top + pair * plan.v.stride, a.v, single ? a.v : b.v);
    }
  });
}

void convertRows444(const RtyPlan& plan) {
  for (int64_t r = 0; r < plan.height; ++r) {
    ConvertRgbRowToPlanes(plan, plan.source + r * plan.rowStep, plan.y.top + r * plan.y.stride,
                          plan.u.top + r * plan.u.stride, plan.v.top + r * plan.v.stride);
  }
}

void convertRows422(const RtyPlan& plan) {
  const ScratchRows scratch = plan.sliceOf(plan.scratchA, 0);
  for (int64_t r = 0; r < plan.height; ++r) {
    ConvertRgbRowToPlanes(plan, plan.source + r * plan.rowStep, plan.y.top + r * plan.y.stride,
                          scratch.u, scratch.v);
    takeEvenColumns(plan, plan.u.top + r * plan.u.stride, scratch.u);
    takeEvenColumns(plan, plan.v.top + r * plan.v.stride, scratch.v);
  }
}

bool holdsRows(const Plane& plane, int64_t rowBytes, int64_t rows) {
  return (rows <= 1 || plane.stride >= rowBytes) && isAddressable(plane.top, plane.stride, rows) &&
         isAddressable(plane.top, rowBytes, 1);
}

bool isPossible(const RtyConvertRecord& record, const RtyPlan& plan, const uint8_t* source) {
  const bool subsampled = record.mode != full444;
  const bool halved = record.mode == box420 || record.mode == vertical420;
  const int64_t chromaWidth = subsampled ? plan.chromaWidth() : plan.width;
  const int64_t chromaRows = halved ? plan.pairsOfRows() : plan.height;
  if (plan.height > INT32_MAX || plan.width > INT32_MAX) return false;
  if (!holdsRows(plan.y, plan.width, plan.height) || !holdsRows(plan.u, chromaWidth, chromaRows) ||
      !holdsRows(plan.v, chromaWidth, chromaRows)) {
    return false;
  }
  // With pairs that start at the last row, the stored stride leads away from the others.
  const int64_t sourceRows =
      halved && (record.flags & bottomUpFlag) != 0 ? 2 * plan.height + 4 : plan.height;
  if (!areRowsAddressable(source, record.srcStride, sourceRows)) return false;
  if (!subsampled) return true;
  return plan.scratchA != nullptr && (!halved || plan.scratchB != nullptr) &&
         plan.scratchRowSize >= plan.width;
}

}  // namespace

int32_t rtyConvert(const RtyConvertRecord* record, const uint8_t* source, uint8_t* planes) {
  if (record == nullptr || record->height == 0) return 1;
  if (source == nullptr || planes == nullptr || record->mode > vertical420) return 0;
  const bool bottomUp = (record->flags & bottomUpFlag) != 0;
  RtyPlan plan{rgbToYuvOf(*record),
               rgbBlocks(instructionSet()),
               record->width,
               record->height,
               source,
               bottomUp ? -int64_t{record->srcStride} : record->srcStride,
               record->srcStride,
               {planes, record->yStride},
               {planes + record->uPlaneOffset, record->uStride},
               {planes + record->vPlaneOffset, record->vStride},
               record->scratchA,
               record->scratchB,
               record->scratchRowSize,
               (record->flags & interlacedFlag) != 0};
  if (!isPossible(*record, plan, source)) return 0;
  if (bottomUp) plan.source += (plan.height - 1) * record->srcStride;

  switch (record->mode) {
    case even422:
      convertRows422(plan);
      break;
    case full444:
      convertRows444(plan);
      break;
    default:
      convertPairs(plan, record->mode == box420 ? AverageChroma2x2 : averageEvenColumns);
  }
  return 0;
}

}  // namespace kvl
