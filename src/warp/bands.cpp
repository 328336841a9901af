#include "warp/bands.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "core/parallel.h"
#include "warp/rim.h"
#include "warp/visible_region.h"
#include "warp/warp_kernels.h"

namespace kvl {
namespace {

// Room around a band's cells, as CellGrid tells it.
constexpr int32_t columnsBefore = 1, columnsAround = 4, rowsAbove = 2, rowsAround = 4;

// Cells that a band had better not exceed, so that they stay in a core's second-level cache.
constexpr int64_t bandBytes = 768 << 10;
constexpr int64_t fewestRows = 8, mostRows = 64;

// How far beyond a band, in pixels, source pixels are looked for, and the rounding error of a
// projected coordinate that this forgives.
constexpr double margin = 1.0 / 64;
constexpr double largestError = 1.0 / 256;

Box centresOf(const RECT& samples) {
  return {samples.left + 0.5, samples.top + 0.5, samples.right - 0.5, samples.bottom - 0.5};
}

// The sign that w has everywhere in the box; 0 where it has none, or where coordinates within a
// destination of that size could be off by more than the largest error.
double reliableSignOfW(const Projection& p, const Box& box, double width, double height) {
  const double sign = signOfW(p, box);
  if (sign == 0) return 0;
  const double x = std::max(std::fabs(box.left), std::fabs(box.right));
  const double y = std::max(std::fabs(box.top), std::fabs(box.bottom));
  const auto magnitude = [&](double a, double b, double c) {
    return std::fabs(a) * x + std::fabs(b) * y + std::fabs(c);
  };
  const double largestW = magnitude(p.wx, p.wy, p.w0);
  const double terms =
      magnitude(p.xx, p.xy, p.x0) + magnitude(p.yx, p.yy, p.y0) + (width + height + 4) * largestW;
  const double smallestW = std::min(
      std::min(std::fabs(p.w(box.left, box.top)), std::fabs(p.w(box.right, box.top))),
      std::min(std::fabs(p.w(box.left, box.bottom)), std::fabs(p.w(box.right, box.bottom))));
  return terms * 0x1p-44 < smallestW * largestError ? sign : 0;
}

int32_t floorWithin(double value, int32_t lowest, int32_t highest) {
  if (!(value > lowest)) return lowest;
  return value < highest ? static_cast<int32_t>(std::floor(value)) : highest;
}

// Part of the destination: rows [top, bottom), columns [left, right).
struct Band {
  int32_t left, top, right, bottom;
};

// Which source pixels may reach a band.
class Reach {
 public:
  // All of them reach all of the band.
  Reach(const Drawing& drawing, Band& band)
      : samples_(drawing.samples), rows_{samples_.top, samples_.bottom} {
    band.left = 0;
    band.right = drawing.width;
  }

  // Those that the projection, w being of that sign, does not put elsewhere. Narrows the band to the
  // columns that they may reach, none where there are none.
  Reach(const Drawing& drawing, double wSign, Band& band)
      : samples_(drawing.samples), narrowed_(true) {
    const Box destination{-margin, band.top - 1 - margin, drawing.width + margin,
                          band.bottom + 1 + margin};
    preimage_ = preimageOf(destination, drawing.forward, wSign);
    ConvexPolygon region(centresOf(samples_));
    for (const HalfPlane& half : preimage_) region.clip(half);
    band.left = band.right = 0;
    if (region.empty()) return;
    const Box source = region.bounds(), target = region.projectedBounds(drawing.forward);
    rows_.start = floorWithin(source.top - 2, samples_.top, samples_.bottom);
    rows_.end = floorWithin(source.bottom + 2, samples_.top, samples_.bottom);
    band.left = floorWithin(target.left - 3, 0, drawing.width);
    band.right = floorWithin(target.right + 4, 0, drawing.width);
  }

  RowRange rows() const { return rows_; }

  // Columns [start, end) of a row, its centre being at y.
  RowRange columns(double y) const {
    if (!narrowed_) return {samples_.left, samples_.right};
    const Interval inside = lineWithin(preimage_, y);
    if (!(inside.first <= inside.last)) return {0, 0};
    return {floorWithin(inside.first - 2, samples_.left, samples_.right),
            floorWithin(inside.last + 2, samples_.left, samples_.right)};
  }

