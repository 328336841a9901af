// The media subtypes that name the layout of a frame.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

enum class Subtype { yuy2, uyvy, yvyu, yv12, iyuv, nv12, yv16, yv24, rgb24, rgb32, rgb8, unknown };

// Unknown also for a null pointer. I420 and IYUV are one.
Subtype subtypeOf(const GUID* guid);

// The sizes of a planar YUV frame's planes, which follow each other without a gap. All in bytes and
// rows; the chroma of NV12 is one plane of pairs.
struct PlanarLayout {
  int64_t lumaStride;
  int64_t lumaRows;
  int64_t chromaStride;
  int64_t chromaRows;
  int chromaPlanes;

  int64_t firstChroma() const { return lumaStride * lumaRows; }
  int64_t chromaPlane() const { return chromaStride * chromaRows; }
  int64_t bytes() const { return firstChroma() + chromaPlane() * chromaPlanes; }
};

// For a size above 0 and one of the planar subtypes.
PlanarLayout planarLayout(Subtype subtype, SIZE size);

// Whether a frame of that layout at `bits` can exist.
bool isAddressable(const void* bits, const PlanarLayout& layout);

// Status codes.
constexpr int32_t statusOk = 0;
constexpr int32_t statusInvalidArgument = static_cast<int32_t>(0x80070057);
constexpr int32_t statusNotImplemented = static_cast<int32_t>(0x80004001);

}  // namespace kvl
