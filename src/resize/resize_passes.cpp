#include "resize/resize_passes.h"

#include <algorithm>
#include <cstring>

#include "core/parallel.h"

namespace kvl {
namespace {

// Bytes of each line that are resampled at a time, so that a block of lines stays in the nearest
// cache.
constexpr int64_t tileBytes = 256;

struct Range {
  int64_t start;
  int64_t end;

  int64_t size() const { return end - start; }
};

// Equal steps through a range, no longer than `longest` and a multiple of `unit`. The last one ends
// with the range and may repeat a part of the one before.
class Steps {
 public:
  Steps(Range range, int64_t longest, int64_t unit) : range_(range) {
    const int64_t count = (range.size() + longest - 1) / longest;
    const int64_t equal = (range.size() + count - 1) / count;
    size_ = std::min(range.size(), (equal + unit - 1) / unit * unit);
  }

  template <class Body>
  void forEach(const Body& body) const {
    for (int64_t at = range_.start; at < range_.end; at += size_) {
      const int64_t first = std::min(at, range_.end - size_);
      body(Range{first, first + size_});
    }
  }

 private:
  Range range_;
  int64_t size_;
};

void transposeAnySize(const uint8_t* lines, ptrdiff_t stride, int64_t lineCount, int64_t bytes,
                      uint8_t* const* out) {
  for (int64_t x = 0; x < bytes; ++x) {
    for (int64_t y = 0; y < lineCount; ++y) out[x][y] = lines[y * stride + x];
  }
}

// Turns a tile: byte x of line y becomes byte y of outOf(x).
template <class OutOf>
void transposeTile(const ResizeKernels& kernels, const uint8_t* tile, int64_t lineCount,
                   int64_t bytes, const OutOf& outOf) {
  const bool whole = lineCount == kernels.blockLines && bytes >= blockBytes;
  Steps({0, bytes}, blockBytes, whole ? blockBytes : 1).forEach([&](Range columns) {
    uint8_t* out[blockBytes];
    for (int64_t x = columns.start; x < columns.end; ++x) out[x - columns.start] = outOf(x);
    if (whole) {
      kernels.transpose(tile + columns.start, tileBytes, out);
    } else {
      transposeAnySize(tile + columns.start, tileBytes, lineCount, columns.size(), out);
    }
  });
}

// Resamples the lines of `lines` at the bytes of `bytes`: line y's byte x goes to outOf(x)[y].
template <class LineOf, class OutOf>
void resampleTransposed(const ResizeKernels& kernels, Halves halves, Range lines, Range bytes,
                        const LineOf& lineOf, const OutOf& outOf) {
  uint8_t tile[maxBlockLines * tileBytes];
  Steps(lines, kernels.blockLines, kernels.blockLines).forEach([&](Range block) {
    ResizeLine blockLines[maxBlockLines];
    for (int64_t y = block.start; y < block.end; ++y) blockLines[y - block.start] = lineOf(y);
    Steps(bytes, tileBytes, blockBytes).forEach([&](Range columns) {
      for (int64_t y = 0; y < block.size(); ++y) {
        kernels.blend(blockLines[y], halves, columns.start, tile + y * tileBytes, columns.size());
      }
      transposeTile(kernels, tile, block.size(), columns.size(),
                    [&](int64_t x) { return outOf(columns.start + x) + block.start; });
    });
  });
}

// Samples of a line of the source along an axis, with those beyond the rectangle from the border.
struct Samples {
  const uint8_t* origin;  // sample 0 of the image
  ptrdiff_t step;
  int64_t first;
  int64_t end;
  const uint8_t* before;
  const uint8_t* after;

  const uint8_t* at(int64_t sample) const {
    if (sample < first) return before;
    return sample < end ? origin + sample * step : after;
  }
};

ResizeLine lineOfTaps(const Taps& taps, const Samples& samples) {
  const uint8_t* first = samples.at(taps.first);
  const uint8_t* second = taps.count == 2 ? samples.at(int64_t{taps.first} + 1) : nullptr;
  return {first, second, samples.step, taps.weights, taps.count, taps.share};
}

Taps tapsOf(const ResizeAxis& axis, const WeightEntry* weights, int64_t output) {
  return interpolates(axis.scale) ? interpolatingTaps(axis, static_cast<int32_t>(output))
                                  : averagingTaps(axis, weights, static_cast<int32_t>(output));
}

// The intermediate image: a row for each column from horizontal.lowest to horizontal.highest, with
// a plane of clip height + 1 bytes a component.
struct Intermediate {
  uint8_t* bits;
  int64_t stride;
  int64_t planeBytes;
  int64_t components;

  explicit Intermediate(const ResizePlan& plan)
      : bits(plan.intermediate),
        stride(static_cast<int64_t>(plan.setup.intermediateStride)),
        planeBytes(int64_t{plan.vertical.outputs} + 1),
        components(plan.setup.bytesPerPixel) {}

  uint8_t* row(int64_t row, int64_t component) const {
    return bits + row * stride + component * planeBytes;
  }
};

// The border area: the rows below and above the rectangle, then the columns left and right of it.
struct Border {
  uint8_t* below;
  uint8_t* above;
  uint8_t* left;
  uint8_t* right;

