#include "benches.h"
#include "support/bench_image.h"
#include "support/swscale_bands.h"

#ifdef KVL_BENCH_LIBYUV
#include <libyuv.h>
#endif
#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {
namespace {

constexpr size_t pixels = size_t{width} * height;
constexpr int halfWidth = width / 2;
constexpr int rgbStride = 3 * width;

std::vector<uint8_t> source;
std::vector<uint8_t> result(3 * pixels);
std::vector<uint8_t> peerResult(3 * pixels);
ColorConversionParams params;

struct Band {
  int first, rows;
};

Band bandOf(int part, int parts) {
  const int first = height / 2 * part / parts * 2;
  return {first, height / 2 * (part + 1) / parts * 2 - first};
}

uint8_t* luma(int row) {
  return source.data() + ptrdiff_t{width} * row;
}
uint8_t* chroma(size_t plane, int stride, int row) {
  return source.data() + plane + static_cast<ptrdiff_t>(stride) * row;
}
uint8_t* rgb(int row) {
  return peerResult.data() + ptrdiff_t{rgbStride} * row;
}

void addOurs(const std::string& variant, const GUID* subtype) {
  addKvl(
      "yuv-to-rgb24", variant,
      [=] {
        KVL_ConvertYUVToRgb24(subtype, source.data(), 0, {width, height}, result.data(), -rgbStride,
                              &params);
      },
      []() -> const std::vector<uint8_t>& { return result; }, {}, true);
}

#ifdef KVL_BENCH_LIBYUV
void addLibyuv(const std::string& variant, const std::function<void(const Band&)>& call) {
  addPeer("yuv-to-rgb24", variant, "libyuv",
          [call](int part, int parts) { call(bandOf(part, parts)); });
}

void addLibyuvRows() {
  addLibyuv("i420", [](const Band& b) {
    libyuv::I420ToRGB24(luma(b.first), width, chroma(pixels, halfWidth, b.first / 2), halfWidth,
                        chroma(pixels * 5 / 4, halfWidth, b.first / 2), halfWidth, rgb(b.first),
                        rgbStride, width, b.rows);
  });
  addLibyuv("nv12", [](const Band& b) {
    libyuv::NV12ToRGB24(luma(b.first), width, chroma(pixels, width, b.first / 2), width,
                        rgb(b.first), rgbStride, width, b.rows);
  });
  addLibyuv("yv16", [](const Band& b) {
    libyuv::I422ToRGB24(luma(b.first), width, chroma(pixels * 3 / 2, halfWidth, b.first), halfWidth,
                        chroma(pixels, halfWidth, b.first), halfWidth, rgb(b.first), rgbStride,
                        width, b.rows);
  });
  addLibyuv("yv24", [](const Band& b) {
    libyuv::I444ToRGB24(luma(b.first), width, chroma(2 * pixels, width, b.first), width,
                        chroma(pixels, width, b.first), width, rgb(b.first), rgbStride, width,
                        b.rows);
  });
  // To 32 bits first, a row at a time: it has no direct way.
  for (const bool yuy2 : {true, false}) {
    addLibyuv(yuy2 ? "yuy2" : "uyvy", [yuy2](const Band& b) {
      std::vector<uint8_t> row(4 * width);
      for (int y = b.first; y < b.first + b.rows; ++y) {
        (yuy2 ? libyuv::YUY2ToARGB : libyuv::UYVYToARGB)(luma(2 * y), 2 * width, row.data(),
                                                         4 * width, width, 1);
        libyuv::ARGBToRGB24(row.data(), 4 * width, rgb(y), rgbStride, width, 1);
      }
    });
  }
}
#endif

#ifdef KVL_BENCH_SWSCALE
void addSwscaleRow(const std::string& variant, AVPixelFormat format,
                   const std::function<SwsImage(int)>& image) {
  addSwscale(
      "yuv-to-rgb24", variant,
      {format, width, height, AV_PIX_FMT_BGR24, width, height, SWS_POINT, image, [](int row) {
         return SwsImage{{rgb(row)}, {rgbStride}};
       }});
}

void addSwscaleRows() {
  addSwscaleRow("i420", AV_PIX_FMT_YUV420P, [](int row) {
    return SwsImage{
        {luma(row), chroma(pixels, halfWidth, row / 2), chroma(pixels * 5 / 4, halfWidth, row / 2)},
        {width, halfWidth, halfWidth}};
  });
  addSwscaleRow("nv12", AV_PIX_FMT_NV12, [](int row) {
    return SwsImage{{luma(row), chroma(pixels, width, row / 2)}, {width, width}};
  });
  addSwscaleRow("yv16", AV_PIX_FMT_YUV422P, [](int row) {
    return SwsImage{
        {luma(row), chroma(pixels * 3 / 2, halfWidth, row), chroma(pixels, halfWidth, row)},
        {width, halfWidth, halfWidth}};
  });
  addSwscaleRow("yv24", AV_PIX_FMT_YUV444P, [](int row) {
    return SwsImage{{luma(row), chroma(2 * pixels, width, row), chroma(pixels, width, row)},
                    {width, width, width}};
  });
  const auto packed = [](int row) { return SwsImage{{luma(2 * row)}, {2 * width}}; };
  addSwscaleRow("yuy2", AV_PIX_FMT_YUYV422, packed);
  addSwscaleRow("uyvy", AV_PIX_FMT_UYVY422, packed);
}
#endif

#ifdef KVL_BENCH_OPENCV
void addOpenCvRows() {
  const auto add = [](const char* variant, int rows, int type, int code) {
    addOpenCv("yuv-to-rgb24", variant, [=] {
      const cv::Mat in(rows, width, type, source.data());
      cv::Mat out(height, width, CV_8UC3, peerResult.data());
      cv::cvtColor(in, out, code);
    });
  };
  add("i420", height * 3 / 2, CV_8UC1, cv::COLOR_YUV2BGR_I420);
  add("nv12", height * 3 / 2, CV_8UC1, cv::COLOR_YUV2BGR_NV12);
  add("yuy2", height, CV_8UC2, cv::COLOR_YUV2BGR_YUY2);
  add("uyvy", height, CV_8UC2, cv::COLOR_YUV2BGR_UYVY);
}
#endif

}  // namespace

void addYuvToRgb() {
  source = photoLike(3);
  KVL_FillColorConversionParams(&params, KVL_MATRIX_BT601, KVL_RANGE_STUDIO);
  addOurs("i420", &KVL_SUBTYPE_I420);
  addOurs("nv12", &KVL_SUBTYPE_NV12);
  addOurs("yv16", &KVL_SUBTYPE_YV16);
  addOurs("yv24", &KVL_SUBTYPE_YV24);
  addOurs("yuy2", &KVL_SUBTYPE_YUY2);
  addOurs("uyvy", &KVL_SUBTYPE_UYVY);
#ifdef KVL_BENCH_LIBYUV
  addLibyuvRows();
#endif
#ifdef KVL_BENCH_SWSCALE
  addSwscaleRows();
#endif
#ifdef KVL_BENCH_OPENCV
  addOpenCvRows();
#endif
}

}  // namespace kvl::bench
