// Pictures that do not shrink across, row by row: a row of the destination needs one line of
// resampled samples, which stays in the nearest cache and is read in the order of its outputs.

#include <algorithm>

#include "core/parallel.h"
#include "resize/resize_lines.h"

namespace kvl {
namespace {

constexpr int64_t maxTileColumns = 512;
// Rows that are drawn together, so that a tile's table is read once for all of them.
constexpr int64_t rowsAtOnce = 4;
constexpr int64_t groupBytes = sizeof(InterpolatedBytes::positions);
// An output's samples lie at most a pixel farther than its own place, and the border adds two. What
// the kernel reads behind the last counts for nothing.
constexpr int64_t lineBytes = ((maxTileColumns + 4) * 3 + interpolationReach + 63) / 64 * 64;

// One thread's share of the work: some rows of the destination.
class RowPainter {
 public:
  RowPainter(const ResizePlan& plan, const ResizeKernels& kernels, Range rows)
      : plan_(plan), kernels_(kernels), rows_(rows), components_(plan.setup.bytesPerPixel) {}

  void paint() {
    const int64_t columns = plan_.horizontal.outputCount;
    for (int64_t x = 0; x < columns; x += maxTileColumns) {
      setTile({x, std::min(x + maxTileColumns, columns)});
      for (int64_t y = rows_.start; y < rows_.end; y += rowsAtOnce) {
        drawRowsOf({y, std::min(y + rowsAtOnce, rows_.end)});
      }
    }
  }

 private:
  // Finds the samples of a tile's bytes within its line.
  void setTile(Range tile) {
    Taps taps[maxTileColumns];
    tile_ = tile;
    findTaps(plan_.horizontal, nullptr, tile.start, tile.end, taps);
    const Taps& last = taps[tile.size() - 1];
    samples_ = {taps[0].first, int64_t{last.first} + last.count};
    const int64_t bytes = tile.size() * components_;
    const int64_t padded = (bytes + maxVectorBytes - 1) / maxVectorBytes * maxVectorBytes;
    std::fill_n(table_, padded / groupBytes, InterpolatedBytes{});
    int64_t byte = 0;
    for (int64_t x = 0; x < tile.size(); ++x) {
      const int64_t at = (taps[x].first - samples_.start) * components_;
      for (int64_t c = 0; c < components_; ++c, ++byte) {
        InterpolatedBytes& group = table_[byte / groupBytes];
        const int64_t k = byte % groupBytes;
        if (k == 0) group.first = at;
        group.positions[k] = static_cast<uint8_t>(at + c - group.first);
        group.shares[k] = static_cast<int16_t>(taps[x].share);
      }
    }
  }

  void drawRowsOf(Range rows) {
    Taps taps[rowsAtOnce];
    findTaps(plan_.vertical, plan_.rowEdges, rows.start, rows.end, taps);
    const ResizeAxis& columns = plan_.horizontal;
    const Border border(plan_);
    const int64_t firstInner = std::max<int64_t>(samples_.start, columns.firstSample);
    const int64_t endInner =
        std::min<int64_t>(samples_.end, int64_t{columns.firstSample} + columns.sampleCount);
    const auto resampleRows = [&](const Samples& samples, Range pixels, int64_t sample) {
      if (pixels.size() <= 0) return;
      ResizeLine lines[rowsAtOnce];
      for (int64_t y = 0; y < rows.size(); ++y) lines[y] = lineOf(taps[y], samples);
      kernels_.blend(lines, rows.size(), Halves::up, pixels.start * components_,
                     pixels.size() * components_, lines_ + (sample - samples_.start) * components_,
                     lineBytes);
    };
    const auto resampleBorder = [&](const uint8_t* column, int64_t sample) {
      resampleRows({column, components_, 0, plan_.vertical.imageSamples, nullptr, nullptr}, {0, 1},
                   sample);
    };
    resampleRows(sourceRows(plan_), {firstInner, endInner}, firstInner);
    if (samples_.start < firstInner) resampleBorder(border.left, samples_.start);
    if (samples_.end > endInner) resampleBorder(border.right, endInner);

    const auto stride = static_cast<int64_t>(plan_.setup.dstStride);
    kernels_.interpolate(table_, components_, tile_.size() * components_, lines_, lineBytes,
                         rows.size(),
                         plan_.destination + (plan_.setup.dstBottomSkip + rows.start) * stride +
                             (plan_.setup.dstFirstColumn + tile_.start) * components_,
                         stride);
  }

  const ResizePlan& plan_;
  const ResizeKernels& kernels_;
  Range rows_;
  int64_t components_;
  Range tile_{};
  Range samples_{};  // of the source that the tile needs
  InterpolatedBytes table_[maxTileColumns * 3 / groupBytes];
  uint8_t lines_[rowsAtOnce * lineBytes] = {};
};

}  // namespace

void drawRows(const ResizePlan& plan) {
  const ResizeKernels kernels = resizeKernels(instructionSet());
  parallelBands(plan.vertical.outputCount, [&](RowRange band) {
    RowPainter(plan, kernels, {band.start, band.end}).paint();
  });
}

void drawHalves(const ResizePlan& plan) {
  const ResizeKernels kernels = resizeKernels(instructionSet());
  const ResizeSetup& s = plan.setup;
  const auto sourceStride = static_cast<int64_t>(s.srcStride);
  const auto stride = static_cast<int64_t>(s.dstStride);
  const int64_t components = s.bytesPerPixel;
  const uint8_t* const source =
      plan.source + s.srcBottomSkip * sourceStride + s.srcFirstColumn * components;
  uint8_t* const out = plan.destination + s.dstBottomSkip * stride + s.dstFirstColumn * components;
  const auto halve = components == 3 ? kernels.halveRgb24 : kernels.halveGrey;
  parallelBands(plan.vertical.outputCount, [&](RowRange band) {
    for (int64_t y = band.start; y < band.end; ++y) {
      const uint8_t* pair = source + 2 * y * sourceStride;
      halve(pair, pair + sourceStride, out + y * stride, plan.horizontal.outputCount);
    }
  });
}

}  // namespace kvl
