#include "warp/warp_kernels.h"

#include <algorithm>

namespace kvl {
namespace {

// The squared distances of a coordinate >= 0 from the centres of the pixel before its own, of its
// own and of the next. A coordinate in the first pixel has none before, and then the other two take
// the distances of their successors.
void squaredDistances(double coordinate, int32_t pixel, double* squares) {
  const double start = std::max(pixel - 1.0, 0.0);
  for (int k = 0; k < 3; ++k) {
    const double difference = (start + (k + 0.5)) - coordinate;
    squares[k] = difference * difference;
  }
  constexpr double outOfReach = 4;
  if (pixel == 0) squares[0] = outOfReach;
}

template <int32_t channels>
void splatRowScalar(const CellGrid& grid, const Projection& projection, double x, double y,
                    const uint8_t* pixels, int32_t count) {
  constexpr CellLayout layout = cellLayout(channels);
  for (int32_t i = 0; i < count; ++i, pixels += channels) {
    const Point2D at = projection(x + i, y);
    if (!(at.x >= grid.xLowest && at.x <= grid.xHighest && at.y >= grid.yLowest &&
          at.y <= grid.yHighest)) {
      continue;
    }
    const auto column = static_cast<int32_t>(at.x), row = static_cast<int32_t>(at.y);
    double squaresX[3], squaresY[3];
    squaredDistances(at.x, column, squaresX);
    squaredDistances(at.y, row, squaresY);
    uint32_t* cell = grid.first + ((ptrdiff_t{row} - 1 - grid.top) * grid.rowCells +
                                   (ptrdiff_t{column} - 1 - grid.left)) *
                                      layout.words;
    for (const double squareY : squaresY) {
      uint32_t* next = cell;
      for (const double squareX : squaresX) {
        const double w = 1 - (squareX + squareY);
        if (w > 0) {
          const auto weight = static_cast<uint32_t>(w * 256 + 0.5);
          for (int32_t c = 0; c < channels; ++c) next[c] += pixels[c] * weight;
          next[layout.weightAt] += weight;
        }
        next += layout.words;
      }
      cell += grid.rowCells * layout.words;
    }
  }
}

template <int32_t channels>
void resolveRowScalar(const uint32_t* cells, uint8_t* pixels, int32_t count) {
  constexpr CellLayout layout = cellLayout(channels);
  for (int32_t i = 0; i < count; ++i, cells += layout.words, pixels += channels) {
    const uint64_t weight = cells[layout.weightAt];
    if (weight == 0) continue;
    for (int32_t c = 0; c < channels; ++c) {
      pixels[c] = static_cast<uint8_t>(std::min<uint64_t>((cells[c] + weight / 2) / weight, 255));
    }
  }
}

template <int32_t channels>
constexpr WarpKernels scalarKernels{splatRowScalar<channels>, resolveRowScalar<channels>};

}  // namespace

WarpKernels warpKernels(InstructionSet level, int32_t channels) {
  WarpKernels kernels = channels == 1   ? scalarKernels<1>
                        : channels == 3 ? scalarKernels<3>
                                        : scalarKernels<4>;
  if (level >= InstructionSet::ssse3) addWarpSsse3(kernels, channels);
  if (level >= InstructionSet::avx2) {
    addWarpAvx2(kernels, channels);
    addResolveAvx2(kernels, channels);
  }
  return kernels;
}

}  // namespace kvl
