// KVL_ConvertRgb24ToY.
#include "convert/frames.h"
#include "convert/rgb_to_yuv_model.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

struct Layout {
  int width, height, sourcePadding, planePadding;
  bool flipSource, flipPlane;
};

void expectModel(const Layout& l, const ColorConversionParams& block, uint64_t seed) {
  const int sourceStride = 3 * l.width + l.sourcePadding, planeStride = l.width + l.planePadding;
  GuardedMemory source(static_cast<size_t>(sourceStride * l.height), guardOf(seed));
  const GuardedMemory plane(static_cast<size_t>(planeStride * l.height), guardOf(seed));
  fillColours(source, seed);
  std::vector<uint8_t> expected = plane.bytes();
  const bool vectors = instructionSet() >= InstructionSet::ssse3;
  const auto row = [&](int r, bool flip) { return flip ? l.height - 1 - r : r; };
  for (int r = 0; r < l.height; ++r) {
    for (int x = 0; x < l.width; ++x) {
      const uint8_t* in = source.data() + row(r, l.flipSource) * sourceStride + 3 * x;
      const Rgb pixel = {in[2], in[1], in[0]};
      const auto y = static_cast<int32_t>(
          static_cast<uint32_t>(scalarYuv(block, pixel).y + int64_t{block.yOffset}));
      expected[static_cast<size_t>(row(r, l.flipPlane) * planeStride + x)] =
          vectors && x < l.width / 16 * 16 ? vectorLuma(block, pixel)
                                           : static_cast<uint8_t>(std::clamp(y, 0, 255));
    }
  }
  KVL_ConvertRgb24ToY(source.data() + row(0, l.flipSource) * sourceStride,
                      l.flipSource ? -sourceStride : sourceStride,
                      plane.data() + row(0, l.flipPlane) * planeStride,
                      l.flipPlane ? -planeStride : planeStride, l.width, l.height, &block);
  expectBytes(expected, plane.bytes(), static_cast<size_t>(planeStride), 1,
              text(l.width, " x ", l.height, ", seed ", seed));
}

// 66 * 200 + 129 * 100 + 25 * 50 + 128 = 27478, and 27478 >> 8 = 107; white is 219 + 16.
TEST(RgbToY, ConvertsTwoPixelsAsWorkedByHand) {
  const ColorConversionParams block = builtInBlock(true);
  const uint8_t pixels[] = {50, 100, 200, 255, 255, 255};
  uint8_t luma[2] = {};
  KVL_ConvertRgb24ToY(pixels, 6, luma, 2, 2, 1, &block);
  EXPECT_EQ(luma[0], 123);
  EXPECT_EQ(luma[1], 235);
}

TEST(RgbToY, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(8);
    for (uint64_t n = 0; n < 260; ++n) {
      const int width = n < 130 ? static_cast<int>(n) + 1 : random.range(1, 700);
      const ColorConversionParams block =
          n % 4 == 0 ? builtInBlock(n % 8 == 0) : randomBlock(random, n % 4 == 1);
      expectModel({width, random.range(1, 9), random.range(0, 5), random.range(0, 5), n % 5 == 0,
                   n % 7 == 0},
                  block, n);
    }
  });
}

TEST(RgbToY, BadCallsChangeNoByte) {
  initialise();
  const ColorConversionParams block = builtInBlock(true);
  const std::vector<uint8_t> source(60 * 4, 200);
  std::vector<uint8_t> plane(20 * 4, 0xCD);
  BadCalls calls(KVL_ConvertRgb24ToY, source.data(), 60, plane.data(), 20, 20, 4, &block);
  calls.watch(plane.data(), plane.size());
  calls.eachNull();
  calls.with<3>({19, -19});
  calls.with<4>({0, -20});
  calls.with<5>({0, INT32_MIN});
  calls.call({source.data(), 60, plane.data(), INT32_MIN, 20, INT32_MAX, &block}, "plane");
  calls.call({source.data(), INT32_MIN, plane.data(), 20, 20, INT32_MAX, &block}, "source");
}

}  // namespace
}  // namespace kvl::test
