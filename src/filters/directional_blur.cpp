#include "filters/directional_blur.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "core/exact_math.h"
#include "core/parallel.h"
#include "filters/directional_blur_kernels.h"

namespace kvl {
namespace {

constexpr int32_t maxLength = 1024;
constexpr int lengthOne = 8;
constexpr int positionBits = 5;
constexpr int positionOne = 1 << positionBits;
constexpr int32_t fullWeight = 8;
// Samples lie half a pixel apart, four taps each.
constexpr int32_t maxSampleTaps = 4 * (2 * maxLength + 1);
constexpr int32_t maxTaps = 2 * maxSampleTaps;

struct Tap {
  int32_t x;
  int32_t y;
  int32_t weight;
};

struct Taps {
  Tap list[maxTaps];
  int32_t count = 0;

  void add(int32_t x, int32_t y, int32_t weight) {
    if (weight != 0) list[count++] = {x, y, weight};
  }
};

// How a pixel's sum follows from that of its neighbour.
enum class Running { no, alongRows, alongColumns };

struct Line {
  Taps taps;
  int32_t reachX = 0;
  uint32_t divisor = 0;
  Running running = Running::no;
  // What a running sum adds for its next pixel.
  Taps changes;
};

struct Plan {
  OnePassImages images;
  const Line& line;
  // Rows with their end pixels repeated to both sides.
  const uint8_t* padded;
  ptrdiff_t paddedStride;
  int32_t padding;
  DirectionalKernels kernels;
};

void convolveScalar(const TapPair* pairs, int32_t pairCount, uint32_t divisor, uint8_t* out,
                    ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    uint32_t sum = divisor / 2;
    for (int32_t k = 0; k < pairCount; ++k) {
      const TapPair& pair = pairs[k];
      sum += static_cast<uint32_t>(pair.firstWeight * pair.first[i] +
                                   pair.secondWeight * pair.second[i]);
    }
    out[i] = static_cast<uint8_t>(sum / divisor);
  }
}

void accumulateScalar(const TapPair* pairs, int32_t pairCount, uint32_t* sums, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    for (int32_t k = 0; k < pairCount; ++k) {
      const TapPair& pair = pairs[k];
      sums[i] += static_cast<uint32_t>(pair.firstWeight * pair.first[i] +
                                       pair.secondWeight * pair.second[i]);
    }
  }
}

void divideScalar(const uint32_t* sums, uint32_t divisor, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    out[i] = static_cast<uint8_t>((sums[i] + divisor / 2) / divisor);
  }
}

