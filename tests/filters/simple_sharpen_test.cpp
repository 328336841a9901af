#include "filters/one_pass_checks.h"

namespace kvl::test {
namespace {

Filter sharpen(int32_t threshold, float gain) {
  return filterOf([=](auto* source, auto sourceStride, auto* destination, auto stride, auto width,
                      auto height, auto components) {
    KVL_SharpenSimpleUni_MultiComp(source, sourceStride, destination, stride, width, height,
                                   threshold, gain, components, 1);
  });
}

Filter sharpenPlane(int32_t threshold, float gain) {
  return filterOf([=](auto* source, auto sourceStride, auto* destination, auto stride, auto width,
                      auto height, auto) {
    KVL_SharpenSimpleUni(source, sourceStride, destination, stride, width, height, threshold, gain);
  });
}

struct SharpenModel {
  int threshold;
  double gain;

  int operator()(const TestImage& image, int x, int y, int c) const {
    const int centre = sampleAt(image, x, y, c);
    int excess = 9 * centre;
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) excess -= sampleAt(image, x + dx, y + dy, c);
    }
    if (std::abs(excess) < 8 * threshold) return centre;
    const double units = std::min(std::nearbyint(gain * 256), 32767.0);
    return static_cast<int>(std::clamp(centre + std::round(excess * units / 2048), 0.0, 255.0));
  }
};

TEST(SharpenSimple, PushesAPixelAsWorkedByHand) {
  TestImage source = rawImage(3, 3, 1), result = rawImage(3, 3, 1);
  source.fill(100).row(1)[1] = 120;
  // The middle exceeds its neighbours' mean by 20; the others fall short of theirs by 20 / 8 = 2.5.
  sharpenPlane(20, 0.5f)(source, result);
  EXPECT_EQ(result.row(1)[1], 130);
  EXPECT_EQ(result.row(0)[0], 100);
  sharpenPlane(21, 0.5f)(source, result);
  EXPECT_EQ(result.row(1)[1], 120);
  // 0.5 * -2.5 = -1.25 and 1 * -2.5, a half that goes away from 0.
  sharpenPlane(2, 0.5f)(source, result);
  EXPECT_EQ(result.row(0)[0], 99);
  sharpenPlane(2, 1.0f)(source, result);
  EXPECT_EQ(result.row(0)[0], 97);
  EXPECT_EQ(result.row(1)[1], 140);
  sharpenPlane(3, 100.0f)(source, result);
  EXPECT_EQ(result.row(0)[0], 100);
  EXPECT_EQ(result.row(1)[1], 255);
}

TEST(SharpenSimple, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEverySmallImage([](int width, int height, int components, uint64_t seed) {
    const int threshold = static_cast<int>(seed % 5) * 13;
    const float gain = 0.37f * static_cast<float>(seed % 7 + 1);
    expectModel(sharpen(threshold, gain), SharpenModel{threshold, gain}, width, height, components,
                seed);
    expectModel(sharpenPlane(9, 1.5f), SharpenModel{9, 1.5}, width, height, 1, seed);
  });
  forEachLevelAndTeam([] {
    const auto endless = static_cast<float>(infinity);
    const std::pair<int, float> settings[] = {
        {0, 1.0f},         {1, 0.01f}, {254, 3.0f},  {255, 127.9f}, {256, 9.0f},
        {INT32_MAX, 9.0f}, {5, 1e30f}, {0, endless}, {0, 0.0f},     {0, 0.001f}};
    for (const auto& [threshold, gain] : settings) {
      expectModel(sharpen(threshold, gain), SharpenModel{std::min(threshold, 1000), gain}, 211, 31,
                  3, 7);
    }
  });
}

TEST(SharpenSimple, ChangesNothingForABadCall) {
  initialise();
  TestImage source = rawImage(20, 9, 1), result = rawImage(20, 9, 1);
  source.fillRandom(1);
  BadCalls plane(KVL_SharpenSimpleUni, source.bits(), 20, result.bits(), 20, 20, 9, 2, 1.0f);
  expectBadImagesChangeNothing(plane, result);
  plane.with<6>({-1, INT32_MIN});
  plane.with<7>({-0.5, notANumber, -infinity});
  BadCalls calls(KVL_SharpenSimpleUni_MultiComp, source.bits(), 20, result.bits(), 20, 20, 9, 2,
                 1.0f, 1, 1);
  expectBadImagesChangeNothing(calls, result);
  calls.with<6>({-1, INT32_MIN});
  calls.with<7>({-0.5, notANumber, -infinity});
  calls.with<8>(badComponents);
  calls.with<9>({0, 2, -1});
}

}  // namespace
}  // namespace kvl::test
