#include "benches.h"
#include "support/bench_image.h"
#include "support/swscale_bands.h"

#include <cstring>

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
constexpr SIZE size = {width, height};

// Packed bitmaps, rows top-down so that peers can take them as they are.
std::vector<uint8_t> bitmap24, bitmap32;
std::vector<uint8_t> result(4 * pixels);
std::vector<uint8_t> peerResult(4 * pixels);
ColorConversionParams colours;

const std::vector<uint8_t>& ourResult() {
  return result;
}

std::vector<uint8_t> packedBitmap(int channels) {
  const std::vector<uint8_t> rows = photoLike(channels);
  BITMAPINFOHEADER h = header(static_cast<uint16_t>(8 * channels));
  h.biHeight = -h.biHeight;
  std::vector<uint8_t> bytes(sizeof h + rows.size());
  std::memcpy(bytes.data(), &h, sizeof h);
  std::memcpy(bytes.data() + sizeof h, rows.data(), rows.size());
  return bytes;
}

const BITMAPINFOHEADER* headerOf(const std::vector<uint8_t>& bitmap) {
  return reinterpret_cast<const BITMAPINFOHEADER*>(bitmap.data());
}

const uint8_t* rgb(int row) {
  return bitmap24.data() + sizeof(BITMAPINFOHEADER) + ptrdiff_t{rgbStride} * row;
}

uint8_t* peerRow(size_t plane, int stride, int row) {
  return peerResult.data() + plane + static_cast<ptrdiff_t>(stride) * row;
}

void addOurs(const std::string& job, const std::string& variant,
             const std::function<void()>& call) {
  addKvl(job, variant, call, ourResult, {}, true, InstructionSet::ssse3);
}

void addPlanes(const std::string& variant, uint32_t mode) {
  const bool halved = mode == KVL_RTY_420_BOX || mode == KVL_RTY_420_VERTICAL;
  const int chromaWidth = mode == KVL_RTY_444 ? width : halfWidth;
  RtyConvertRecord record{};
  KVL_SetRtyConvertColors(&record, &colours);
  record.mode = mode;
  record.width = record.yStride = record.scratchRowSize = width;
  record.height = height;
  record.srcStride = rgbStride;
  record.uStride = record.vStride = static_cast<uint32_t>(chromaWidth);
  record.uPlaneOffset = pixels;
  record.vPlaneOffset = static_cast<uint32_t>(pixels + static_cast<size_t>(chromaWidth) *
                                                           (halved ? height / 2 : height));
  // More slices than the machine has threads.
  static std::vector<uint8_t> scratch(2 * 64 * 2 * width);
  record.scratchA = scratch.data();
  record.scratchB = scratch.data() + scratch.size() / 2;
  addOurs("rgb24-to-planes", variant, [record] { KVL_RtyConvert(&record, rgb(0), result.data()); });
}

void addOursAll() {
  addOurs("rgb24-to-packed", "yuy2", [] {
    KVL_ConvertRgb24ToYUY2(rgb(0) + (height - 1) * rgbStride, -rgbStride, size, result.data(),
                           2 * width, size, {0, 0}, {0, 0}, size, &colours);
  });
  addOurs("rgb24-to-packed", "uyvy", [] {
    KVL_CopyRgbBmpToYUYVFrame(headerOf(bitmap24), {0, 0}, result.data(), size, 2 * width, {0, 0},
                              size, 1);
  });
  addOurs("rgb32-to-packed", "uyvy", [] {
    KVL_CopyRgbBmpToYUYVFrame(headerOf(bitmap32), {0, 0}, result.data(), size, 2 * width, {0, 0},
                              size, 1);
  });
  addOurs("rgb24-to-y", "y", [] {
    KVL_ConvertRgb24ToY(rgb(0), rgbStride, result.data(), width, width, height, &colours);
  });
  addPlanes("444", KVL_RTY_444);
  addPlanes("422", KVL_RTY_422);
  addPlanes("420", KVL_RTY_420_BOX);
  addPlanes("420-vertical", KVL_RTY_420_VERTICAL);
  addOurs("rgb24-to-rgb32", "frame", [] {
    KVL_CopyRgbBmpToRGBFrame(headerOf(bitmap24), {0, 0}, result.data(), {0, 0}, 4 * width, height,
                             size);
  });
  addOurs("rgb32-to-rgb32", "frame", [] {
    KVL_CopyRgbBmpToRGBFrame(headerOf(bitmap32), {0, 0}, result.data(), {0, 0}, 4 * width, height,
                             size);
  });
}

