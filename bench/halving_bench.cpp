#include <cstring>

#include "benches.h"
#include "support/bench_image.h"
#include "support/swscale_bands.h"

#ifdef KVL_BENCH_LIBYUV
#include <libyuv.h>
#include <libyuv/scale_rgb.h>
#endif
#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {
namespace {

constexpr int halfWidth = width / 2, halfHeight = height / 2;
constexpr size_t pixels = size_t{width} * height;
constexpr size_t largest = 4 * pixels;

std::vector<uint8_t> source;
std::vector<uint8_t> result(largest / 4);
std::vector<uint8_t> peerResult(largest / 4);

struct Band {
  int first, rows;  // of the result
};

Band bandOf(int part, int parts) {
  const int first = halfHeight / 2 * part / parts * 2;
  return {first, halfHeight / 2 * (part + 1) / parts * 2 - first};
}

// Rows from the first of a plane, in bytes: of the source, and of a peer's result.
uint8_t* from(size_t plane, int stride, int row) {
  return source.data() + plane + static_cast<ptrdiff_t>(stride) * row;
}
uint8_t* to(size_t plane, int stride, int row) {
  return peerResult.data() + plane + static_cast<ptrdiff_t>(stride) * row;
}

void addOurs(const std::string& variant, const GUID* subtype, uint32_t flags) {
  addKvl(
      "halve", variant,
      [=] {
        KVL_ShrinkToHalf(subtype, source.data(), 0, {width, height}, result.data(), 0,
                         {halfWidth, halfHeight}, flags);
      },
      []() -> const std::vector<uint8_t>& { return result; }, {}, true, InstructionSet::ssse3);
}

void addLibyuv(const std::string& variant, const std::function<void(const Band&)>& call,
               const std::string& who = "libyuv") {
#ifdef KVL_BENCH_LIBYUV
  addPeer("halve", variant, who, [call](int part, int parts) { call(bandOf(part, parts)); });
#else
  (void)variant, (void)call, (void)who;
#endif
}

void addPackedSwscale([[maybe_unused]] const std::string& variant, [[maybe_unused]] int format,
                      [[maybe_unused]] int bytesPerPixel) {
#ifdef KVL_BENCH_SWSCALE
  const auto pixelFormat = static_cast<AVPixelFormat>(format);
  const int stride = width * bytesPerPixel;
  addSwscale("halve", variant,
             {pixelFormat, width, height, pixelFormat, halfWidth, halfHeight, SWS_AREA,
              [=](int row) {
                return SwsImage{{from(0, stride, row)}, {stride}};
              },
              [=](int row) {
                return SwsImage{{to(0, stride / 2, row)}, {stride / 2}};
              }});
#endif
}

#ifdef KVL_BENCH_LIBYUV
// One plane of the size of the image divided by `divisor`, with its first byte in either frame.
void scalePlane(const Band& band, size_t plane, size_t halfPlane, int divisor,
                libyuv::FilterMode filter) {
  const int stride = width / divisor, first = band.first / divisor, rows = band.rows / divisor;
  libyuv::ScalePlane(from(plane, stride, 2 * first), stride, stride, 2 * rows,
                     to(halfPlane, stride / 2, first), stride / 2, stride / 2, rows, filter);
}

void scaleYv12(const Band& band, libyuv::FilterMode filter) {
  scalePlane(band, 0, 0, 1, filter);
  scalePlane(band, pixels, pixels / 4, 2, filter);
  scalePlane(band, pixels * 5 / 4, pixels * 5 / 16, 2, filter);
}
#endif

void addPlanar() {
  constexpr uint32_t samples = 0, average = 2;
  addOurs("plane", &KVL_SUBTYPE_RGB8, average);
  addOurs("plane-samples", &KVL_SUBTYPE_RGB8, samples);
  addOurs("yv12", &KVL_SUBTYPE_YV12, average);
  addOurs("yv12-samples", &KVL_SUBTYPE_YV12, samples);
  addOurs("nv12", &KVL_SUBTYPE_NV12, average);
#ifdef KVL_BENCH_LIBYUV
  addLibyuv("plane", [](const Band& b) { scalePlane(b, 0, 0, 1, libyuv::kFilterBox); });
  addLibyuv("plane-samples", [](const Band& b) { scalePlane(b, 0, 0, 1, libyuv::kFilterNone); });
  addLibyuv("yv12", [](const Band& b) { scaleYv12(b, libyuv::kFilterBox); });
  addLibyuv("yv12-samples", [](const Band& b) { scaleYv12(b, libyuv::kFilterNone); });
  addLibyuv("nv12", [](const Band& b) {
    libyuv::NV12Scale(from(0, width, 2 * b.first), width, from(pixels, width, b.first), width,
                      width, 2 * b.rows, to(0, halfWidth, b.first), halfWidth,
                      to(pixels / 4, halfWidth, b.first / 2), halfWidth, halfWidth, b.rows,
                      libyuv::kFilterBox);
  });
#endif
#ifdef KVL_BENCH_SWSCALE
  addPackedSwscale("plane", AV_PIX_FMT_GRAY8, 1);
#endif
#ifdef KVL_BENCH_OPENCV
  addOpenCv("halve", "plane", [] {
    const cv::Mat in(height, width, CV_8UC1, source.data());
    cv::Mat out(halfHeight, halfWidth, CV_8UC1, peerResult.data());
    cv::resize(in, out, out.size(), 0, 0, cv::INTER_AREA);
  });
#endif
}

void addPacked() {
  addOurs("yuy2", &KVL_SUBTYPE_YUY2, 2);
  addOurs("rgb24", &KVL_SUBTYPE_RGB24, 2);
  addOurs("rgb32", &KVL_SUBTYPE_RGB32, 2);
#ifdef KVL_BENCH_LIBYUV
  addLibyuv("yuy2", [](const Band& b) {
    // It has no such routine: to planes, halved there, and back.
    static std::vector<uint8_t> planes(2 * pixels), halves(pixels / 2);
    uint8_t* y = planes.data() + 2 * ptrdiff_t{width} * b.first;
    uint8_t* u = planes.data() + pixels + ptrdiff_t{width} * b.first;
    uint8_t* v = u + pixels / 2;
    uint8_t* halfY = halves.data() + ptrdiff_t{halfWidth} * b.first;
    uint8_t* halfU = halves.data() + pixels / 4 + ptrdiff_t{halfWidth} / 2 * b.first;
    uint8_t* halfV = halfU + pixels / 8;
    libyuv::YUY2ToI422(from(0, 2 * width, 2 * b.first), 2 * width, y, width, u, halfWidth, v,
                       halfWidth, width, 2 * b.rows);
    libyuv::I422Scale(y, width, u, halfWidth, v, halfWidth, width, 2 * b.rows, halfY, halfWidth,
                      halfU, halfWidth / 2, halfV, halfWidth / 2, halfWidth, b.rows,
                      libyuv::kFilterBox);
    libyuv::I422ToYUY2(halfY, halfWidth, halfU, halfWidth / 2, halfV, halfWidth / 2,
                       to(0, width, b.first), width, halfWidth, b.rows);
  });
  // Moves the same bytes, but averages what are not neighbours in luma.
  addLibyuv(
      "yuy2",
      [](const Band& b) {
        libyuv::ARGBScale(from(0, 2 * width, 2 * b.first), 2 * width, halfWidth, 2 * b.rows,
                          to(0, width, b.first), width, halfWidth / 2, b.rows, libyuv::kFilterBox);
      },
      "libyuv-words");
  addLibyuv("rgb24", [](const Band& b) {
    libyuv::RGBScale(from(0, 3 * width, 2 * b.first), 3 * width, width, 2 * b.rows,
                     to(0, 3 * halfWidth, b.first), 3 * halfWidth, halfWidth, b.rows,
                     libyuv::kFilterBox);
  });
  addLibyuv("rgb32", [](const Band& b) {
    libyuv::ARGBScale(from(0, 4 * width, 2 * b.first), 4 * width, width, 2 * b.rows,
                      to(0, 4 * halfWidth, b.first), 4 * halfWidth, halfWidth, b.rows,
                      libyuv::kFilterBox);
  });
#endif
#ifdef KVL_BENCH_SWSCALE
  addPackedSwscale("yuy2", AV_PIX_FMT_YUYV422, 2);
  addPackedSwscale("rgb24", AV_PIX_FMT_BGR24, 3);
  addPackedSwscale("rgb32", AV_PIX_FMT_BGRA, 4);
#endif
#ifdef KVL_BENCH_OPENCV
  for (const int channels : {3, 4}) {
    addOpenCv("halve", channels == 3 ? "rgb24" : "rgb32", [channels] {
      const cv::Mat in(height, width, CV_8UC(channels), source.data());
      cv::Mat out(halfHeight, halfWidth, CV_8UC(channels), peerResult.data());
      cv::resize(in, out, out.size(), 0, 0, cv::INTER_AREA);
    });
  }
#endif
}

void addFields() {
  static const BITMAPINFOHEADER size = header();
  addKvl(
      "combine-fields", "rgb24",
      [] { KVL_VoeCombineHalfFramesLpbi(&size, result.data(), source.data(), 1); },
      []() -> const std::vector<uint8_t>& { return result; });
}

}  // namespace

void addHalving() {
  source = photoLike(4);
  result.resize(largest);
  peerResult.resize(largest);
  addPlanar();
  addPacked();
  addFields();
}

}  // namespace kvl::bench
