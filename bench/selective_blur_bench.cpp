#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {

void addSelectiveBlur() {
  static const std::vector<uint8_t> source = photoLike(3);
  static std::vector<uint8_t> destination(source.size()), image = source, work(source.size());
  static const BITMAPINFOHEADER size = header();
  static BITMAPINFOHEADER workSize = size;
  for (const int radius : {1, 3}) {
    for (const int threshold : {20, 150}) {
      const std::string variant = "r" + std::to_string(radius) + "-t" + std::to_string(threshold);
      addKvl(
          "selective", variant,
          [=] {
            KVL_SelectiveBlur(&size, source.data(), &size, destination.data(), threshold, radius);
          },
          []() -> const std::vector<uint8_t>& { return destination; });
      addKvl(
          "modified-selective", variant,
          [=] {
            KVL_ModifiedSelectiveBlur(&workSize, work.data(), &size, image.data(), threshold,
                                      radius);
          },
          []() -> const std::vector<uint8_t>& { return image; }, [] { image = source; });
#ifdef KVL_BENCH_OPENCV
      for (const char* job : {"selective", "modified-selective"}) {
        addOpenCv(job, variant, [radius] {
          const cv::Mat in(height, width, CV_8UC3, const_cast<uint8_t*>(source.data()));
          cv::Mat out(height, width, CV_8UC3, destination.data());
          cv::bilateralFilter(in, out, 2 * radius + 1, 20, 20, cv::BORDER_REPLICATE);
        });
      }
#endif
    }
  }
}

}  // namespace kvl::bench
