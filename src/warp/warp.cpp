#include "warp/warp.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>

#include "core/parallel.h"
#include "core/platform.h"
#include "warp/bands.h"
#include "warp/enlarge.h"
#include "warp/host_image.h"
#include "warp/source_box.h"

namespace kvl {
namespace {

constexpr uint32_t chooseLevelFlag = 1;

struct ReleaseMemory {
  void operator()(uint8_t* block) const { g_platform.release(block); }
};
using Memory = std::unique_ptr<uint8_t[], ReleaseMemory>;

Memory allocate(size_t bytes) {
  return Memory(static_cast<uint8_t*>(g_platform.allocate(bytes)));
}

bool hasPixels(const BITMAPINFOHEADER& header) {
  return header.biHeight != 0 && header.biHeight != INT32_MIN && header.biWidth > 0;
}

bool isRegion(const RECT& r) {
  return r.left >= 0 && r.left < r.right && r.top >= 0 && r.top < r.bottom;
}

// 1, 3 or 4; 0 for what cannot be warped.
int32_t bytesPerPixel(const BITMAPINFOHEADER& header) {
  const int32_t bytes = header.biBitCount / 8;
  return bytes == 1 || bytes == 3 || bytes == 4 ? bytes : 0;
}

// The pixels whose centres may count: the box as it was before it was rounded outwards.
RECT samplesOf(const SourceBox& box) {
  const auto within = [](double value, int32_t lowest, int32_t highest) {
    if (!(value > lowest)) return lowest;
    return value < highest ? static_cast<int32_t>(value) : highest;
  };
  const RECT& whole = box.whole;
  RECT samples;
  samples.left = within(std::floor(box.exact.left), whole.left, whole.right);
  samples.top = within(std::floor(box.exact.top), whole.top, whole.bottom);
  samples.right = within(std::floor(box.exact.right) + 1, whole.left, whole.right);
  samples.bottom = within(std::floor(box.exact.bottom) + 1, whole.top, whole.bottom);
  return samples;
}

struct Pictures {
  PictureRows destination;
  int32_t width;  // of the destination
  PictureRows source;
  int32_t channels;
};

// Draws the box of the source itself.
void drawSource(const Pictures& pictures, const SourceBox& box, const Matrix4x4& matrix,
                const Matrix4x4& inverse, int threads) {
  const RECT samples = samplesOf(box);
  if (samples.left >= samples.right || samples.top >= samples.bottom) return;
  const Projection forward(matrix);
  const BandPlan bands(forward, samples, pictures.width, pictures.destination.height,
                       pictures.channels, threads);
  const Memory cells = allocate(bands.cellBytes());
  if (!cells) return;
  bands.draw({pictures.source, box.whole, samples, inverse, forward, pictures.destination,
              pictures.width, pictures.channels},
             cells.get());
}

// Draws the box enlarged by 2^level, with the host's image to hold it.
void drawEnlarged(const Pictures& pictures, const SourceBox& box, int level,
                  const Matrix4x4& matrix, const Matrix4x4& inverse,
                  KvlWarpHostAllocator* allocator, int threads) {
  const double factor = std::ldexp(1.0, level);
  Matrix4x4 forward = scaling4x4(1 / factor);
  postMultiply(forward, translation4x4(box.whole.left, box.whole.top));
  postMultiply(forward, matrix);
  Matrix4x4 back = identity4x4();
  postMultiply(back, inverse);
  postMultiply(back, translation4x4(-double{1} * box.whole.left, -double{1} * box.whole.top));
  postMultiply(back, scaling4x4(factor));

  RECT enlargedBox = {};
  enlargedBox.right = static_cast<int32_t>(box.width() << level);
  enlargedBox.bottom = static_cast<int32_t>(box.height() << level);
  const Projection projection(forward);
  const BandPlan bands(projection, enlargedBox, pictures.width, pictures.destination.height,
                       pictures.channels, threads);
  const Memory cells = allocate(bands.cellBytes());
  if (!cells) return;
  const HostImage image(allocator, pictures.channels, enlargedBox.right, enlargedBox.bottom,
                        threads);
  if (!image.usable()) return;
  const Enlargement enlargement{&pictures.source, box.whole, &image.rows(), pictures.channels,
                                level};
  const Memory scratch = allocate(enlargeScratchBytes(enlargement, threads));
  if (!scratch) return;
  enlarge(enlargement, scratch.get());
  bands.draw({image.rows(), enlargedBox, enlargedBox, back, projection, pictures.destination,
              pictures.width, pictures.channels},
             cells.get());
}

}  // namespace

void warpPixels(const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                const RECT* destinationRect, const BITMAPINFOHEADER* sourceHeader,
                const uint8_t* sourceBits, const RECT* sourceRect, const double* matrix,
                KvlWarpHostAllocator* allocator, int32_t supersampleLevel, uint32_t warpFlags) {
  if (sourceHeader == nullptr || sourceBits == nullptr || destinationHeader == nullptr ||
      destinationBits == nullptr || matrix == nullptr || allocator == nullptr ||
      destinationRect == nullptr || sourceRect == nullptr) {
    return;
  }
  if (!hasPixels(*sourceHeader) || !hasPixels(*destinationHeader)) return;
  Matrix4x4 forward;
  std::copy(matrix, matrix + forward.size(), forward.begin());
  Matrix4x4 inverse = forward;
  if (!invert(inverse)) return;
  const int32_t channels = bytesPerPixel(*destinationHeader);
  if (channels == 0 || !isRegion(*sourceRect) || !isRegion(*destinationRect)) return;

  // The source is only read; one type of rows serves both.
  const Pictures pictures{PictureRows(*destinationHeader, destinationBits),
                          destinationHeader->biWidth,
                          PictureRows(*sourceHeader, const_cast<uint8_t*>(sourceBits)), channels};
  if (pictures.destination.stride == 0 || !pictures.destination.isAddressable() ||
      !pictures.source.isAddressable()) {
    return;
  }
  RECT region = *sourceRect;
  if (sourceHeader->biWidth < region.right) region.right = sourceHeader->biWidth;
  if (pictures.source.height < region.bottom) {
    region.bottom = static_cast<int32_t>(pictures.source.height);
  }
  if (!isRegion(region)) return;
  if (int64_t{region.right} * channels > pictures.source.stride) return;

  adoptTeamSize();
  const int threads = omp_get_max_threads();
  const Projection projection(forward);
  const SourceBox box = findSourceBox(region, *destinationRect, projection, inverse);
  if (box.width() <= 0 || box.height() <= 0) return;
  const int level =
      chooseLevel(box, projection, supersampleLevel, (warpFlags & chooseLevelFlag) != 0, channels);
  if (level == 0) {
    drawSource(pictures, box, forward, inverse, threads);
  } else {
    drawEnlarged(pictures, box, level, forward, inverse, allocator, threads);
  }
}

}  // namespace kvl