#ifdef KVL_BENCH_LIBYUV
// One row, or pair of rows, of a conversion from 32 bits: where libyuv has no direct way, a strip is
// widened first.
void addByStrips(const std::string& job, const std::string& variant, int stripRows,
                 const std::function<void(const uint8_t* argb, int row, int rows)>& convert) {
  addPeer(job, variant, "libyuv", [=](int part, int parts) {
    const int first = height / 2 * part / parts * 2, last = height / 2 * (part + 1) / parts * 2;
    std::vector<uint8_t> strip(static_cast<size_t>(4 * width * stripRows));
    for (int row = first; row < last; row += stripRows) {
      const int rows = std::min(stripRows, last - row);
      libyuv::RGB24ToARGB(rgb(row), rgbStride, strip.data(), 4 * width, width, rows);
      convert(strip.data(), row, rows);
    }
  });
}

void addByBands(const std::string& job, const std::string& variant,
                const std::function<void(int row, int rows)>& convert) {
  addPeer(job, variant, "libyuv", [=](int part, int parts) {
    const int first = height / 2 * part / parts * 2, last = height / 2 * (part + 1) / parts * 2;
    convert(first, last - first);
  });
}

void addLibyuv() {
  addByStrips("rgb24-to-packed", "yuy2", 2, [](const uint8_t* argb, int row, int rows) {
    libyuv::ARGBToYUY2(argb, 4 * width, peerRow(0, 2 * width, row), 2 * width, width, rows);
  });
  addByStrips("rgb24-to-packed", "uyvy", 2, [](const uint8_t* argb, int row, int rows) {
    libyuv::ARGBToUYVY(argb, 4 * width, peerRow(0, 2 * width, row), 2 * width, width, rows);
  });
  addByBands("rgb32-to-packed", "uyvy", [](int row, int rows) {
    libyuv::ARGBToUYVY(bitmap32.data() + sizeof(BITMAPINFOHEADER) + ptrdiff_t{4} * width * row,
                       4 * width, peerRow(0, 2 * width, row), 2 * width, width, rows);
  });
  addByBands("rgb24-to-y", "y", [](int row, int rows) {
    libyuv::RGB24ToJ400(rgb(row), rgbStride, peerRow(0, width, row), width, width, rows);
  });
  addByStrips("rgb24-to-planes", "444", 2, [](const uint8_t* argb, int row, int rows) {
    libyuv::ARGBToI444(argb, 4 * width, peerRow(0, width, row), width, peerRow(pixels, width, row),
                       width, peerRow(2 * pixels, width, row), width, width, rows);
  });
  addByStrips("rgb24-to-planes", "422", 2, [](const uint8_t* argb, int row, int rows) {
    libyuv::ARGBToI422(argb, 4 * width, peerRow(0, width, row), width,
                       peerRow(pixels, halfWidth, row), halfWidth,
                       peerRow(pixels * 3 / 2, halfWidth, row), halfWidth, width, rows);
  });
  addByBands("rgb24-to-planes", "420", [](int row, int rows) {
    libyuv::RGB24ToI420(rgb(row), rgbStride, peerRow(0, width, row), width,
                        peerRow(pixels, halfWidth, row / 2), halfWidth,
                        peerRow(pixels * 5 / 4, halfWidth, row / 2), halfWidth, width, rows);
  });
  addByBands("rgb24-to-rgb32", "frame", [](int row, int rows) {
    libyuv::RGB24ToARGB(rgb(row), rgbStride, peerRow(0, 4 * width, row), 4 * width, width, rows);
  });
  addByBands("rgb32-to-rgb32", "frame", [](int row, int rows) {
    libyuv::ARGBCopy(bitmap32.data() + sizeof(BITMAPINFOHEADER) + ptrdiff_t{4} * width * row,
                     4 * width, peerRow(0, 4 * width, row), 4 * width, width, rows);
  });
}
#endif

