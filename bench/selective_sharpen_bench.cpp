#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {

void addSelectiveSharpen() {
  static const std::vector<uint8_t> source = photoLike(3);
  static std::vector<uint8_t> destination(source.size());
  static const BITMAPINFOHEADER size = header();
  // Below, amid and above the grain of the image.
  for (const int threshold : {2, 6, 16}) {
    const auto add = [threshold](const char* job, decltype(&KVL_SelectiveSharpen) sharpen) {
      const std::string variant = "t" + std::to_string(threshold);
      addKvl(
          job, variant,
          [=] { sharpen(&size, source.data(), &size, destination.data(), threshold, 1.7f); },
          []() -> const std::vector<uint8_t>& { return destination; });
#ifdef KVL_BENCH_OPENCV
      addOpenCv(job, variant, [] {
        const cv::Mat in(height, width, CV_8UC3, const_cast<uint8_t*>(source.data()));
        cv::Mat out(height, width, CV_8UC3, destination.data());
        cv::Mat kernel(3, 3, CV_32F, cv::Scalar(-0.7f / 8));
        kernel.at<float>(1, 1) = 1.7f;
        cv::filter2D(in, out, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
      });
#endif
    };
    add("selective-sharpen-simple", KVL_SelectiveSharpenSimple);
    add("selective-sharpen-modified", KVL_ModifiedSelectiveSharpenSimple);
    add("selective-sharpen-smooth", KVL_SelectiveSharpen);
  }
}

}  // namespace kvl::bench
