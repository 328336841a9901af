// Draws a projected picture, one band of destination rows after the other.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvl/kvl.h"
#include "warp/matrix4x4.h"
#include "warp/picture_rows.h"

namespace kvl {

struct Drawing {
  PictureRows source;
  RECT box;      // of the source, in whose terms the matrices are
  RECT samples;  // the part of it whose pixels are drawn
  Matrix4x4 inverse;
  Projection forward;
  PictureRows destination;
  int32_t width;  // of the destination
  int32_t channels;
};

// A thread owns the cells of the destination rows of its band, so that no two threads add to one
// and no band needs more memory than a cache. Where the projection is too wild to tell which
// source pixels a band needs, each thread has one large band and looks at all of them.
class BandPlan {
 public:
  BandPlan(const Projection& forward, const RECT& samples, int32_t width, int64_t height,
           int32_t channels, int threads);

  // For all threads together.
  size_t cellBytes() const { return threads_ * bytesPerThread_; }

  void draw(const Drawing& drawing, uint8_t* cells) const;

 private:
  int32_t channels_;
  size_t threads_;
  double wSign_;  // 0 where the projection is too wild
  int32_t rowsPerBand_;
  size_t bytesPerThread_;
};

}  // namespace kvl
