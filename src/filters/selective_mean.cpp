#include "filters/selective_mean.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kvl {
namespace {

constexpr int bytesPerPixel = 3;
// Means with a wider square have a normaliser above 65536, and so a reciprocal of 0.
constexpr int maxSquareRadius = 127;

// The taps of one stretch of pixels.
class TapRuns {
 public:
  explicit TapRuns(const uint8_t* centre) : centre_(centre) {}

  void addPair(const uint8_t* first, const uint8_t* second, int32_t taps) {
    if (taps > 0) runs_[count_++] = {first, second, taps};
  }

  // The halves of the run side by side, and the last tap of an odd one beside the centre.
  void addSingle(const uint8_t* run, int32_t taps) {
    const int32_t half = taps / 2;
    addPair(run, run + ptrdiff_t{half} * bytesPerPixel, half);
    if (taps % 2 != 0) addPair(run + ptrdiff_t{taps - 1} * bytesPerPixel, centre_, 1);
  }

  const TapRun* data() const { return runs_; }
  int count() const { return count_; }

 private:
  const uint8_t* centre_;
  TapRun runs_[maxSquareRadius + 8];
  int count_ = 0;
};

const uint8_t* pixelOf(const SelectiveSource& source, int32_t x, int32_t y) {
  return source.bits + y * source.stride + ptrdiff_t{x} * bytesPerPixel;
}

int32_t rowsAbove(const SelectiveSource& source, int32_t y) {
  return std::min(y, source.verticalRadius);
}

int32_t rowsBelow(const SelectiveSource& source, int32_t y) {
  return std::min(source.height - 1 - y, source.verticalRadius);
}

// The taps of pixels from (x, y) on, all of which have `left` and `right` neighbours beside them.
TapRuns tapsOf(const SelectiveSource& source, int32_t x, int32_t y, int32_t left, int32_t right) {
  const auto at = [&](int32_t dx, int32_t dy) { return pixelOf(source, x + dx, y + dy); };
  TapRuns runs(at(0, 0));
  const uint8_t* waiting = nullptr;
  for (int32_t dy = -rowsAbove(source, y); dy <= rowsBelow(source, y); ++dy) {
    if (dy == 0) continue;
    if (waiting == nullptr) {
      waiting = at(-left, dy);
    } else {
      runs.addPair(waiting, at(-left, dy), left + 1 + right);
      waiting = nullptr;
    }
  }
  if (waiting != nullptr) runs.addSingle(waiting, left + 1 + right);
  const int32_t both = std::min(left, right);
  runs.addPair(at(-both, 0), at(1, 0), both);
  runs.addSingle(at(-left, 0), left - both);
  runs.addSingle(at(1 + both, 0), right - both);
  return runs;
}

// Pixels [first, last) of row y, with `left` and `right` neighbours beside them.
void meanOfStretch(const SelectiveSource& source, int32_t y, int32_t first, int32_t last,
                   int32_t left, int32_t right, uint8_t* out) {
  const TapRuns runs = tapsOf(source, first, y, left, right);
  source.kernels.mean(pixelOf(source, first, y), runs.data(), runs.count(), out,
                      ptrdiff_t{last - first} * bytesPerPixel, source.weights);
}

// Pixels near the ends of a row, a block at a time: a copy of their surroundings, in which each row
// is followed by the mask of what lies inside the image.
class PixelsNearEnds {
 public:
  PixelsNearEnds(const SelectiveSource& source, int32_t y)
      : source_(source),
        y_(y),
        top_(y - rowsAbove(source, y)),
        rows_(rowsAbove(source, y) + 1 + rowsBelow(source, y)),
        pitch_(blockBytes + 2 * ptrdiff_t{source.horizontalRadius} * bytesPerPixel) {}

  bool canMask() const {
    return source_.kernels.meanInside != nullptr && ptrdiff_t{rows_} * 2 * pitch_ <= maskedBytes;
  }

  void meanOf(int32_t first, int32_t last, uint8_t* out) {
    for (; first < last; first += blockPixels, out += blockBytes) {
      meanOfBlock(first, std::min(first + blockPixels, last), out);
    }
  }

 private:
  static constexpr int32_t blockPixels = 32;
  static constexpr ptrdiff_t blockBytes = ptrdiff_t{blockPixels} * bytesPerPixel;
  static constexpr ptrdiff_t vectorBytes = 32;
  static constexpr ptrdiff_t maskedBytes = 32768;

