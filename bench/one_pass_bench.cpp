#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <cmath>

namespace kvl::bench {
namespace {

constexpr double centreX = (width - 1) / 2.0;
constexpr double centreY = (height - 1) / 2.0;

struct Images {
  int components;
  std::vector<uint8_t> source;
  std::vector<uint8_t> result;

  explicit Images(int c) : components(c), source(photoLike(c)), result(source.size()) {}
  uint32_t stride() const { return static_cast<uint32_t>(width * components); }
};

Images& images(int components) {
  static Images one(1), three(3);
  return components == 1 ? one : three;
}

std::string componentsName(int components) {
  return components == 1 ? "grey" : "rgb24";
}

void addOurs(const std::string& job, const std::string& variant, Images& i,
             const std::function<void()>& call) {
  addKvl(job, variant, call, [&i]() -> const std::vector<uint8_t>& { return i.result; });
}

#ifdef KVL_BENCH_OPENCV
void addFilter2d(const std::string& job, const std::string& variant, Images& i,
                 const cv::Mat& kernel) {
  static std::vector<uint8_t> result;
  result.resize(images(3).source.size());
  addOpenCv(job, variant, [&i, kernel] {
    const int type = CV_8UC(i.components);
    const cv::Mat in(height, width, type, i.source.data());
    cv::Mat out(height, width, type, result.data());
    cv::filter2D(in, out, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
  });
}

// A line of the length and angle, one pixel wide.
cv::Mat lineKernel(double angle, int length) {
  const double radians = angle * 3.14159265358979323846 / 180;
  const int x = static_cast<int>(std::lround(std::abs(std::cos(radians)) * length / 2));
  const int y = static_cast<int>(std::lround(std::abs(std::sin(radians)) * length / 2));
  cv::Mat kernel(2 * y + 1, 2 * x + 1, CV_32F, cv::Scalar(0));
  const int steps = std::max(x, y);
  for (int i = -steps; i <= steps; ++i) {
    kernel.at<float>(y + static_cast<int>(std::lround(i * double(y) / steps)),
                     x + static_cast<int>(std::lround(i * double(x) / steps))) =
        1.0f / static_cast<float>(2 * steps + 1);
  }
  return kernel;
}
#endif

void addPathBlurs(int components) {
  Images& i = images(components);
  for (const double strength : {0.02, 0.1}) {
    const std::string variant =
        componentsName(components) + "-s" + std::to_string(static_cast<int>(100 * strength));
    addOurs("zoom", variant, i, [&i, strength] {
      KVL_BlurZoom(i.source.data(), i.stride(), i.result.data(), i.stride(), width, height, centreX,
                   centreY, strength, i.components);
    });
  }
  for (const double angle : {1.0, 5.0}) {
    const std::string variant =
        componentsName(components) + "-a" + std::to_string(static_cast<int>(angle));
    addOurs("radial", variant, i, [&i, angle] {
      KVL_BlurRadial(i.source.data(), i.stride(), i.result.data(), i.stride(), width, height,
                     centreX, centreY, angle, i.components);
    });
  }
}

void addDirectional(int components) {
  Images& i = images(components);
  for (const int angle : {0, 17, 45, 90}) {
    for (const int length : {10, 100}) {
      const std::string variant =
          componentsName(components) + "-a" + std::to_string(angle) + "-l" + std::to_string(length);
      addOurs("directional", variant, i, [&i, angle, length] {
        KVL_BlurDirectional(i.source.data(), i.stride(), i.result.data(), i.stride(), width, height,
                            angle, length, i.components);
      });
#ifdef KVL_BENCH_OPENCV
      addFilter2d("directional", variant, i, lineKernel(angle, length));
#endif
    }
  }
}

void addSharpen(int components) {
  Images& i = images(components);
  const std::string variant = componentsName(components);
  addOurs("sharpen", variant, i, [&i] {
    if (i.components == 1) {
      KVL_SharpenSimpleUni(i.source.data(), i.stride(), i.result.data(), i.stride(), width, height,
                           2, 1.5f);
      return;
    }
    KVL_SharpenSimpleUni_MultiComp(i.source.data(), i.stride(), i.result.data(), i.stride(), width,
                                   height, 2, 1.5f, i.components, 1);
  });
#ifdef KVL_BENCH_OPENCV
  cv::Mat kernel(3, 3, CV_32F, cv::Scalar(-1.5 / 8));
  kernel.at<float>(1, 1) = 2.5f;
  addFilter2d("sharpen", variant, i, kernel);
#endif
}

}  // namespace

void addOnePass() {
  for (const int components : {3, 1}) {
    addPathBlurs(components);
    addDirectional(components);
    addSharpen(components);
  }
}

}  // namespace kvl::bench
