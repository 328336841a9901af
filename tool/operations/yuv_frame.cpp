#include "operations/yuv_frame.h"

#include <algorithm>
#include <array>
#include <new>

namespace kvl::tool {
namespace {

// A plane as the library has it: the index of FFmpeg's plane, bytes of a row and rows.
struct Plane {
  int index;
  size_t rowBytes;
  int rows;
};

std::vector<Plane> planesOf(const YuvLayout& layout, Size size) {
  const size_t half = (static_cast<size_t>(size.width) + 1) / 2, even = 2 * half;
  const int rows = size.height, halfRows = (rows + 1) / 2;
  switch (layout.pixels) {
    case AV_PIX_FMT_YUYV422:
      return {{0, 2 * even, rows}};
    case AV_PIX_FMT_NV12:
      return {{0, even, rows}, {1, even, halfRows}};
    case AV_PIX_FMT_YUV420P:
      return {{0, even, rows}, {2, half, halfRows}, {1, half, halfRows}};
    case AV_PIX_FMT_YUV422P:
      return {{0, even, rows}, {2, half, rows}, {1, half, rows}};
    default:
      return {{0, even, rows}, {2, even, rows}, {1, even, rows}};
  }
}

Frame allocatedFrame(const YuvLayout& layout, Size size) {
  Frame frame(allocated(av_frame_alloc()));
  frame->format = layout.pixels;
  frame->width = size.width;
  frame->height = size.height;
  frame->colorspace = AVCOL_SPC_SMPTE170M;
  frame->color_range = AVCOL_RANGE_MPEG;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  return frame;
}

}  // namespace

const std::vector<YuvLayout>& yuvLayouts() {
  static const std::vector<YuvLayout> layouts = {
      {"yuy2", &KVL_SUBTYPE_YUY2, AV_PIX_FMT_YUYV422},
      {"yv12", &KVL_SUBTYPE_YV12, AV_PIX_FMT_YUV420P},
      {"yv16", &KVL_SUBTYPE_YV16, AV_PIX_FMT_YUV422P},
      {"yv24", &KVL_SUBTYPE_YV24, AV_PIX_FMT_YUV444P},
      {"nv12", &KVL_SUBTYPE_NV12, AV_PIX_FMT_NV12},
  };
  return layouts;
}

const YuvLayout* yuvLayout(const std::string& name) {
  const auto found = std::ranges::find(yuvLayouts(), name, &YuvLayout::name);
  return found == yuvLayouts().end() ? nullptr : &*found;
}

size_t yuvFrameBytes(const YuvLayout& layout, Size size) {
  size_t bytes = 0;
  for (const Plane& plane : planesOf(layout, size)) {
    bytes += plane.rowBytes * static_cast<size_t>(plane.rows);
  }
  return bytes;
}

void YuvFrames::fromDib(const Dib& picture, const YuvLayout& layout, std::vector<uint8_t>& bytes) {
  const Frame frame = allocatedFrame(layout, picture.size());
  colours_.fromDib(picture, *frame);
  bytes.resize(yuvFrameBytes(layout, picture.size()));
  uint8_t* to = bytes.data();
  for (const Plane& plane : planesOf(layout, picture.size())) {
    const uint8_t* from = frame->data[plane.index];
    for (int y = 0; y < plane.rows; ++y, from += frame->linesize[plane.index]) {
      to = std::copy_n(from, plane.rowBytes, to);
    }
  }
}

void YuvFrames::toDib(const std::vector<uint8_t>& bytes, const YuvLayout& layout, Dib& picture) {
  ColorConversionParams matrix;
  KVL_FillColorConversionParams(&matrix, KVL_MATRIX_BT601, KVL_RANGE_STUDIO);
  const SIZE size = {picture.header.biWidth, picture.header.biHeight};
  KVL_ConvertYUVToRgb24(layout.subtype, bytes.data(), 0, size, picture.bits.data(),
                        static_cast<int32_t>(picture.stride()), &matrix);
}

}  // namespace kvl::tool
