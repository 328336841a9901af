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

// Pixels [first, last) of row y, all of which have `left` and `right` neighbours beside them.
void meanOfStretch(const SelectiveSource& source, int32_t y, int32_t first, int32_t last,
                   int32_t left, int32_t right, uint8_t* out) {
  const auto at = [&](int32_t dx, int32_t dy) {
    return source.bits + (ptrdiff_t{y} + dy) * source.stride +
           (ptrdiff_t{first} + dx) * bytesPerPixel;
  };
  TapRuns runs(at(0, 0));
  const uint8_t* waiting = nullptr;
  const int32_t above = std::min(y, source.verticalRadius);
  const int32_t below = std::min(source.height - 1 - y, source.verticalRadius);
  for (int32_t dy = -above; dy <= below; ++dy) {
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
  source.kernel(at(0, 0), runs.data(), runs.count(), out, ptrdiff_t{last - first} * bytesPerPixel,
                source.weights);
}

void meanOfPixelsNearEnds(const SelectiveSource& source, int32_t y, int32_t first, int32_t last,
                          uint8_t* out) {
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

SelectiveMeanKernel selectiveMeanKernel(InstructionSet level) {
  return level >= InstructionSet::avx2 ? selectiveMeanAvx2 : selectiveMeanScalar;
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
  meanOfPixelsNearEnds(source, y, first, inner, out);
  if (inner < outer) {
    meanOfStretch(source, y, inner, outer, radius, radius,
                  out + ptrdiff_t{inner - first} * bytesPerPixel);
  }
  meanOfPixelsNearEnds(source, y, outer, last, out + ptrdiff_t{outer - first} * bytesPerPixel);
}

}  // namespace kvl
