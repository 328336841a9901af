// Frames by media subtype: which there are, and the memory that they take.
#pragma once

#include "strided_rows.h"

namespace kvl::fuzz {

constexpr auto invalidArgument = static_cast<int32_t>(0x80070057);
constexpr auto notImplemented = static_cast<int32_t>(0x80004001);

enum class Format {
  yuy2,
  uyvy,
  yvyu,
  yv12,
  iyuv,
  i420,
  nv12,
  yv16,
  yv24,
  rgb24,
  rgb32,
  rgb8,
  none
};

struct Layout {
  Format format;
  GUID guid;

  bool isPacked() const { return format <= Format::yvyu; }
  bool isPlanar() const { return format >= Format::yv12 && format <= Format::yv24; }
  bool isYuv() const { return isPacked() || isPlanar(); }
  bool canBeHalved() const {
    return format != Format::none && format != Format::uyvy && format != Format::yvyu &&
           format != Format::iyuv && format != Format::i420;
  }

  // The bytes of a row's pixels, where they do not lie in planes.
  int64_t packedRow(int64_t width) const {
    switch (format) {
      case Format::rgb24:
        return 3 * width;
      case Format::rgb32:
        return 4 * width;
      case Format::rgb8:
        return width;
      default:
        return (width + 1) / 2 * 4;
    }
  }
  // What a stride of 0 or less stands for.
  int64_t packedStride(int64_t width) const {
    switch (format) {
      case Format::rgb24:
        return 3 * (width + 1) & ~int64_t{3};
      case Format::rgb32:
        return 4 * width;
      case Format::rgb8:
        return (width + 3) & ~int64_t{3};
      default:
        return (2 * width + 3) & ~int64_t{3};
    }
  }
  // Of a frame in planes, which has no padding.
  int64_t lumaBytes(SIZE size) const { return (int64_t{size.cx} + 1) / 2 * 2 * size.cy; }
  int64_t planarBytes(SIZE size) const {
    const int64_t width = (int64_t{size.cx} + 1) / 2 * 2, rows = size.cy, half = (rows + 1) / 2;
    switch (format) {
      case Format::yv16:
        return width * rows * 2;
      case Format::yv24:
        return width * rows * 3;
      default:
        return width * rows + width * half;
    }
  }
  Fit planarFit(SIZE size) const {
    const Fit luma = fitOf((int64_t{size.cx} + 1) / 2 * 2, size.cy);
    return luma == Fit::beyondAddresses ? luma : fitOf(planarBytes(size), 1);
  }
};

inline Layout layoutOf(Case& test) {
  const Layout layouts[] = {{Format::yuy2, KVL_SUBTYPE_YUY2},   {Format::uyvy, KVL_SUBTYPE_UYVY},
                            {Format::yvyu, KVL_SUBTYPE_YVYU},   {Format::yv12, KVL_SUBTYPE_YV12},
                            {Format::iyuv, KVL_SUBTYPE_IYUV},   {Format::i420, KVL_SUBTYPE_I420},
                            {Format::nv12, KVL_SUBTYPE_NV12},   {Format::yv16, KVL_SUBTYPE_YV16},
                            {Format::yv24, KVL_SUBTYPE_YV24},   {Format::rgb24, KVL_SUBTYPE_RGB24},
                            {Format::rgb32, KVL_SUBTYPE_RGB32}, {Format::rgb8, KVL_SUBTYPE_RGB8}};
  Layout layout = layouts[test.byte() % std::size(layouts)];
  if (test.oneIn(32)) {
    // One bit of another subtype, and so no known one.
    layout.format = Format::none;
    layout.guid.Data4[test.byte() % 8] ^= static_cast<uint8_t>(1 << test.byte() % 8);
  }
  return layout;
}

}  // namespace kvl::fuzz
