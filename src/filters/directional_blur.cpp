#include "filters/directional_blur.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "core/parallel.h"
#include "filters/directional_blur_kernels.h"
#include "filters/exact_math.h"

namespace kvl {
namespace {

constexpr int32_t maxLength = 1024;
constexpr int lengthOne = 8;
constexpr int positionBits = 5;
constexpr int positionOne = 1 << positionBits;
constexpr int32_t fullWeight = 8;
// Samples lie half a pixel apart, four taps each.
constexpr int32_t maxTaps = 4 * (2 * maxLength + 1);

struct Tap {
  int32_t x;
  int32_t y;
  int32_t weight;
};

struct Taps {
  Tap list[maxTaps];
  int32_t count = 0;
  int32_t reachX = 0;
  uint32_t weightSum = 0;

  void add(int32_t x, int32_t y, int32_t weight) {
    if (weight == 0) return;
    list[count++] = {x, y, weight};
    reachX = std::max(reachX, std::abs(x));
    weightSum += static_cast<uint32_t>(weight);
  }
};

struct Plan {
  OnePassImages images;
  const Taps& taps;
  // Rows with their end pixels repeated to both sides.
  const uint8_t* padded;
  ptrdiff_t paddedStride;
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

// Equal positions become one tap; their order has no influence on the sums.
void mergeTaps(Taps& taps) {
  std::sort(taps.list, taps.list + taps.count,
            [](const Tap& a, const Tap& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
  int32_t merged = 0;
  for (int32_t i = 1; i < taps.count; ++i) {
    if (taps.list[i].x == taps.list[merged].x && taps.list[i].y == taps.list[merged].y) {
      taps.list[merged].weight += taps.list[i].weight;
    } else {
      taps.list[++merged] = taps.list[i];
    }
  }
  taps.count = merged + 1;
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

void blurRow(const Plan& plan, int32_t y, TapPair* pairs) {
  const auto bottom = static_cast<int32_t>(plan.images.height) - 1;
  const auto at = [&](const Tap& tap) {
    return plan.padded + std::clamp(y + tap.y, 0, bottom) * plan.paddedStride +
           ptrdiff_t{plan.taps.reachX + tap.x} * plan.images.components;
  };
  const int32_t pairCount = (plan.taps.count + 1) / 2;
  for (int32_t i = 0; i < pairCount; ++i) {
    const Tap& first = plan.taps.list[2 * i];
    const bool single = 2 * i + 1 == plan.taps.count;
    const Tap& second = single ? first : plan.taps.list[2 * i + 1];
    pairs[i] = {at(first), at(second), static_cast<int16_t>(first.weight),
                static_cast<int16_t>(single ? 0 : second.weight)};
  }
  plan.kernels.convolve(pairs, pairCount, plan.taps.weightSum, plan.images.destinationRow(y),
                        plan.images.rowBytes());
}

}  // namespace

DirectionalKernels directionalKernels(InstructionSet level) {
  DirectionalKernels kernels{convolveScalar};
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
  const std::unique_ptr<Taps> taps(new (std::nothrow) Taps);
  if (taps == nullptr) return;
  constexpr int64_t angleOne = 1 << 16;
  const int64_t fixedAngle = roundHalfEven(std::fmod(angle, 360.0) * angleOne);
  placeTaps(*taps, fixedAngle * ((1 << 19) / angleOne), fixedLength);

  const auto height = static_cast<int32_t>(images.height);
  const ptrdiff_t stride =
      images.rowBytes() + ptrdiff_t{2 * taps->reachX} * images.components + convolutionBlock;
  adoptTeamSize();
  const int32_t sliceLength = (taps->count + 1) / 2;
  const std::unique_ptr<uint8_t[]> padded(new (std::nothrow)
                                              uint8_t[static_cast<size_t>(height * stride)]);
  const std::unique_ptr<TapPair[]> pairs(
      new (std::nothrow) TapPair[static_cast<size_t>(omp_get_max_threads()) * sliceLength]);
  if (padded == nullptr || pairs == nullptr) return;

  padRows(images, taps->reachX, stride, padded.get());
  const Plan plan{images, *taps, padded.get(), stride, directionalKernels(instructionSet())};
  parallelDynamic(height, rowsPerClaim(height), [&](int32_t y, int thread) {
    blurRow(plan, y, pairs.get() + ptrdiff_t{thread} * sliceLength);
  });
}

}  // namespace kvl