 private:
  RECT samples_;
  RowRange rows_{0, 0};
  bool narrowed_ = false;
  std::array<HalfPlane, 4> preimage_{};
};

CellGrid gridOf(const Band& band, uint32_t* cells, int32_t words, int64_t height) {
  CellGrid grid;
  grid.rowCells = ptrdiff_t{band.right} - band.left + columnsAround;
  grid.first = cells + (rowsAbove * grid.rowCells + columnsBefore) * words;
  grid.left = band.left;
  grid.top = band.top;
  grid.xLowest = band.left;
  grid.xHighest = band.right;
  // The rows next to the band reach into it. Within the destination the far edge counts too.
  grid.yLowest = std::max(band.top - 1, 0);
  grid.yHighest =
      band.bottom < height ? std::nextafter(band.bottom + 1.0, 0.0) : static_cast<double>(height);
  return grid;
}

}  // namespace

BandPlan::BandPlan(const Projection& forward, const RECT& samples, int32_t width, int64_t height,
                   int32_t channels, int threads)
    : channels_(channels),
      threads_(static_cast<size_t>(threads)),
      wSign_(reliableSignOfW(forward, centresOf(samples), width, static_cast<double>(height))) {
  const int64_t cellBytesEach = int64_t{cellLayout(channels).words} * int64_t{sizeof(uint32_t)};
  const int64_t rowBytes = (int64_t{width} + columnsAround) * cellBytesEach;
  const int64_t share = (height + threads - 1) / threads;
  rowsPerBand_ = static_cast<int32_t>(
      wSign_ == 0 ? share
                  : std::min(height, std::clamp(bandBytes / rowBytes, fewestRows, mostRows)));
  // The cells, and a row of keep-weights.
  bytesPerThread_ = static_cast<size_t>((int64_t{rowsPerBand_} + rowsAround) * rowBytes +
                                        int64_t{width} * int64_t{sizeof(uint32_t)} + 63) &
                    ~size_t{63};
}

void BandPlan::draw(const Drawing& drawing, uint8_t* memory) const {
  const auto height = static_cast<int32_t>(drawing.destination.height);
  const CellLayout layout = cellLayout(channels_);
  const WarpKernels kernels = warpKernels(instructionSet(), channels_);
  const int32_t bands = height / rowsPerBand_ + (height % rowsPerBand_ > 0);
  parallelDynamic(bands, 1, [&](int32_t index, int thread) {
    Band band{0, index * rowsPerBand_, 0, 0};
    band.bottom = band.top + std::min(rowsPerBand_, height - band.top);
    const Reach reach = wSign_ == 0 ? Reach(drawing, band) : Reach(drawing, wSign_, band);
    if (band.left >= band.right) return;

    auto* cells =
        reinterpret_cast<uint32_t*>(memory + static_cast<size_t>(thread) * bytesPerThread_);
    const CellGrid grid = gridOf(band, cells, layout.words, height);
    const ptrdiff_t rowWords = grid.rowCells * layout.words;
    const ptrdiff_t rows = ptrdiff_t{band.bottom} - band.top;
    std::memset(cells, 0, static_cast<size_t>((rows + rowsAround) * rowWords) * sizeof(uint32_t));
    uint32_t* keepWeights = cells + (rows + rowsAround) * rowWords;

    for (int32_t row = reach.rows().start; row < reach.rows().end; ++row) {
      const double y = row + 0.5;
      const RowRange columns = reach.columns(y);
      if (columns.start >= columns.end) continue;
      kernels.splatRow(grid, drawing.forward, columns.start + 0.5, y,
                       drawing.source.row(row) + ptrdiff_t{columns.start} * channels_,
                       columns.end - columns.start);
    }

    const int32_t count = band.right - band.left;
    for (int32_t y = band.top; y < band.bottom; ++y) {
      uint32_t* row = grid.first + (ptrdiff_t{y} - band.top) * rowWords;
      uint8_t* pixels = drawing.destination.row(y) + ptrdiff_t{band.left} * channels_;
      const Rim rim =
          weighRim({row, count, band.left, y}, layout, drawing.box, drawing.inverse, keepWeights);
      const auto resolveRimOf = [&](int32_t first, int32_t last) {
        resolveRim(row + ptrdiff_t{first} * layout.words, keepWeights + first, channels_,
                   pixels + ptrdiff_t{first} * channels_, last - first);
      };
      resolveRimOf(rim.first, rim.interiorFirst);
      kernels.resolveRow(row + ptrdiff_t{rim.interiorFirst} * layout.words,
                         pixels + ptrdiff_t{rim.interiorFirst} * channels_,
                         rim.interiorLast - rim.interiorFirst);
      resolveRimOf(rim.interiorLast, rim.last);
    }
  });
}

}  // namespace kvl
