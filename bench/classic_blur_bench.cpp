#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {
namespace {

const std::vector<uint8_t>& source() {
  static const std::vector<uint8_t> bytes = photoLike(3);
  return bytes;
}

void addVariant(const std::string& job, const std::string& variant, int threshold, float radius) {
  static std::vector<uint8_t> image = source(), work(source().size());
  addKvl(
      job, variant,
      [=] {
        KVL_BlurClassicUni(image.data(), 3 * width, work.data(), 3 * height, width, height,
                           threshold, radius);
      },
      []() -> const std::vector<uint8_t>& { return image; }, [] { image = source(); });
}

// One plane of the same size.
void addPlane(const std::string& job, const std::string& variant, int threshold, float radius) {
  static const std::vector<uint8_t> plane = photoLike(1);
  static std::vector<uint8_t> image = plane, work(plane.size());
  addKvl(
      job, variant,
      [=] {
        KVL_BlurClassicUni_MultiComp(image.data(), width, work.data(), height, width, height,
                                     threshold, radius, 1, 1);
      },
      []() -> const std::vector<uint8_t>& { return image; }, [] { image = plane; });
}

#ifdef KVL_BENCH_OPENCV
template <class Filter>
void addPeer(const std::string& job, const std::string& variant, Filter filter) {
  static std::vector<uint8_t> result(source().size());
  addOpenCv(job, variant, [=] {
    const cv::Mat in(height, width, CV_8UC3, const_cast<uint8_t*>(source().data()));
    cv::Mat out(height, width, CV_8UC3, result.data());
    filter(in, out);
  });
}
#endif

}  // namespace

void addClassicBlur() {
  for (const int radius : {1, 3, 10}) {
    const std::string variant = radiusName(radius);
    addVariant("classic", variant, 30, static_cast<float>(radius));
#ifdef KVL_BENCH_OPENCV
    if (radius > 3) continue;
    addPeer("classic", variant, [radius](const cv::Mat& in, cv::Mat& out) {
      cv::bilateralFilter(in, out, 2 * radius + 1, 30, radius, cv::BORDER_REPLICATE);
    });
#endif
  }
  addVariant("classic", "r3-threshold200", 200, 3);
  addPlane("classic", "grey-r3", 30, 3);
  addPlane("classic-box", "grey-r10.5", 255, 10.5f);
  for (const float radius : {2.0f, 10.5f, 50.0f, 200.0f}) {
    const std::string variant = radiusName(radius);
    addVariant("classic-box", variant, 255, radius);
#ifdef KVL_BENCH_OPENCV
    addPeer("classic-box", variant, [radius](const cv::Mat& in, cv::Mat& out) {
      const int size = 2 * static_cast<int>(radius) + 1;
      cv::blur(in, out, cv::Size(size, size), cv::Point(-1, -1), cv::BORDER_CONSTANT);
    });
#endif
  }
}

}  // namespace kvl::bench
