// Pictures that shrink across. The destination is drawn in strips of a block of rows, and these in
// tiles of columns. The first pass resamples the columns of the source that a tile needs and stores
// them as rows: so the second works like the first, with whole lines that have a share each. What
// lies between the two stays in the nearest cache.

#include <omp.h>

#include <algorithm>

#include "core/parallel.h"
#include "resize/resize_lines.h"

namespace kvl {
namespace {

constexpr int64_t maxTileColumns = 128;
constexpr double maxTileSourceBytes = 768;
// Bytes of a row that the first pass, and columns that the second pass turns at a time.
constexpr int64_t turnedBytes = 256;
// Blocks of rows in a strip of a single component: short lines cost more in calls than in sums.
constexpr int64_t greyBlocks = 2;
constexpr int64_t maxStripRows = greyBlocks * maxBlockLines;
constexpr int64_t turnedColumns = 32;

// Part `index` of `parts` of nearly equal size.
Range partOf(int64_t size, int64_t index, int64_t parts) {
  return {size * index / parts, size * (index + 1) / parts};
}

// body(Range) for equal steps through a range: no longer than `longest`, which is a multiple of
// `unit`, and multiples of it themselves. The last one ends with the range and may repeat a part of
// the one before.
template <class Body>
void inSteps(Range range, int64_t longest, int64_t unit, const Body& body) {
  const int64_t count = (range.size() + longest - 1) / longest;
  const int64_t equal = (range.size() + count - 1) / count;
  const int64_t size = std::min(range.size(), (equal + unit - 1) / unit * unit);
  for (int64_t at = range.start; at < range.end; at += size) {
    const int64_t first = std::min(at, range.end - size);
    body(Range{first, first + size});
  }
}

// Byte x of line y becomes byte y of line x.
void transpose(const ResizeKernels& kernels, const uint8_t* in, int64_t inStride, int64_t lines,
               int64_t bytes, uint8_t* out, int64_t outStride) {
  if (lines >= kernels.blockLines && bytes >= blockBytes) {
    inSteps({0, lines}, kernels.blockLines, kernels.blockLines, [&](Range block) {
      inSteps({0, bytes}, blockBytes, blockBytes, [&](Range columns) {
        kernels.transpose(in + block.start * inStride + columns.start, inStride,
                          out + columns.start * outStride + block.start, outStride);
      });
    });
    return;
  }
  for (int64_t x = 0; x < bytes; ++x) {
    for (int64_t y = 0; y < lines; ++y) out[x * outStride + y] = in[y * inStride + x];
  }
}

// One thread's share of the work: some rows of the destination.
class StripPainter {
 public:
  StripPainter(const ResizePlan& plan, const ResizeKernels& kernels, Range rows)
      : plan_(plan),
        kernels_(kernels),
        rows_(rows),
        components_(plan.setup.bytesPerPixel),
        stripRows_(stripRowsOf(kernels, components_, rows.size())) {
    // Of the intermediate image, the part of these rows.
    strip_ = plan.intermediate + rows.start * plan.horizontal.sampleCount * components_;
  }

  void paint() {
    const ResizeAxis& columns = plan_.horizontal;
    const double sourceBytes = std::max(columns.scale, 1.0) * static_cast<double>(components_);
    const auto most = std::clamp<int64_t>(static_cast<int64_t>(maxTileSourceBytes / sourceBytes), 1,
                                          maxTileColumns);
    const int64_t tiles = (columns.outputCount + most - 1) / most;
    for (int64_t i = 0; i < tiles; ++i) {
      setTile(partOf(columns.outputCount, i, tiles));
      inSteps(rows_, stripRows_, stripRows_, [&](Range strip) {
        fillStrip(strip);
        drawStrip(strip);
      });
    }
  }

 private:
  static int64_t stripRowsOf(const ResizeKernels& kernels, int64_t components, int64_t rows) {
    const int64_t wanted = kernels.blockLines * (components == 1 ? greyBlocks : 1);
    return std::min(rows, rows < wanted ? kernels.blockLines : wanted);
  }