  void meanOfBlock(int32_t first, int32_t last, uint8_t* out) {
    const int32_t radius = source_.horizontalRadius;
    const int32_t left = std::max(0, first - radius);
    const int32_t right = std::min(source_.width, last + radius);
    const ptrdiff_t offset = ptrdiff_t{left - (first - radius)} * bytesPerPixel;
    const size_t bytes = static_cast<size_t>(right - left) * bytesPerPixel;
    for (int32_t row = 0; row < rows_; ++row) {
      uint8_t* copy = masked_ + ptrdiff_t{row} * 2 * pitch_;
      std::memset(copy, 0, static_cast<size_t>(2 * pitch_));
      std::memcpy(copy + offset, pixelOf(source_, left, top_ + row), bytes);
      std::memset(copy + pitch_ + offset, 255, bytes);
    }
    SelectiveSource block = source_;
    block.bits = masked_;
    block.stride = 2 * pitch_;
    block.height = rows_;
    const int32_t y = y_ - top_;
    const TapRuns runs = tapsOf(block, radius, y, radius, radius);
    const ptrdiff_t count = ptrdiff_t{last - first} * bytesPerPixel;
    uint8_t means[blockBytes];
    block.kernels.meanInside(pixelOf(block, radius, y), runs.data(), runs.count(), pitch_, means,
                             (count + vectorBytes - 1) / vectorBytes * vectorBytes, block.weights);
    std::memcpy(out, means, static_cast<size_t>(count));
  }

  const SelectiveSource& source_;
  const int32_t y_;
  const int32_t top_;
  const int32_t rows_;
  const ptrdiff_t pitch_;
  uint8_t masked_[maskedBytes];
};

void meanNearEnds(const SelectiveSource& source, int32_t y, int32_t first, int32_t last,
                  uint8_t* out) {
  if (first >= last) return;
  PixelsNearEnds pixels(source, y);
  if (pixels.canMask()) {
    pixels.meanOf(first, last, out);
    return;
  }
  for (int32_t x = first; x < last; ++x, out += bytesPerPixel) {
    meanOfStretch(source, y, x, x + 1, std::min(x, source.horizontalRadius),
                  std::min(source.width - 1 - x, source.horizontalRadius), out);
  }
}

}  // namespace

bool makeSelectiveWeights(int64_t neighbours, int32_t threshold, SelectiveWeights& weights) {
  if (neighbours < 1 || threshold < 1 || neighbours > INT32_MAX / threshold) return false;
  const auto normaliser = static_cast<int32_t>(neighbours * threshold);
  weights = {threshold, normaliser, 65536 / normaliser};
  return true;
}

void selectiveMeanScalar(const uint8_t* centre, const TapRun* runs, int runCount, uint8_t* out,
                         ptrdiff_t count, const SelectiveWeights& weights) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const int32_t m = centre[i];
    int32_t weightSum = 0;
    int32_t valueSum = 0;
    const auto addNeighbour = [&](int32_t n) {
      const int32_t weight = std::max(0, weights.threshold - std::abs(m - n));
      weightSum += weight;
      valueSum += n * weight;
    };
    for (const TapRun* run = runs; run != runs + runCount; ++run) {
      for (ptrdiff_t tap = 0; tap < run->taps; ++tap) {
        addNeighbour(run->first[i + tap * bytesPerPixel]);
        addNeighbour(run->second[i + tap * bytesPerPixel]);
      }
    }
    const int32_t mean =
        ((weights.normaliser - weightSum) * m + valueSum) * weights.reciprocal >> 16;
    out[i] = static_cast<uint8_t>(std::min(mean, 255));
  }
}

SelectiveMeanKernels selectiveMeanKernels(InstructionSet level) {
  SelectiveMeanKernels kernels{selectiveMeanScalar, nullptr};
  if (level >= InstructionSet::avx2) addSelectiveMeanAvx2(kernels);
  return kernels;
}

void selectiveMeanOfRow(const SelectiveSource& source, int32_t y, int32_t first, int32_t last,
                        uint8_t* out) {
  if (source.weights.reciprocal == 0) {
    std::memset(out, 0, static_cast<size_t>(last - first) * bytesPerPixel);
    return;
  }
  const int32_t radius = source.horizontalRadius;
  const int32_t inner = std::clamp(radius, first, last);
  const int32_t outer = std::clamp(source.width - radius, inner, last);
  meanNearEnds(source, y, first, inner, out);
  if (inner < outer) {
    meanOfStretch(source, y, inner, outer, radius, radius,
                  out + ptrdiff_t{inner - first} * bytesPerPixel);
  }
  meanNearEnds(source, y, outer, last, out + ptrdiff_t{outer - first} * bytesPerPixel);
}

}  // namespace kvl
