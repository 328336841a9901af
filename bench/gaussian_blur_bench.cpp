#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {

void addGaussianBlur() {
  static const std::vector<uint8_t> source = photoLike(3);
  static std::vector<uint8_t> image = source, work(source.size());
  static const BITMAPINFOHEADER size = header();
  for (const int radius : {1, 2, 3, 5, 8}) {
    const std::string variant = "r" + std::to_string(radius);
    addKvl(
        "gaussian", variant,
        [radius] { KVL_GaussianBlur(&size, work.data(), &size, image.data(), radius); },
        []() -> const std::vector<uint8_t>& { return image; }, [] { image = source; }, true);
#ifdef KVL_BENCH_OPENCV
    static std::vector<uint8_t> result(source.size());
    addOpenCv("gaussian", variant, [radius] {
      const cv::Mat in(height, width, CV_8UC3, const_cast<uint8_t*>(source.data()));
      cv::Mat out(height, width, CV_8UC3, result.data());
      cv::GaussianBlur(in, out, cv::Size(2 * radius + 1, 2 * radius + 1), 0, 0,
                       cv::BORDER_REPLICATE);
    });
#endif
  }
}

}  // namespace kvl::bench
