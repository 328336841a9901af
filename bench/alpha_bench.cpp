#include <algorithm>
#include <cmath>
#include <memory>

#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif
#ifdef KVL_BENCH_LIBYUV
#include <libyuv.h>
#endif

namespace kvl::bench {
namespace {

constexpr size_t pixels = size_t{width} * height;

// What scalar bodies give differs by contract.
constexpr InstructionSet reference = InstructionSet::ssse3;

using Plane = std::vector<uint8_t>;

// No two neighbours alike.
Plane noisyMask() {
  Plane mask(pixels);
  uint32_t state = 7;
  for (uint8_t& alpha : mask) {
    state = state * 1664525u + 1013904223u;
    alpha = static_cast<uint8_t>(state >> 24);
  }
  return mask;
}

// A disc with a soft edge of 12 pixels: all else is 0 or 255.
Plane matte() {
  Plane mask;
  mask.reserve(pixels);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double dx = x - width / 2, dy = y - height / 2;
      const double inside = 430 - std::sqrt(dx * dx + dy * dy);
      mask.push_back(static_cast<uint8_t>(std::clamp(128 + inside * 255 / 12, 0., 255.)));
    }
  }
  return mask;
}

// The colours and their alphas interleaved, as the peers take them.
Plane interleaved(const Plane& colour, const Plane& alpha) {
  Plane argb;
  argb.reserve(4 * pixels);
  for (size_t i = 0; i < pixels; ++i) {
    argb.insert(argb.end(), {colour[3 * i], colour[3 * i + 1], colour[3 * i + 2], alpha[i]});
  }
  return argb;
}

#ifdef KVL_BENCH_LIBYUV
using Attenuate = int (*)(const uint8_t*, int, uint8_t*, int, int, int);

void addAttenuate(const std::string& job, const std::string& variant, Attenuate attenuate,
                  const Plane& colour, const Plane& alpha) {
  const auto source = std::make_shared<Plane>(interleaved(colour, alpha));
  const auto result = std::make_shared<Plane>(source->size());
  addPeer(job, variant, "libyuv", [=](int part, int parts) {
    const int first = height * part / parts, rows = height * (part + 1) / parts - first;
    const size_t offset = size_t{4} * width * static_cast<size_t>(first);
    attenuate(source->data() + offset, 4 * width, result->data() + offset, 4 * width, width, rows);
  });
}
#endif

// Both work on one thread whatever the team; in place, and so on what the call before has left,
// which changes nothing about the work. The reverse starts from colours that alpha has multiplied.
void addPremultiply(const std::string& variant, const Plane& mask) {
  const auto colour = std::make_shared<Plane>(photoLike(3));
  const auto alpha = std::make_shared<Plane>(mask);
  const auto image = std::make_shared<Plane>(*colour);
  const auto result = [=]() -> const Plane& { return *image; };
  addKvl(
      "premultiply", variant,
      [=] {
        KVL_PremultiplyAlphaLines(image->data(), 3 * width, alpha->data(), width, width, height);
      },
      result, [=] { *image = *colour; }, false, reference);
  addKvl(
      "unpremultiply", variant,
      [=] {
        KVL_ReverseAlphaPremulLines(image->data(), 3 * width, alpha->data(), width, width, height);
      },
      result,
      [=] {
        *image = *colour;
        KVL_PremultiplyAlphaLines(image->data(), 3 * width, alpha->data(), width, width, height);
      },
      false, reference);
#ifdef KVL_BENCH_LIBYUV
  addAttenuate("premultiply", variant, libyuv::ARGBAttenuate, *colour, mask);
  addAttenuate("unpremultiply", variant, libyuv::ARGBUnattenuate, *colour, mask);
#endif
}

void addColourShift(const std::string& variant, int32_t byRatio) {
  const auto colour = std::make_shared<Plane>(photoLike(3));
  const auto image = std::make_shared<Plane>(*colour);
  const BITMAPINFOHEADER size = header();
  addKvl(
      "colour-shift", variant,
      [=] { KVL_ApplyRGBColorShift(&size, image->data(), -0.2f, 0.1f, 0.05f, byRatio); },
      [=]() -> const Plane& { return *image; }, [=] { *image = *colour; }, false, reference);
#ifdef KVL_BENCH_LIBYUV
  const auto source = std::make_shared<Plane>(interleaved(*colour, Plane(pixels, 255)));
  const auto result = std::make_shared<Plane>(source->size());
  addPeer("colour-shift", variant, "libyuv", [=](int part, int parts) {
    static constexpr int8_t matrix[16] = {70, -4, -2, 0, 3, 60, 2, 0, 1, 5, 55, 0, 0, 0, 0, 64};
    const int first = height * part / parts, rows = height * (part + 1) / parts - first;
    const size_t offset = size_t{4} * width * static_cast<size_t>(first);
    libyuv::ARGBColorMatrix(source->data() + offset, 4 * width, result->data() + offset, 4 * width,
                            matrix, width, rows);
  });
#endif
}

// The photograph with a screen of the key's colour, and some grain, round a disc.
Plane screened() {
  Plane image = photoLike(3);
  const Plane subject = matte();
  constexpr int key[3] = {64, 177, 0};
  for (size_t i = 0; i < pixels; ++i) {
    for (size_t c = 0; c < 3; ++c) {
      const int screen = std::max(key[c] + image[3 * i] % 8 - 4, 0);
      const int mixed = image[3 * i + c] * subject[i] + screen * (255 - subject[i]);
      image[3 * i + c] = static_cast<uint8_t>(mixed / 255);
    }
  }
  return image;
}

void addColourKey(const std::string& variant, const Plane& source, uint32_t spill) {
  const auto colour = std::make_shared<Plane>(source);
  const auto image = std::make_shared<Plane>(source);
  const auto mask = std::make_shared<Plane>(pixels);
  // Keyed in place a second time, the image would have lost its spill; the copy is timed too.
  addKvl(
      "colour-key", variant,
      [=] {
        std::copy(colour->begin(), colour->end(), image->begin());
        KVL_CalcAlphaBmpForMix_ColorBox(mask->data(), width, image->data(), 3 * width, width,
                                        height, 0, 177, 64, 15, 35, spill);
      },
      [=]() -> const Plane& { return *image; });
#ifdef KVL_BENCH_OPENCV
  addOpenCv("colour-key", variant, [=] {
    static cv::Mat hls, range;
    const cv::Mat in(height, width, CV_8UC3, colour->data());
    cv::cvtColor(in, hls, cv::COLOR_BGR2HLS);
    cv::inRange(hls, cv::Scalar(50, 40, 80), cv::Scalar(80, 220, 255), range);
  });
#endif
}

}  // namespace

void addAlpha() {
  addPremultiply("noise", noisyMask());
  addPremultiply("matte", matte());
  addColourShift("ratio", 1);
  addColourShift("difference", 0);
  addColourKey("screen", screened(), 100);
  addColourKey("photo", photoLike(3), 100);
  addColourKey("photo-no-spill", photoLike(3), 0);
}

}  // namespace kvl::bench
