// The warp as its definition reads: whole grids, one sample after the other, no bands.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "kvl/kvl.h"

namespace kvl::test {

using Matrix = std::array<double, 16>;

// Rows from the top, without padding.
struct Pixels {
  int width, height, channels;
  std::vector<uint8_t> bytes;

  Pixels(int w, int h, int c)
      : width(w), height(h), channels(c), bytes(static_cast<size_t>(w) * h * c) {}
  uint8_t& at(int x, int y, int c) {
    return bytes[(static_cast<size_t>(y) * width + x) * channels + c];
  }
  uint8_t at(int x, int y, int c) const { return const_cast<Pixels*>(this)->at(x, y, c); }
};

// How weights are formed: as without vector bodies, as with them, or without any rounding (then the
// result is not rounded either, before it is stored).
enum class Weights { plain, single, exact };

struct ModelCall {
  RECT destinationRect;
  RECT sourceRect;
  Matrix matrix;
  int level = 0;
  bool automatic = false;
  Weights weights = Weights::plain;
};

struct ModelResult {
  Pixels picture;
  std::vector<double> exact;  // of the picture's channels, where weights are exact
  int level = 0;
  RECT box{};
  // The destination cuts the picture at a corner, so that the box depends on how that is found.
  bool cut = false;
};

// The matrix must be regular.
ModelResult warpModel(const Pixels& destination, const Pixels& source, const ModelCall& call);

Matrix product(const Matrix& a, const Matrix& b);
Matrix inverseOf(const Matrix& matrix);

}  // namespace kvl::test