  // Finds the lines of a tile's columns within the strip.
  void setTile(Range tile) {
    Taps taps[maxTileColumns];
    tile_ = tile;
    findTaps(plan_.horizontal, plan_.columnEdges, tile.start, tile.end, taps);
    const Taps& last = taps[tile.size() - 1];
    samples_ = {taps[0].first, int64_t{last.first} + last.count};
    const int64_t step = components_ * stripRows_;
    const Samples columns = {
        strip_ - samples_.start * step, step, samples_.start, samples_.end, nullptr, nullptr};
    for (int64_t x = 0; x < tile.size(); ++x) columns_[x] = lineOf(taps[x], columns);
  }

  // The first pass: the tile's columns of the source, as rows of the strip's height.
  void fillStrip(Range strip) {
    Taps taps[maxStripRows];
    findTaps(plan_.vertical, plan_.rowEdges, strip.start, strip.end, taps);
    const Samples source = sourceRows(plan_);
    ResizeLine lines[maxStripRows];
    uint8_t turned[maxStripRows * turnedBytes];
    for (int64_t y = 0; y < stripRows_; ++y) lines[y] = lineOf(taps[y], source);
    const Range bytes = {samples_.start * components_, samples_.end * components_};
    inSteps(bytes, turnedBytes, blockBytes, [&](Range part) {
      kernels_.blend(lines, stripRows_, Halves::up, part.start, part.size(), turned, turnedBytes);
      transpose(kernels_, turned, turnedBytes, stripRows_, part.size(),
                strip_ + (part.start - bytes.start) * stripRows_, stripRows_);
    });
  }

  // The second pass: the tile's columns of the destination, turned back into rows.
  void drawStrip(Range strip) {
    uint8_t turned[turnedColumns * 3 * maxBlockLines];
    const int64_t columnBytes = components_ * stripRows_;
    const auto stride = static_cast<int64_t>(plan_.setup.dstStride);
    uint8_t* out = plan_.destination + (plan_.setup.dstBottomSkip + strip.start) * stride +
                   (plan_.setup.dstFirstColumn + tile_.start) * components_;
    inSteps({0, tile_.size()}, turnedColumns, turnedColumns, [&](Range columns) {
      kernels_.blend(columns_ + columns.start, columns.size(), Halves::down, 0, columnBytes, turned,
                     columnBytes);
      transpose(kernels_, turned, stripRows_, columns.size() * components_, stripRows_,
                out + columns.start * components_, stride);
    });
  }

  const ResizePlan& plan_;
  const ResizeKernels& kernels_;
  Range rows_;
  int64_t components_;
  int64_t stripRows_;
  uint8_t* strip_;
  Range tile_{};
  Range samples_{};  // of the source that the tile needs
  ResizeLine columns_[maxTileColumns];
};

// The widest kernels whose blocks are not higher than the picture.
ResizeKernels kernelsFor(int64_t rows) {
  const InstructionSet level = instructionSet();
  const ResizeKernels best = resizeKernels(level);
  if (rows >= best.blockLines) return best;
  const ResizeKernels narrower = resizeKernels(std::min(level, InstructionSet::ssse3));
  return rows >= narrower.blockLines ? narrower : resizeKernels(InstructionSet::scalar);
}

}  // namespace

void drawStrips(const ResizePlan& plan) {
  const int64_t rows = plan.vertical.outputCount;
  const ResizeKernels kernels = kernelsFor(rows);
  adoptTeamSize();
  const auto parts = static_cast<int32_t>(
      std::clamp<int64_t>(rows / kernels.blockLines, 1, omp_get_max_threads()));
  parallelBands(parts, [&](RowRange band) {
    for (int32_t i = band.start; i < band.end; ++i) {
      StripPainter(plan, kernels, partOf(rows, i, parts)).paint();
    }
  });
}

}  // namespace kvl
