#include "benches.h"
#include "support/bench_image.h"

#include <omp.h>

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif
#ifdef KVL_BENCH_LIBYUV
#include <libyuv.h>
#endif
#ifdef KVL_BENCH_SWSCALE
extern "C" {
#include <libswscale/swscale.h>
}
#endif
#ifdef KVL_BENCH_ZIMG
#include <zimg.h>
#endif

#include <memory>

namespace kvl::bench {
namespace {

struct Size {
  int width;
  int height;
};

// One resize: speeds are in megapixels of 1920 x 1080, which is the larger of its two pictures.
struct Job {
  std::string variant;
  Size from;
  Size to;
  int components;
  std::vector<uint8_t> source;
  std::vector<uint8_t> result;
  std::vector<uint8_t> work;

  Job(const std::string& name, Size f, Size t, int c)
      : variant((c == 3 ? "rgb24-" : "grey-") + name), from(f), to(t), components(c) {
    const std::vector<uint8_t> picture = photoLike(c);
    const size_t rowBytes = static_cast<size_t>(from.width * c);
    for (int y = 0; y < from.height; ++y) {
      const auto row = picture.begin() + static_cast<ptrdiff_t>(y) * width * c;
      source.insert(source.end(), row, row + static_cast<ptrdiff_t>(rowBytes));
    }
    result.resize(static_cast<size_t>(to.width * to.height * 4));
  }

