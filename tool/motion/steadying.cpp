#include "motion/steadying.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kvl/kvl.h"

namespace kvl::tool {
namespace {

// The warp asks for images of the host only where it enlarges, which a move does not.
int32_t refuseImage(KvlWarpHostAllocator*, KvlWarpHostImage**, const KvlWarpImageRequest*, int32_t,
                    const char*, int32_t) {
  return -1;
}

// Moved by whole pixels, the edge repeated.
void moveWhole(const Dib& picture, int32_t right, int32_t down, Dib& result) {
  const auto [width, height] = picture.size();
  result.resize(picture.size());
  const int32_t offset = std::clamp(right, -width + 1, width - 1);
  const int32_t kept = width - std::abs(offset);
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* from = picture.rowFromTop(std::clamp(y - down, 0, height - 1));
    uint8_t* to = result.rowFromTop(y);
    const uint8_t* edge = offset > 0 ? from : from + size_t{3} * static_cast<size_t>(width - 1);
    const int32_t firstOfEdge = offset > 0 ? 0 : kept;
    std::memcpy(to + size_t{3} * static_cast<size_t>(std::max(offset, 0)),
                from + size_t{3} * static_cast<size_t>(std::max(-offset, 0)),
                size_t{3} * static_cast<size_t>(kept));
    for (int32_t x = firstOfEdge; x < firstOfEdge + std::abs(offset); ++x) {
      std::memcpy(to + size_t{3} * static_cast<size_t>(x), edge, 3);
    }
  }
}

// What the straight line that fits frames [first, last] of the path best has at frame i. An even pan
// stays what it is, up to the ends of the clip.
Displacement levelAt(const std::vector<Displacement>& path, int64_t i, int64_t first,
                     int64_t last) {
  const auto count = static_cast<double>(last - first + 1);
  const double middle = static_cast<double>(first + last) / 2;
  Displacement sum;
  Displacement slope;
  double squares = 0;
  for (int64_t j = first; j <= last; ++j) {
    const Displacement& at = path[static_cast<size_t>(j)];
    const double offset = static_cast<double>(j) - middle;
    sum.x += at.x;
    sum.y += at.y;
    slope.x += offset * at.x;
    slope.y += offset * at.y;
    squares += offset * offset;
  }
  const double along = squares > 0 ? (static_cast<double>(i) - middle) / squares : 0;
  return {sum.x / count + along * slope.x, sum.y / count + along * slope.y};
}

}  // namespace

std::vector<Displacement> steadyingMoves(const std::vector<Displacement>& moved, int radius) {
  std::vector<Displacement> path(1);
  for (const Displacement& step : moved) {
    path.push_back({path.back().x + step.x, path.back().y + step.y});
  }
  const auto frames = static_cast<int64_t>(path.size());
  std::vector<Displacement> moves;
  for (int64_t i = 0; i < frames; ++i) {
    const Displacement& at = path[static_cast<size_t>(i)];
    const Displacement level =
        levelAt(path, i, std::max<int64_t>(i - radius, 0), std::min(i + radius, frames - 1));
    moves.push_back({level.x - at.x, level.y - at.y});
  }
  return moves;
}

void movePicture(const Dib& picture, Displacement by, Dib& result) {
  const auto [width, height] = picture.size();
  const auto right = static_cast<int32_t>(std::lround(std::clamp(by.x, -1.0 * width, 1.0 * width)));
  const auto down =
      static_cast<int32_t>(std::lround(std::clamp(by.y, -1.0 * height, 1.0 * height)));
  moveWhole(picture, right, down, result);
  if (by.x == right && by.y == down) return;
  const double matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, by.x, by.y, 0, 1};
  const RECT whole{0, 0, width, height};
  const KvlWarpHostAllocatorOperations operations{nullptr, nullptr, nullptr, refuseImage};
  KvlWarpHostAllocator allocator{&operations};
  KVL_CalcQvWarpPixel(&result.header, result.bits.data(), &whole, &picture.header,
                      picture.bits.data(), &whole, matrix, &allocator, 0, 0);
}

}  // namespace kvl::tool
