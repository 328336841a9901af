#include "filters/similarity_average.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "core/exact_math.h"
#include "core/parallel.h"

namespace kvl {
namespace {

constexpr int ringCount = 8;
constexpr int32_t maxSamples = 1024;
constexpr int centreBits = 8;
constexpr int positionBits = 6;
constexpr int32_t positionOne = 1 << positionBits;
constexpr int32_t maxCentre = 1 << 20;

// The pixels of one range of distances from the centre, which share a sample count.
struct Ring {
  int64_t maxSquaredDistance;
  const SimilaritySample* samples;
  int32_t count;
};

struct Plan {
  OnePassImages images;
  SampledImage sampled;
  int32_t sampledComponents;
  int32_t centreX;
  int32_t centreY;
  Ring rings[ringCount];
  SumSamples sumSamples;
};

// 32.32 fixed point to the nearest integer, halves away from zero.
int32_t roundOffset(int64_t offset) {
  return static_cast<int32_t>((offset + (int64_t{1} << 31) - (offset < 0)) >> 32);
}

template <int components>
void sumSamplesScalar(const SampledImage& image, const SimilaritySample* samples, int32_t count,
                      const SampledBlock& block, uint32_t* sums) {
  for (int i = 0; i < pixelsPerBlock; ++i, sums += components) {
    const int64_t dx = block.dx + (i << centreBits), dy = block.dy;
    std::fill(sums, sums + components, 0);
    for (int32_t k = 0; k < count; ++k) {
      const SimilaritySample s = samples[k];
      const int32_t x =
          std::clamp((block.x + i) * positionOne + roundOffset(s.scale * dx - s.turn * dy), 0,
                     (image.width - 1) * positionOne);
      const int32_t y = std::clamp(block.y * positionOne + roundOffset(s.turn * dx + s.scale * dy),
                                   0, (image.height - 1) * positionOne);
      const uint8_t* pixel = image.pixels + (y >> positionBits) * image.stride +
                             ptrdiff_t{x >> positionBits} * components * 2;
      const int32_t right = x % positionOne, down = y % positionOne;
      for (int c = 0; c < components; ++c, pixel += 2) {
        const uint8_t* next = pixel + ptrdiff_t{components} * 2;
        const int32_t here = (positionOne - down) * pixel[0] + down * pixel[1];
        const int32_t beside = (positionOne - down) * next[0] + down * next[1];
        sums[c] += static_cast<uint32_t>((positionOne - right) * here + right * beside);
      }
    }
  }
}

int64_t squaredDistance(int64_t dx, int64_t dy) {
  return dx * dx + dy * dy;
}

int64_t largestSquaredDistance(const Plan& plan) {
  const auto farther = [](int32_t pixels, int64_t centre) {
    return std::max(std::abs(centre), std::abs((int64_t{pixels - 1} << centreBits) - centre));
  };
  return squaredDistance(farther(plan.sampled.width, plan.centreX),
                         farther(plan.sampled.height, plan.centreY));
}

// `samples` has room for ringCount * maxSamples.
void planRings(Plan& plan, const SimilarityPath& path, SimilaritySample* samples) {
  const int64_t largest = largestSquaredDistance(plan);
  const double radius = std::sqrt(static_cast<double>(largest)) / (1 << centreBits);
  for (int i = 1; i <= ringCount; ++i) {
    constexpr int64_t square = int64_t{ringCount} * ringCount;
    const double length = path.lengthPerDistance * radius * i / ringCount;
    const int32_t count = length < maxSamples
                              ? std::min(static_cast<int32_t>(std::ceil(length)) + 1, maxSamples)
                              : maxSamples;
    path.place(path.extent, samples, count);
    plan.rings[i - 1] = {largest / square * i * i + largest % square * i * i / square, samples,
                         count};
    samples += count;
  }
}

void copyToSampled(const OnePassImages& images, int32_t sampledComponents, ptrdiff_t stride,
                   uint8_t* pixels) {
  const auto width = static_cast<int32_t>(images.width);
  const auto height = static_cast<int32_t>(images.height);
  parallelStatic(height, [&](int32_t y) {
    const uint8_t* in = images.sourceRow(y);
    const uint8_t* below = images.sourceRow(std::min(y + 1, height - 1));
    uint8_t* out = pixels + y * stride;
    uint8_t* const end = out + stride;
    for (int32_t x = 0; x < width; ++x, out += ptrdiff_t{2} * sampledComponents) {
      for (int32_t c = 0; c < images.components; ++c) {
        out[ptrdiff_t{2} * c] = *in++;
        out[2 * c + 1] = *below++;
      }
      for (int32_t c = images.components; c < sampledComponents; ++c)
        out[ptrdiff_t{2} * c] = out[ptrdiff_t{2} * c + 1] = 0;
    }
    std::fill(out, end, uint8_t{0});
  });
}

void storeMean(const Plan& plan, const uint32_t* sums, int32_t samples, int32_t pixels,
               uint8_t* out) {
  const uint32_t divisor = static_cast<uint32_t>(samples) * positionOne * positionOne;
  for (int32_t i = 0; i < pixels; ++i, sums += plan.sampledComponents) {
    for (int32_t c = 0; c < plan.images.components; ++c) {
      *out++ = static_cast<uint8_t>((sums[c] + divisor / 2) / divisor);
    }
  }
}

// Pixels [first, end) of row y.
void averageStretch(const Plan& plan, int32_t y, int32_t first, int32_t end) {
  uint32_t sums[pixelsPerBlock * 4];
  const int32_t dy = (y << centreBits) - plan.centreY;
  const auto distanceAt = [&](int32_t x) {
    return squaredDistance((x << centreBits) - plan.centreX, dy);
  };
  uint8_t* out = plan.images.destinationRow(y);
  for (int32_t x = first; x < end;) {
    const Ring* ring = plan.rings;
    const int64_t distance = distanceAt(x);
    while (distance > ring->maxSquaredDistance) ++ring;
    const int64_t minimum = ring == plan.rings ? -1 : ring[-1].maxSquaredDistance;
    const int32_t last = std::min(x + pixelsPerBlock, end);
    int32_t next = x + 1;
    while (next < last && distanceAt(next) <= ring->maxSquaredDistance &&
           distanceAt(next) > minimum) {
      ++next;
    }
    plan.sumSamples(plan.sampled, ring->samples, ring->count,
                    {x, y, (x << centreBits) - plan.centreX, dy}, sums);
    storeMean(plan, sums, ring->count, next - x, out + ptrdiff_t{x} * plan.images.components);
    x = next;
  }
}

// Tile after tile, because the paths of neighbouring pixels cross the same cache lines.
void averageRows(const Plan& plan, int32_t first, int32_t end) {
  constexpr int32_t tile = 64;
  for (int32_t x = 0; x < plan.sampled.width; x += tile) {
    for (int32_t y = first; y < end; ++y) {
      averageStretch(plan, y, x, std::min(x + tile, plan.sampled.width));
    }
  }
}

}  // namespace

SimilarityKernels similarityKernels(InstructionSet level) {
  SimilarityKernels kernels{sumSamplesScalar<1>, sumSamplesScalar<4>};
  if (level >= InstructionSet::avx2) addSimilarityAvx2(kernels);
  return kernels;
}

bool isUsableCentre(double centreX, double centreY) {
  return std::abs(centreX) <= maxCentre && std::abs(centreY) <= maxCentre;
}

void averageAlongPath(const OnePassImages& images, double centreX, double centreY,
                      const SimilarityPath& path) {
  const auto width = static_cast<int32_t>(images.width);
  const auto height = static_cast<int32_t>(images.height);
  const int32_t sampledComponents = images.components == 1 ? 1 : 4;
  // The last 16 bytes let whole vectors be read from the last pixel.
  const ptrdiff_t stride = ptrdiff_t{width} * sampledComponents * 2 + 16;
  const int64_t bytes = height * stride;
  const std::unique_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[static_cast<size_t>(bytes)]);
  const std::unique_ptr<SimilaritySample[]> samples(
      new (std::nothrow) SimilaritySample[size_t{ringCount} * maxSamples]);
  if (pixels == nullptr || samples == nullptr) return;

  const InstructionSet level = bytes <= INT32_MAX ? instructionSet() : InstructionSet::scalar;
  const SimilarityKernels kernels = similarityKernels(level);
  Plan plan{images,
            {pixels.get(), stride, width, height},
            sampledComponents,
            static_cast<int32_t>(roundHalfEven(centreX * (1 << centreBits))),
            static_cast<int32_t>(roundHalfEven(centreY * (1 << centreBits))),
            {},
            sampledComponents == 1 ? kernels.oneComponent : kernels.fourComponents};
  planRings(plan, path, samples.get());
  copyToSampled(images, sampledComponents, stride, pixels.get());
  adoptTeamSize();
  const int32_t rows = rowsPerClaim(height);
  parallelDynamic((height + rows - 1) / rows, 1, [&](int32_t claim, int) {
    averageRows(plan, claim * rows, std::min(claim * rows + rows, height));
  });
}

}  // namespace kvl