  bool shrinks() const { return to.width < from.width; }
  BITMAPINFOHEADER headerOf(Size size) const {
    BITMAPINFOHEADER h = header(static_cast<uint16_t>(8 * components));
    h.biWidth = size.width;
    h.biHeight = size.height;
    return h;
  }
};

void addOneCall(Job& j) {
  addKvl(
      "resize", j.variant,
      [&j] {
        const BITMAPINFOHEADER source = j.headerOf(j.from), destination = j.headerOf(j.to);
        const double rect[] = {0, 0, double(j.from.width), double(j.from.height)};
        const RECT into = {0, 0, j.to.width, j.to.height};
        KVL_ResizeDIB_CPP(&source, j.source.data(), rect, &destination, j.result.data(), &into, 0);
      },
      [&j]() -> const std::vector<uint8_t>& { return j.result; }, {}, true);
}

// Execution alone, in a work buffer of the host's: what a host pays that keeps its record.
void addTwoPhase(Job& j) {
  const BITMAPINFOHEADER source = j.headerOf(j.from), destination = j.headerOf(j.to);
  const double rect[] = {0, 0, double(j.from.width), double(j.from.height)};
  RECT into = {0, 0, j.to.width, j.to.height};
  ResizeSetup setup;
  uint64_t needed = 0;
  KVL_SetupResizeDib(&source, rect, &destination, &into, 0, &setup, &needed);
  j.work.resize(needed);
  addKvl(
      "resize-two-phase", j.variant,
      [&j, setup] {
        KVL_CalcResizeDib(&setup, j.source.data(), j.result.data(), j.work.data(), j.work.size());
      },
      [&j]() -> const std::vector<uint8_t>& { return j.result; });
}

#ifdef KVL_BENCH_OPENCV
void addOpenCvPeer(Job& j) {
  addOpenCv("resize", j.variant, [&j] {
    const int type = CV_8UC(j.components);
    const cv::Mat in(j.from.height, j.from.width, type, j.source.data());
    cv::Mat out(j.to.height, j.to.width, type, j.result.data());
    cv::resize(in, out, out.size(), 0, 0, j.shrinks() ? cv::INTER_AREA : cv::INTER_LINEAR);
  });
}
#endif

#ifdef KVL_BENCH_LIBYUV
// libyuv has no packed 24-bit resize: four bytes a pixel, or one plane.
void addLibyuvPeer(Job& j) {
  if (j.shrinks()) return;
  static std::vector<uint8_t> argb(static_cast<size_t>(width * height * 4), 90);
  add(
      "resize", j.variant, "libyuv", [](int threads) { omp_set_num_threads(threads); },
      [&j] {
        const auto [w, h] = j.from;
        if (j.components == 1) {
          libyuv::ScalePlane(j.source.data(), w, w, h, j.result.data(), j.to.width, j.to.width,
                             j.to.height, libyuv::kFilterBilinear);
          return;
        }
#pragma omp parallel
        {
          const int thread = omp_get_thread_num(), threads = omp_get_num_threads();
          const int first = j.to.height * thread / threads;
          const int last = j.to.height * (thread + 1) / threads;
          libyuv::ARGBScaleClip(argb.data(), w * 4, w, h, j.result.data(), j.to.width * 4,
                                j.to.width, j.to.height, 0, first, j.to.width, last - first,
                                libyuv::kFilterBilinear);
        }
      });
}
#endif

#ifdef KVL_BENCH_SWSCALE
void addSwscalePeer(Job& j) {
  const AVPixelFormat format = j.components == 3 ? AV_PIX_FMT_BGR24 : AV_PIX_FMT_GRAY8;
  const std::shared_ptr<SwsContext> context(
      sws_getContext(j.from.width, j.from.height, format, j.to.width, j.to.height, format,
                     j.shrinks() ? SWS_AREA : SWS_BILINEAR, nullptr, nullptr, nullptr),
      sws_freeContext);
  // One context has one thread.
  add(
      "resize", j.variant, "swscale-1-thread", [](int) {},
      [&j, context] {
        const uint8_t* const in[] = {j.source.data()};
        uint8_t* const out[] = {j.result.data()};
        const int inStride[] = {j.from.width * j.components};
        const int outStride[] = {j.to.width * j.components};
        sws_scale(context.get(), in, inStride, 0, j.from.height, out, outStride);
      });
}
#endif

#ifdef KVL_BENCH_ZIMG
// zimg takes planes only: three of them for 24 bits, with its triangle filter.
void addZimgPeer(Job& j) {
  const auto formatOf = [](Size size) {
    zimg_image_format f;
    zimg_image_format_default(&f, ZIMG_API_VERSION);
    f.width = static_cast<unsigned>(size.width);
    f.height = static_cast<unsigned>(size.height);
    f.pixel_type = ZIMG_PIXEL_BYTE;
    f.color_family = ZIMG_COLOR_GREY;
    f.pixel_range = ZIMG_RANGE_FULL;
    return f;
  };
  const zimg_image_format from = formatOf(j.from), to = formatOf(j.to);
  zimg_graph_builder_params parameters;
  zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
  parameters.resample_filter = ZIMG_RESIZE_BILINEAR;
  parameters.cpu_type = ZIMG_CPU_AUTO;
  const std::shared_ptr<zimg_filter_graph> graph(
      zimg_filter_graph_build(&from, &to, &parameters),
      [](zimg_filter_graph* g) { zimg_filter_graph_free(g); });
  size_t scratch = 0;
  zimg_filter_graph_get_tmp_size(graph.get(), &scratch);
  const auto aligned = [](size_t bytes) {
    return std::shared_ptr<void>(std::aligned_alloc(64, (bytes + 63) / 64 * 64), std::free);
  };
  const auto in = aligned(static_cast<size_t>(1920 * 1080));
  const auto out = aligned(static_cast<size_t>(1920 * 1080));
  const auto work = aligned(scratch);
  add(
      "resize", j.variant, "zimg-1-thread", [](int) {},
      [&j, graph, in, out, work] {
        zimg_image_buffer_const source = {ZIMG_API_VERSION, {}};
        zimg_image_buffer destination = {ZIMG_API_VERSION, {}};
        source.plane[0] = {in.get(), j.from.width, ZIMG_BUFFER_MAX};
        destination.plane[0] = {out.get(), j.to.width, ZIMG_BUFFER_MAX};
        for (int plane = 0; plane < j.components; ++plane) {
          zimg_filter_graph_process(graph.get(), &source, &destination, work.get(), nullptr,
                                    nullptr, nullptr, nullptr);
        }
      });
}
#endif

}  // namespace

void addResize() {
  static std::vector<std::unique_ptr<Job>> jobs;
  for (const int components : {3, 1}) {
    const auto addJob = [&](const char* name, Size from, Size to) {
      jobs.push_back(std::make_unique<Job>(name, from, to, components));
      Job& j = *jobs.back();
      addOneCall(j);
      addTwoPhase(j);
#ifdef KVL_BENCH_OPENCV
      addOpenCvPeer(j);
#endif
#ifdef KVL_BENCH_LIBYUV
      addLibyuvPeer(j);
#endif
#ifdef KVL_BENCH_SWSCALE
      addSwscalePeer(j);
#endif
#ifdef KVL_BENCH_ZIMG
      addZimgPeer(j);
#endif
    };
    addJob("to-720p", {1920, 1080}, {1280, 720});
    addJob("to-540p", {1920, 1080}, {960, 540});
    addJob("from-720p", {1280, 720}, {1920, 1080});
  }
}

}  // namespace kvl::bench
