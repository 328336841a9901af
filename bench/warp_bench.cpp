#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <cmath>
#include <cstdlib>

namespace kvl::bench {
namespace {

// Images of plain memory, one at a time.
struct Host : KvlWarpHostAllocator, KvlWarpHostImage {
  BITMAPINFOHEADER size = {};
  std::vector<uint8_t> rows;

  Host() {
    static const KvlWarpHostAllocatorOperations allocator = {nullptr, nullptr, nullptr, create};
    static const KvlWarpHostImageOperations image = {nullptr, nullptr, release, headerOf, bitsOf};
    KvlWarpHostAllocator::operations = &allocator;
    KvlWarpHostImage::operations = &image;
  }

  static int32_t create(KvlWarpHostAllocator* allocator, KvlWarpHostImage** image,
                        const KvlWarpImageRequest* request, int32_t, const char*, int32_t) {
    auto* host = static_cast<Host*>(allocator);
    host->size = header(24);
    host->size.biWidth = request->width;
    host->size.biHeight = request->height;
    const size_t stride = (static_cast<size_t>(request->width) * 3 + 3) & ~size_t{3};
    host->rows.resize(stride * static_cast<size_t>(request->height));
    *image = host;
    return 0;
  }
  static uint32_t release(KvlWarpHostImage*) { return 0; }
  static BITMAPINFOHEADER* headerOf(KvlWarpHostImage* image) {
    return &static_cast<Host*>(image)->size;
  }
  static uint8_t* bitsOf(KvlWarpHostImage* image) { return static_cast<Host*>(image)->rows.data(); }
};

struct Map {
  const char* name;
  double m[9];  // column vectors: (x, y, w) = m * (x, y, 1)
};

constexpr double w = width, h = height;
const Map maps[] = {
    // The top edge a tenth farther away: what straightens a photographed page.
    {"mild", {1, 0.05, 10, 0.01, 1, 8, 0, 1e-4, 1}},
    {"turned", {0.8, 0.6, 20 - 0.1 * h, -0.6, 0.8, 0.5 * w, 0, 0, 1}},
    {"half", {0.5, 0, 5, 0, 0.5, 5, 0, 0, 1}},
};

void addMap(const Map& map, int channels, int level, const std::string& variant) {
  static const std::vector<uint8_t> sources[] = {photoLike(1), photoLike(3), photoLike(4)};
  static std::vector<uint8_t> result;
  static Host host;
  const size_t kind = channels == 1 ? 0 : channels == 3 ? 1 : 2;
  static const RECT all = [] {
    RECT r = {};
    r.right = width;
    r.bottom = height;
    return r;
  }();
  const auto reset = [kind] { result.assign(sources[kind].size(), 0); };
  const double* m = map.m;
  addKvl(
      "warp", variant,
      [=] {
        const BITMAPINFOHEADER size = header(static_cast<uint16_t>(channels * 8));
        const double matrix[16] = {m[0], m[3], 0, m[6], m[1], m[4], 0, m[7],
                                   0,    0,    1, 0,    m[2], m[5], 0, m[8]};
        if (result.size() != sources[kind].size()) reset();
        KVL_CalcQvWarpPixel(&size, result.data(), &all, &size, sources[kind].data(), &all, matrix,
                            &host, level, 0);
      },
      []() -> const std::vector<uint8_t>& { return result; }, reset, level == 0 && channels == 3,
      InstructionSet::ssse3);
#ifdef KVL_BENCH_OPENCV
  if (level > 0) return;
  addOpenCv("warp", variant, [=] {
    static std::vector<uint8_t> peer;
    peer.resize(sources[kind].size());
    const int type = CV_8UC(channels);
    const cv::Mat in(height, width, type, const_cast<uint8_t*>(sources[kind].data()));
    cv::Mat out(height, width, type, peer.data());
    const cv::Mat matrix(3, 3, CV_64F, const_cast<double*>(m));
    cv::warpPerspective(in, out, matrix, out.size(), cv::INTER_LINEAR);
  });
#endif
}

}  // namespace

void addWarp() {
  for (const Map& map : maps) addMap(map, 3, 0, std::string("rgb24-") + map.name);
  addMap(maps[0], 1, 0, "grey-mild");
  addMap(maps[0], 4, 0, "rgb32-mild");
  addMap(maps[0], 3, 1, "rgb24-mild-l1");
}

}  // namespace kvl::bench