#ifdef KVL_BENCH_SWSCALE
void addSwscaleRow(const std::string& job, const std::string& variant, AVPixelFormat format,
                   const std::function<SwsImage(int)>& image) {
  const auto source = [](int row) {
    return SwsImage{{const_cast<uint8_t*>(rgb(row))}, {rgbStride}};
  };
  addSwscale(job, variant,
             {AV_PIX_FMT_BGR24, width, height, format, width, height, SWS_POINT, source, image});
}

void addSwscaleRows() {
  const auto packed = [](int bytes) {
    return [bytes](int row) { return SwsImage{{peerRow(0, bytes * width, row)}, {bytes * width}}; };
  };
  addSwscaleRow("rgb24-to-packed", "yuy2", AV_PIX_FMT_YUYV422, packed(2));
  addSwscaleRow("rgb24-to-packed", "uyvy", AV_PIX_FMT_UYVY422, packed(2));
  addSwscaleRow("rgb24-to-y", "y", AV_PIX_FMT_GRAY8, packed(1));
  addSwscaleRow("rgb24-to-rgb32", "frame", AV_PIX_FMT_BGR0, packed(4));
  const auto planar = [](int shift, int stride) {
    return [=](int row) {
      const size_t plane = pixels * static_cast<size_t>(stride) / width >> shift;
      return SwsImage{{peerRow(0, width, row), peerRow(pixels, stride, row >> shift),
                       peerRow(pixels + plane, stride, row >> shift)},
                      {width, stride, stride}};
    };
  };
  addSwscaleRow("rgb24-to-planes", "444", AV_PIX_FMT_YUV444P, planar(0, width));
  addSwscaleRow("rgb24-to-planes", "422", AV_PIX_FMT_YUV422P, planar(0, halfWidth));
  addSwscaleRow("rgb24-to-planes", "420", AV_PIX_FMT_YUV420P, planar(1, halfWidth));
}
#endif

#ifdef KVL_BENCH_OPENCV
void addOpenCvRows() {
  const auto add = [](const char* job, const char* variant, int rows, int type, int code) {
    addOpenCv(job, variant, [=] {
      const cv::Mat in(height, width, CV_8UC3, const_cast<uint8_t*>(rgb(0)));
      cv::Mat out(rows, width, type, peerResult.data());
      cv::cvtColor(in, out, code);
    });
  };
  add("rgb24-to-y", "y", height, CV_8UC1, cv::COLOR_BGR2GRAY);
  add("rgb24-to-planes", "420", height * 3 / 2, CV_8UC1, cv::COLOR_BGR2YUV_I420);
  add("rgb24-to-rgb32", "frame", height, CV_8UC4, cv::COLOR_BGR2BGRA);
}
#endif

}  // namespace

void addConvert() {
  bitmap24 = packedBitmap(3);
  bitmap32 = packedBitmap(4);
  KVL_FillColorConversionParams(&colours, KVL_MATRIX_BT601, KVL_RANGE_STUDIO);
  addOursAll();
#ifdef KVL_BENCH_LIBYUV
  addLibyuv();
#endif
#ifdef KVL_BENCH_SWSCALE
  addSwscaleRows();
#endif
#ifdef KVL_BENCH_OPENCV
  addOpenCvRows();
#endif
}

}  // namespace kvl::bench
