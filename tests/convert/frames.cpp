#include "convert/frames.h"

#include <sstream>

namespace kvl::test {

std::string describe(const Placement& p, const Frame& frame, const Bitmap& bitmap) {
  std::ostringstream text;
  text << "area " << p.area.cx << " x " << p.area.cy << " from " << p.source.x << ", " << p.source.y
       << " of " << bitmap.header()->biWidth << " x " << bitmap.header()->biHeight << " x "
       << bitmap.header()->biBitCount << " to " << p.frame.x << ", " << p.frame.y
       << " of frame with stride " << frame.stride() << ", height " << frame.height();
  return text.str();
}

}  // namespace kvl::test
