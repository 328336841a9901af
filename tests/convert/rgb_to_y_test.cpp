// KVL_ConvertRgb24ToY, and the table of vector bodies.
#include <gtest/gtest.h>

#include <algorithm>

#include "convert/rgb_blocks.h"
#include "convert/rgb_to_yuv_model.h"
#include "core/initialise.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::GuardedMemory;
using test::Random;
using test::Rgb;

void expectModel(int width, int height, int sourcePadding, int planePadding, bool flipSource,
                 bool flipPlane, const ColorConversionParams& block, GuardAt guard, uint64_t seed) {
  const int sourceStride = 3 * width + sourcePadding, planeStride = width + planePadding;
  GuardedMemory source(static_cast<size_t>(sourceStride * height), guard);
  GuardedMemory plane(static_cast<size_t>(planeStride * height), guard);
  Random random(seed);
  for (size_t i = 0; i < source.size(); ++i) {
    source.data()[i] =
        static_cast<uint8_t>(seed % 3 == 0 ? 255 - random.next() % 40 : random.next());
  }
  std::fill(plane.data(), plane.data() + plane.size(), uint8_t{0xCD});
  std::vector<uint8_t> expected(plane.data(), plane.data() + plane.size());
  const bool vectors = instructionSet() >= InstructionSet::ssse3;
  const auto row = [&](int r, bool flip) { return flip ? height - 1 - r : r; };
  for (int r = 0; r < height; ++r) {
    for (int x = 0; x < width; ++x) {
      const uint8_t* in = source.data() + row(r, flipSource) * sourceStride + 3 * x;
      const Rgb pixel = {in[2], in[1], in[0]};
      uint8_t& out = expected[static_cast<size_t>(row(r, flipPlane) * planeStride + x)];
      if (vectors && x < width / 16 * 16) {
        out = test::vectorLuma(block, pixel);
      } else {
        const int64_t y = static_cast<int32_t>(
            static_cast<uint32_t>(test::scalarYuv(block, pixel).y + int64_t{block.yOffset}));
        out = static_cast<uint8_t>(std::clamp<int64_t>(y, 0, 255));
      }
    }
  }
  KVL_ConvertRgb24ToY(source.data() + row(0, flipSource) * sourceStride,
                      flipSource ? -sourceStride : sourceStride,
                      plane.data() + row(0, flipPlane) * planeStride,
                      flipPlane ? -planeStride : planeStride, width, height, &block);
  const std::vector<uint8_t> actual(plane.data(), plane.data() + plane.size());
  ASSERT_EQ(firstDifference(expected, actual, static_cast<size_t>(planeStride), 1), "")
      << width << " x " << height << ", seed " << seed;
}

// 66 * 200 + 129 * 100 + 25 * 50 + 128 = 27478, and 27478 >> 8 = 107; white is 219 + 16.
TEST(RgbToY, ConvertsTwoPixelsAsWorkedByHand) {
  const ColorConversionParams block = test::builtInBlock(true);
  const uint8_t pixels[] = {50, 100, 200, 255, 255, 255};
  uint8_t luma[2] = {};
  KVL_ConvertRgb24ToY(pixels, 6, luma, 2, 2, 1, &block);
  EXPECT_EQ(luma[0], 123);
  EXPECT_EQ(luma[1], 235);
}

TEST(RgbToY, FollowsTheModelAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    Random random(8);
    for (uint64_t n = 0; n < 260; ++n) {
      const int width = n < 130 ? static_cast<int>(n) + 1 : random.range(1, 700);
      const GuardAt guard = n % 2 != 0 ? GuardAt::end : GuardAt::start;
      const ColorConversionParams block = n % 4 == 0   ? test::builtInBlock(n % 8 == 0)
                                          : n % 4 == 1 ? test::randomBlock(random, true)
                                                       : test::randomBlock(random, false);
      expectModel(width, random.range(1, 9), random.range(0, 5), random.range(0, 5), n % 5 == 0,
                  n % 7 == 0, block, guard, n);
      if (testing::Test::HasFatalFailure()) return;
    }
  });
}

// Where the two copies of the factors agree, rounding is 128, shift 8 and the offset a byte, so do
// the two paths.
TEST(RgbToY, ScalarAndVectorAgreeForTheBuiltInBlocks) {
  std::vector<uint8_t> pixels(3 * 4096), at[2];
  Random random(2);
  for (uint8_t& byte : pixels) byte = static_cast<uint8_t>(random.next());
  const ColorConversionParams block = test::builtInBlock(false);
  const InstructionSet levels[] = {InstructionSet::scalar, InstructionSet::avx2};
  for (int i = 0; i < 2; ++i) {
    test::atLevel(levels[i], [&] {
      at[i].resize(4096);
      KVL_ConvertRgb24ToY(pixels.data(), 0, at[i].data(), 0, 4096, 1, &block);
    });
  }
  EXPECT_EQ(at[0], at[1]);
}

TEST(RgbToY, BadCallsChangeNoByte) {
  initialise();
  const ColorConversionParams block = test::builtInBlock(true);
  std::vector<uint8_t> source(60 * 4, 200), plane(20 * 4, 0xCD);
  const std::vector<uint8_t> before = plane;
  const auto convert = [&](const uint8_t* src, int srcStride, uint8_t* dst, int dstStride,
                           int width, int height, const ColorConversionParams* params) {
    KVL_ConvertRgb24ToY(src, srcStride, dst, dstStride, width, height, params);
  };
  convert(nullptr, 60, plane.data(), 20, 20, 4, &block);
  convert(source.data(), 60, nullptr, 20, 20, 4, &block);
  convert(source.data(), 60, plane.data(), 20, 20, 4, nullptr);
  convert(source.data(), 60, plane.data(), 20, 0, 4, &block);
  convert(source.data(), 60, plane.data(), 20, -20, 4, &block);
  convert(source.data(), 60, plane.data(), 20, 20, 0, &block);
  convert(source.data(), 60, plane.data(), 20, 20, INT32_MIN, &block);
  convert(source.data(), 60, plane.data(), 19, 20, 4, &block);
  convert(source.data(), 60, plane.data(), -19, 20, 4, &block);
  convert(source.data(), 60, plane.data(), INT32_MIN, 20, INT32_MAX, &block);
  convert(source.data(), INT32_MIN, plane.data(), 20, 20, INT32_MAX, &block);
  EXPECT_EQ(plane, before);
}

TEST(RgbBlocks, EachVectorLevelReplacesEveryBody) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const RgbBlocks scalar = rgbBlocks(InstructionSet::sse2),
                  ssse3 = rgbBlocks(InstructionSet::sse41), avx2 = rgbBlocks(InstructionSet::avx2);
  const auto expectReplaced = [&](auto body) {
    EXPECT_EQ(scalar.*body, nullptr);
    EXPECT_NE(ssse3.*body, nullptr);
    EXPECT_NE(ssse3.*body, avx2.*body);
  };
  expectReplaced(&RgbBlocks::yuv422From24);
  expectReplaced(&RgbBlocks::yuv422From32);
  expectReplaced(&RgbBlocks::luma);
  expectReplaced(&RgbBlocks::planes);
  expectReplaced(&RgbBlocks::average2x2);
  expectReplaced(&RgbBlocks::evenColumns);
  expectReplaced(&RgbBlocks::averageEven);
  expectReplaced(&RgbBlocks::expand);
}

}  // namespace
}  // namespace kvl