  explicit Border(const ResizePlan& plan) {
    const int64_t components = plan.setup.bytesPerPixel;
    const int64_t rowBytes = plan.setup.srcWidth * components;
    below = plan.border;
    above = below + rowBytes;
    left = above + rowBytes;
    right = left + plan.setup.srcHeight * components;
  }
};

int64_t borderOf(const ResizeAxis& axis) {
  return axis.firstSample - axis.lowest;
}

const uint8_t* sourceRow(const ResizePlan& plan, int64_t row) {
  return plan.source + row * static_cast<int64_t>(plan.setup.srcStride);
}

void fillBorder(const ResizePlan& plan, const Border& border) {
  const size_t components = plan.setup.bytesPerPixel;
  const size_t rowBytes = static_cast<size_t>(plan.setup.srcWidth) * components;
  const ResizeAxis& rows = plan.vertical;
  const ResizeAxis& columns = plan.horizontal;
  std::memcpy(border.below, sourceRow(plan, rows.lowest), rowBytes);
  std::memcpy(border.above, sourceRow(plan, rows.highest), rowBytes);
  for (int64_t y = 0; y < rows.imageSamples; ++y) {
    const auto pixel = [&](int64_t x) {
      return sourceRow(plan, y) + x * static_cast<int64_t>(components);
    };
    const auto offset = static_cast<size_t>(y) * components;
    std::memcpy(border.left + offset, pixel(columns.lowest), components);
    std::memcpy(border.right + offset, pixel(columns.highest), components);
  }
}

// The rows [first, first + bytes / components) of the intermediate image.
void resampleColumns(const ResizePlan& plan, const Samples& samples, Range bytes,
                     int64_t firstRow) {
  const Intermediate intermediate(plan);
  const int64_t components = intermediate.components;
  resampleTransposed(
      plan.kernels, Halves::up, {0, plan.vertical.outputCount}, bytes,
      [&](int64_t y) { return lineOfTaps(tapsOf(plan.vertical, plan.weights, y), samples); },
      [&](int64_t x) { return intermediate.row(firstRow + x / components, x % components); });
}

void resampleBorderColumn(const ResizePlan& plan, const uint8_t* column, int64_t row) {
  const int64_t components = plan.setup.bytesPerPixel;
  resampleColumns(plan, {column, components, 0, plan.vertical.imageSamples, nullptr, nullptr},
                  {0, components}, row);
}

// Zeroes what the pass leaves of the intermediate row.
void clearSlack(const ResizePlan& plan, int64_t row) {
  const Intermediate intermediate(plan);
  const int64_t written = plan.vertical.outputCount;
  for (int64_t c = 0; c < intermediate.components; ++c) {
    uint8_t* plane = intermediate.row(row, c);
    const uint8_t* end = c + 1 < intermediate.components ? intermediate.row(row, c + 1)
                                                         : intermediate.row(row + 1, 0);
    std::memset(plane + written, 0, static_cast<size_t>(end - plane - written));
  }
}

}  // namespace

void resampleVertically(const ResizePlan& plan) {
  const ResizeAxis& columns = plan.horizontal;
  const ResizeAxis& rows = plan.vertical;
  const int64_t components = plan.setup.bytesPerPixel;
  const int64_t border = borderOf(columns);
  Samples samples = {plan.source + columns.firstSample * components,
                     static_cast<ptrdiff_t>(plan.setup.srcStride),
                     rows.firstSample,
                     int64_t{rows.firstSample} + rows.sampleCount,
                     nullptr,
                     nullptr};
  if (plan.setup.borderBuffers != 0) {
    const Border lines(plan);
    fillBorder(plan, lines);
    samples.before = lines.below + columns.firstSample * components;
    samples.after = lines.above + columns.firstSample * components;
    if (border > 0) resampleBorderColumn(plan, lines.left, 0);
    const int64_t right = border + columns.sampleCount;
    if (right <= columns.highest - columns.lowest) {
      resampleBorderColumn(plan, lines.right, right);
    }
  }
  parallelBands(columns.sampleCount, [&](RowRange band) {
    resampleColumns(plan, samples, {band.start * components, band.end * components}, border);
  });
  parallelBands(columns.highest - columns.lowest + 1, [&](RowRange band) {
    for (int64_t row = band.start; row < band.end; ++row) clearSlack(plan, row);
  });
}

void resampleHorizontally(const ResizePlan& plan) {
  const ResizeAxis& columns = plan.horizontal;
  const Intermediate intermediate(plan);
  const int64_t components = intermediate.components;
  const auto stride = static_cast<int64_t>(plan.setup.dstStride);
  uint8_t* origin =
      plan.destination + plan.setup.dstBottomSkip * stride + plan.setup.dstFirstColumn * components;
  const auto lineOf = [&](int64_t line) {
    const int64_t component = line % components;
    const Samples samples = {intermediate.row(-columns.lowest, component),
                             static_cast<ptrdiff_t>(intermediate.stride),
                             columns.lowest,
                             int64_t{columns.highest} + 1,
                             nullptr,
                             nullptr};
    return lineOfTaps(tapsOf(columns, plan.weights, line / components), samples);
  };
  parallelBands(plan.vertical.outputCount, [&](RowRange band) {
    resampleTransposed(plan.kernels, Halves::down, {0, columns.outputCount * components},
                       {band.start, band.end}, lineOf,
                       [&](int64_t y) { return origin + y * stride; });
  });
}

}  // namespace kvl
