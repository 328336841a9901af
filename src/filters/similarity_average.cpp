#include "filters/similarity_average.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "core/parallel.h"
#include "filters/exact_math.h"

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
  int32_t bytesPerPixel;
  int32_t centreX;
  int32_t centreY;
  Ring rings[ringCount];
  SumSamples sumSamples;
};

// 32.32 fixed point to the nearest integer, halves away from zero.
int32_t roundOffset(int64_t offset) {
  return static_cast<int32_t>((offset + (int64_t{1} << 31) - (offset < 0)) >> 32);
}

template <int bytes>
void sumSamplesScalar(const SampledImage& image, const SimilaritySample* samples, int32_t count,
                      const SampledBlock& block, uint32_t* sums) {
  for (int i = 0; i < pixelsPerBlock; ++i, sums += bytes) {
    const int64_t dx = block.dx + (i << centreBits), dy = block.dy;
    std::fill(sums, sums + bytes, 0);
    for (int32_t k = 0; k < count; ++k) {
      const SimilaritySample s = samples[k];
      const int32_t x =
          std::clamp((block.x + i) * positionOne + roundOffset(s.scale * dx - s.turn * dy), 0,
                     (image.width - 1) * positionOne);
      const int32_t y = std::clamp(block.y * positionOne + roundOffset(s.turn * dx + s.scale * dy),
                                   0, (image.height - 1) * positionOne);
      const uint8_t* upper =
          image.pixels + (y >> positionBits) * image.stride + ptrdiff_t{x >> positionBits} * bytes;
      const uint8_t* lower = upper + image.stride;
      const int32_t right = x % positionOne, down = y % positionOne;
      for (int b = 0; b < bytes; ++b) {
        const int32_t top = (positionOne - right) * upper[b] + right * upper[b + bytes];
        const int32_t bottom = (positionOne - right) * lower[b] + right * lower[b + bytes];
        sums[b] += static_cast<uint32_t>((positionOne - down) * top + down * bottom);
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
    constexpr int64_t square = ringCount * ringCount;
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

void copyToSampled(const OnePassImages& images, int32_t bytesPerPixel, ptrdiff_t stride,
                   uint8_t* pixels) {
  const auto width = static_cast<int32_t>(images.width);
  const auto height = static_cast<int32_t>(images.height);
  parallelStatic(height + 1, [&](int32_t y) {
    const uint8_t* in = images.sourceRow(std::min(y, height - 1));
    uint8_t* out = pixels + y * stride;
    if (images.components == bytesPerPixel) {
      std::memcpy(out, in, static_cast<size_t>(images.rowBytes()));
    } else {
      for (int32_t x = 0; x < width; ++x) {
        std::memcpy(out + ptrdiff_t{x} * 4, in + ptrdiff_t{x} * 3, 3);
        out[ptrdiff_t{x} * 4 + 3] = 0;
      }
    }
    uint8_t* end = out + ptrdiff_t{width} * bytesPerPixel;
    std::fill(end, out + stride, uint8_t{0});
  });
}

void storeMean(const Plan& plan, const uint32_t* sums, int32_t samples, int32_t pixels,
               uint8_t* out) {
  const uint32_t divisor = static_cast<uint32_t>(samples) * positionOne * positionOne;
  for (int32_t i = 0; i < pixels; ++i, sums += plan.bytesPerPixel) {
    for (int32_t c = 0; c < plan.images.components; ++c) {
      *out++ = static_cast<uint8_t>((sums[c] + divisor / 2) / divisor);
    }
  }
}

void averageRow(const Plan& plan, int32_t y) {
  uint32_t sums[pixelsPerBlock * 4];
  const int32_t dy = (y << centreBits) - plan.centreY;
  const int32_t width = plan.sampled.width;
  const auto distanceAt = [&](int32_t x) {
    return squaredDistance((x << centreBits) - plan.centreX, dy);
  };
  uint8_t* out = plan.images.destinationRow(y);
  for (int32_t x = 0; x < width;) {
    const Ring* ring = plan.rings;
    const int64_t distance = distanceAt(x);
    while (distance > ring->maxSquaredDistance) ++ring;
    const int64_t minimum = ring == plan.rings ? -1 : ring[-1].maxSquaredDistance;
    const int32_t last = std::min(x + pixelsPerBlock, width);
    int32_t end = x + 1;
    while (end < last && distanceAt(end) <= ring->maxSquaredDistance && distanceAt(end) > minimum) {
      ++end;
    }
    plan.sumSamples(plan.sampled, ring->samples, ring->count,
                    {x, y, (x << centreBits) - plan.centreX, dy}, sums);
    storeMean(plan, sums, ring->count, end - x, out + ptrdiff_t{x} * plan.images.components);
    x = end;
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
  const int32_t bytesPerPixel = images.components == 1 ? 1 : 4;
  // The last 8 bytes let whole vectors be read from the last pixel.
  const ptrdiff_t stride = ptrdiff_t{width + 1} * bytesPerPixel + 8;
  const int64_t bytes = int64_t{height + 1} * stride;
  const std::unique_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[static_cast<size_t>(bytes)]);
  const std::unique_ptr<SimilaritySample[]> samples(new (std::nothrow)
                                                        SimilaritySample[ringCount * maxSamples]);
  if (pixels == nullptr || samples == nullptr) return;

  const InstructionSet level = bytes <= INT32_MAX ? instructionSet() : InstructionSet::scalar;
  const SimilarityKernels kernels = similarityKernels(level);
  Plan plan{images,
            {pixels.get(), stride, width, height},
            bytesPerPixel,
            static_cast<int32_t>(roundHalfEven(centreX * (1 << centreBits))),
            static_cast<int32_t>(roundHalfEven(centreY * (1 << centreBits))),
            {},
            bytesPerPixel == 1 ? kernels.oneByte : kernels.fourBytes};
  planRings(plan, path, samples.get());
  copyToSampled(images, bytesPerPixel, stride, pixels.get());
  adoptTeamSize();
  parallelDynamic(height, rowsPerClaim(height), [&](int32_t y, int) { averageRow(plan, y); });
}

}  // namespace kvl
