// Which source pixels a warp uses, and how finely they are subdivided.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"
#include "warp/matrix4x4.h"
#include "warp/visible_region.h"

namespace kvl {

struct SourceBox {
  // As found, and rounded outwards within the source rectangle.
  Box exact;
  RECT whole;

  int64_t width() const { return int64_t{whole.right} - whole.left; }
  int64_t height() const { return int64_t{whole.bottom} - whole.top; }
};

// Both rectangles have left < right and top < bottom.
SourceBox findSourceBox(const RECT& source, const RECT& destination, const Projection& forward,
                        const Matrix4x4& inverse);

// The power of two by which the box is enlarged: the caller's choice, or one so large that the
// subdivided pixels' images have no gaps, and small enough for `maxEnlargedBytes`.
int chooseLevel(const SourceBox& box, const Projection& forward, int32_t wanted, bool automatic,
                int32_t bytesPerPixel);

constexpr int64_t maxEnlargedBytes = 200 << 20;

}  // namespace kvl