// Equal positions become one tap; their order has no influence on the sums.
void mergeTaps(Taps& taps) {
  std::sort(taps.list, taps.list + taps.count,
            [](const Tap& a, const Tap& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
  const int32_t count = taps.count;
  taps.count = 0;
  for (int32_t i = 0; i < count;) {
    Tap sum = taps.list[i];
    while (++i < count && taps.list[i].x == sum.x && taps.list[i].y == sum.y) {
      sum.weight += taps.list[i].weight;
    }
    taps.add(sum.x, sum.y, sum.weight);
  }
}

// `angle` in 2^-19 degrees, `length` in 1/8 pixel.
void placeTaps(Taps& taps, int64_t angle, int32_t length) {
  const SineCosine direction = sineCosine(angle);
  const auto offset = [](int32_t halfPixels, int32_t component) {
    constexpr int64_t divisor = int64_t{1} << (30 - positionBits + 1);
    return static_cast<int32_t>(divideHalfAway(int64_t{halfPixels} * component, divisor));
  };
  const int32_t last = (length + 3) / 8;
  for (int32_t j = -last; j <= last; ++j) {
    const int32_t weight =
        j == 0 ? fullWeight : std::clamp(length + 4 - 8 * std::abs(j), 0, fullWeight);
    const int32_t x = offset(j, direction.cosine), y = offset(j, direction.sine);
    const int32_t left = x >> positionBits, top = y >> positionBits;
    const int32_t right = x & (positionOne - 1), down = y & (positionOne - 1);
    taps.add(left, top, weight * (positionOne - right) * (positionOne - down));
    taps.add(left + 1, top, weight * right * (positionOne - down));
    taps.add(left, top + 1, weight * (positionOne - right) * down);
    taps.add(left + 1, top + 1, weight * right * down);
  }
  mergeTaps(taps);
}

// Along an axis the inner taps weigh the same, and from one pixel to the next only the ends of the
// line change.
void planRunningSum(Line& line) {
  bool inRow = true, inColumn = true;
  for (int32_t i = 0; i < line.taps.count; ++i) {
    inRow = inRow && line.taps.list[i].y == 0;
    inColumn = inColumn && line.taps.list[i].x == 0;
  }
  if (!inRow && !inColumn) return;
  for (int32_t i = 0; i < line.taps.count; ++i) {
    const Tap& tap = line.taps.list[i];
    line.changes.add(tap.x, tap.y, tap.weight);
    line.changes.add(tap.x - inRow, tap.y - !inRow, -tap.weight);
  }
  mergeTaps(line.changes);
  // Sums that run along a row are added one by one, which only longer lines repay.
  const int32_t worthwhile = inRow ? 24 : 2 * line.changes.count;
  if (line.taps.count < worthwhile) return;
  line.running = inRow ? Running::alongRows : Running::alongColumns;
}

void planLine(Line& line, int64_t angle, int32_t length) {
  placeTaps(line.taps, angle, length);
  for (int32_t i = 0; i < line.taps.count; ++i) {
    line.reachX = std::max(line.reachX, std::abs(line.taps.list[i].x));
    line.divisor += static_cast<uint32_t>(line.taps.list[i].weight);
  }
  planRunningSum(line);
}

void padRows(const OnePassImages& images, int32_t reach, ptrdiff_t stride, uint8_t* padded) {
  const auto bytes = static_cast<size_t>(images.components);
  parallelStatic(static_cast<int32_t>(images.height), [&](int32_t y) {
    const uint8_t* in = images.sourceRow(y);
    const uint8_t* lastPixel = in + images.rowBytes() - bytes;
    uint8_t* out = padded + y * stride;
    uint8_t* const end = out + stride;
    for (int32_t x = 0; x < reach; ++x, out += bytes) std::memcpy(out, in, bytes);
    std::memcpy(out, in, static_cast<size_t>(images.rowBytes()));
    out += images.rowBytes();
    for (int32_t x = 0; x < reach; ++x, out += bytes) std::memcpy(out, lastPixel, bytes);
    std::fill(out, end, uint8_t{0});
  });
}

// Scratch memory of one thread.
struct Slice {
  TapPair* pairs;
  uint32_t* sums;
};

// The taps around the pixels of row y; returns the number of pairs.
int32_t placePairs(const Plan& plan, const Taps& taps, int32_t y, TapPair* pairs) {
  const auto bottom = static_cast<int32_t>(plan.images.height) - 1;
  const auto at = [&](const Tap& tap) {
    return plan.padded + std::clamp(y + tap.y, 0, bottom) * plan.paddedStride +
           ptrdiff_t{plan.padding + tap.x} * plan.images.components;
  };
  const int32_t pairCount = (taps.count + 1) / 2;
  for (int32_t i = 0; i < pairCount; ++i) {
    const Tap& first = taps.list[2 * ptrdiff_t{i}];
    const bool single = 2 * i + 1 == taps.count;
    const Tap& second = single ? first : taps.list[2 * ptrdiff_t{i} + 1];
    pairs[i] = {at(first), at(second), static_cast<int16_t>(first.weight),
                static_cast<int16_t>(single ? 0 : second.weight)};
  }
  return pairCount;
}

void blurRow(const Plan& plan, int32_t y, const Slice& slice) {
  const int32_t pairCount = placePairs(plan, plan.line.taps, y, slice.pairs);
  plan.kernels.convolve(slice.pairs, pairCount, plan.line.divisor, plan.images.destinationRow(y),
                        plan.images.rowBytes());
}

template <int step>
void addRunning(uint32_t* sums, ptrdiff_t count) {
  uint32_t running[step] = {};
  for (ptrdiff_t i = 0; i < count; i += step) {
    for (int c = 0; c < step; ++c) sums[i + c] = running[c] += sums[i + c];
  }
}

// sums[i] += sums[i - step], one after the other.
void addRunning(uint32_t* sums, ptrdiff_t count, ptrdiff_t step) {
  if (step == 1) addRunning<1>(sums, count);
  if (step == 3) addRunning<3>(sums, count);
  if (step == 4) addRunning<4>(sums, count);
}

void blurRowRunning(const Plan& plan, int32_t y, const Slice& slice) {
  const ptrdiff_t count = plan.images.rowBytes(), step = plan.images.components;
  uint32_t first[convolutionBlock] = {};
  int32_t pairCount = placePairs(plan, plan.line.taps, y, slice.pairs);
  plan.kernels.accumulate(slice.pairs, pairCount, first, step);

  std::fill(slice.sums, slice.sums + count, 0);
  pairCount = placePairs(plan, plan.line.changes, y, slice.pairs);
  plan.kernels.accumulate(slice.pairs, pairCount, slice.sums, count);
  std::copy(first, first + step, slice.sums);
  addRunning(slice.sums, count, step);
  plan.kernels.divide(slice.sums, plan.line.divisor, plan.images.destinationRow(y), count);
}

void blurColumnsRunning(const Plan& plan, int32_t firstRow, int32_t endRow, const Slice& slice) {
  const ptrdiff_t count = plan.images.rowBytes();
  std::fill(slice.sums, slice.sums + count, 0);
  for (int32_t y = firstRow; y < endRow; ++y) {
    const Taps& taps = y == firstRow ? plan.line.taps : plan.line.changes;
    const int32_t pairCount = placePairs(plan, taps, y, slice.pairs);
    plan.kernels.accumulate(slice.pairs, pairCount, slice.sums, count);
    plan.kernels.divide(slice.sums, plan.line.divisor, plan.images.destinationRow(y), count);
  }
}

// Rows [first, end).
void blurRows(const Plan& plan, int32_t first, int32_t end, const Slice& slice) {
  if (plan.line.running == Running::alongColumns) {
    blurColumnsRunning(plan, first, end, slice);
    return;
  }
  for (int32_t y = first; y < end; ++y) {
    if (plan.line.running == Running::alongRows) {
      blurRowRunning(plan, y, slice);
    } else {
      blurRow(plan, y, slice);
    }
  }
}

// A sum that runs down the columns has to be begun anew in every claim.
int32_t rowsPerClaimOf(const Line& line, int32_t rows) {
  constexpr int32_t claimsPerThread = 4;
  if (line.running != Running::alongColumns) return rowsPerClaim(rows);
  return std::max(rows / (claimsPerThread * omp_get_max_threads()), 1);
}

}  // namespace

DirectionalKernels directionalKernels(InstructionSet level) {
  DirectionalKernels kernels{convolveScalar, accumulateScalar, divideScalar};
  if (level >= InstructionSet::avx2) addDirectionalAvx2(kernels);
  return kernels;
}

void directionalBlur(const OnePassImages& images, double angle, double length) {
  if (!isUsable(images) || !std::isfinite(angle) || !std::isfinite(length) || length < 0) return;
  const auto fixedLength =
      static_cast<int32_t>(roundHalfEven(std::min(length, double{maxLength}) * lengthOne));
  if (fixedLength <= lengthOne / 2) {
    copyRows(images);
    return;
  }
  const std::unique_ptr<Line> line(new (std::nothrow) Line);
  if (line == nullptr) return;
  constexpr int64_t angleOne = 1 << 16;
  const int64_t fixedAngle = roundHalfEven(std::fmod(angle, 360.0) * angleOne);
  planLine(*line, fixedAngle * ((1 << 19) / angleOne), fixedLength);

  adoptTeamSize();
  const auto height = static_cast<int32_t>(images.height);
  const int32_t padding = line->reachX + 1;
  const ptrdiff_t stride =
      images.rowBytes() + 2 * ptrdiff_t{padding} * images.components + convolutionBlock;
  const ptrdiff_t pairsOfSlice = (std::max(line->taps.count, line->changes.count) + 1) / 2;
  const ptrdiff_t sumsOfSlice =
      line->running == Running::no ? 0 : images.rowBytes() + convolutionBlock;
  const ptrdiff_t slices = omp_get_max_threads();
  const std::unique_ptr<uint8_t[]> padded(new (std::nothrow)
                                              uint8_t[static_cast<size_t>(height * stride)]);
  const std::unique_ptr<TapPair[]> pairs(new (std::nothrow)
                                             TapPair[static_cast<size_t>(slices * pairsOfSlice)]);
  const std::unique_ptr<uint32_t[]> sums(new (std::nothrow)
                                             uint32_t[static_cast<size_t>(slices * sumsOfSlice)]);
  if (padded == nullptr || pairs == nullptr || sums == nullptr) return;

  padRows(images, padding, stride, padded.get());
  const Plan plan{images, *line,   padded.get(),
                  stride, padding, directionalKernels(instructionSet())};
  const int32_t rows = rowsPerClaimOf(*line, height);
  parallelDynamic((height + rows - 1) / rows, 1, [&](int32_t claim, int thread) {
    blurRows(plan, claim * rows, std::min(claim * rows + rows, height),
             {pairs.get() + thread * pairsOfSlice, sums.get() + thread * sumsOfSlice});
  });
}

}  // namespace kvl
