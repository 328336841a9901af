#include <memory>

#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {
namespace {

#ifdef KVL_BENCH_OPENCV
void addPeer(const std::string& job, const std::string& variant, int channels, int radius) {
  addOpenCv(job, variant, [=] {
    static const std::vector<uint8_t> sources[] = {photoLike(1), photoLike(3), photoLike(4)};
    static std::vector<uint8_t> result(sources[2].size());
    const std::vector<uint8_t>& source = sources[channels / 2];
    const cv::Mat in(height, width, CV_8UC(channels), const_cast<uint8_t*>(source.data()));
    cv::Mat out(height, width, CV_8UC(channels), result.data());
    cv::blur(in, out, cv::Size(2 * radius + 1, 2 * radius + 1), cv::Point(-1, -1),
             cv::BORDER_REPLICATE);
  });
}
#else
void addPeer(const std::string&, const std::string&, int, int) {}
#endif

void addWholeImage() {
  static const std::vector<uint8_t> source = photoLike(3);
  static std::vector<uint8_t> image = source, work(source.size());
  static BITMAPINFOHEADER workSize = header();
  static const BITMAPINFOHEADER size = header();
  for (const int radius : {2, 10, 50, 200}) {
    const std::string variant = radiusName(radius);
    addKvl(
        "averaging", variant,
        [radius] { KVL_AveragingBlur(&workSize, work.data(), &size, image.data(), radius); },
        []() -> const std::vector<uint8_t>& { return image; }, [] { image = source; });
    addPeer("averaging", variant, 3, radius);
  }
}

// The whole image as a rectangle; whole radii are the integer routine's.
void addRectangle(uint16_t channels, float radius) {
  const std::vector<uint8_t> source = photoLike(channels);
  const auto image = std::make_shared<std::vector<uint8_t>>(source);
  const auto work = std::make_shared<std::vector<uint8_t>>(source.size() + 4 * width);
  const BITMAPINFOHEADER size = header(static_cast<uint16_t>(8 * channels));
  BITMAPINFOHEADER transposed = size;
  transposed.biWidth = height;
  transposed.biHeight = width;
  const std::string variant = std::to_string(8 * channels) + "bit-" + radiusName(radius);
  const auto blur = [=] {
    const auto whole = static_cast<int32_t>(radius);
    if (static_cast<float>(whole) == radius) {
      KVL_AvgBlurUni(&size, image->data(), &transposed, work->data(), 0, 0, width, height, whole,
                     whole);
    } else {
      KVL_AvgBlurUniFloat(&size, image->data(), &transposed, work->data(), 0, 0, width, height,
                          radius, radius);
    }
  };
  addKvl(
      "box", variant, blur, [=]() -> const std::vector<uint8_t>& { return *image; },
      [=] { *image = source; });
  addPeer("box", variant, channels, static_cast<int>(radius));
}

}  // namespace

void addAveragingBlur() {
  addWholeImage();
  for (const uint16_t channels : {1, 3, 4}) addRectangle(channels, 10);
  addRectangle(3, 10.5f);
}

}  // namespace kvl::bench
