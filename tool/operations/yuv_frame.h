// A picture as a frame of one of the library's YUV layouts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "colour_conversion.h"
#include "dib.h"

namespace kvl::tool {

struct YuvLayout {
  const char* name;  // lower case
  const GUID* subtype;
  AVPixelFormat pixels;
};

// YUY2, YV12, YV16, YV24 and NV12.
const std::vector<YuvLayout>& yuvLayouts();

// The layout of that name, or null.
const YuvLayout* yuvLayout(const std::string& name);

// Frames are BT.601, studio range: what is done to them does not depend on it, and pictures go there
// and back.
class YuvFrames {
 public:
  // The bytes of the picture as the library lays them out, planes without gaps.
  void fromDib(const Dib& picture, const YuvLayout& layout, std::vector<uint8_t>& bytes);

  // By the library itself. `picture` has the frame's size.
  static void toDib(const std::vector<uint8_t>& bytes, const YuvLayout& layout, Dib& picture);

 private:
  ColourConverter colours_;
};

// Bytes of a frame.
size_t yuvFrameBytes(const YuvLayout& layout, Size size);

}  // namespace kvl::tool
