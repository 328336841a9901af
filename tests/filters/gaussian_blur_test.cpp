#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "core/initialise.h"
#include "core/platform.h"
#include "filters/gaussian_blur_kernels.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::Random;
using test::TestImage;

// Centre and side weights of each radius, with the published sum of the full kernel last.
const std::vector<std::vector<int>> kernels = {
    {58394, 3571, 65536},
    {26386, 16004, 3571, 65536},
    {15639, 13271, 8109, 3568, 65535},
    {10684, 9976, 8121, 5763, 3566, 65536},
    {7887, 7641, 6946, 5927, 4745, 3566, 65537},
    {6112, 6022, 5758, 5343, 4813, 4207, 3570, 65538},
    {4902, 4871, 4777, 4625, 4420, 4170, 3884, 3570, 65536},
    {4031, 4023, 4001, 3963, 3911, 3845, 3765, 3674, 3571, 65537},
};

// The clamped formula along lines of n samples that lie `step` apart.
void modelLine(const uint8_t* in, uint8_t* out, int n, size_t step, int radius) {
  const std::vector<int>& w = kernels[static_cast<size_t>(radius) - 1];
  for (int x = 0; x < n; ++x) {
    int64_t sum = 0;
    for (int d = -radius; d <= radius; ++d) {
      const int at = std::min(std::max(x + d, 0), n - 1);
      sum += int64_t{w[static_cast<size_t>(std::abs(d))]} * in[static_cast<size_t>(at) * step];
    }
    out[static_cast<size_t>(x) * step] = static_cast<uint8_t>(std::min<int64_t>(sum / 65536, 255));
  }
}

// What a call must leave in the work rows and the image rows.
void model(std::vector<uint8_t>& work, std::vector<uint8_t>& image, const TestImage& geometry,
           int radius) {
  const size_t stride = geometry.stride(), rowBytes = geometry.rowBytes();
  for (int y = 0; y < geometry.height(); ++y) {
    const size_t row = static_cast<size_t>(y) * stride;
    for (size_t c = 0; c < 3; ++c) {
      modelLine(&image[row + c], &work[row + c], geometry.width(), 3, radius);
    }
  }
  for (size_t x = 0; x < rowBytes; ++x) {
    modelLine(&work[x], &image[x], geometry.height(), stride, radius);
  }
}

void blur(TestImage& work, TestImage& image, int radius) {
  KVL_GaussianBlur(&work.header, work.bits(), &image.header, image.bits(), radius);
}

void expectModel(int width, int height, int radius, GuardAt guard, uint64_t seed) {
  TestImage work(width, height, 24, guard), image(width, height, 24, guard);
  image.fillRandom(seed);
  std::vector<uint8_t> expectedWork = work.bytes(), expectedImage = image.bytes();
  model(expectedWork, expectedImage, image, std::min(radius, 8));
  blur(work, image, radius);
  const std::string what =
      std::to_string(width) + " x " + std::to_string(height) + ", radius " + std::to_string(radius);
  ASSERT_EQ(firstDifference(expectedWork, work.bytes(), work.stride()), "") << what << ", work";
  ASSERT_EQ(firstDifference(expectedImage, image.bytes(), image.stride()), "") << what;
}

TEST(GaussianBlur, KernelsHaveTheirPublishedSums) {
  for (const std::vector<int>& kernel : kernels) {
    int sum = kernel[0];
    for (size_t i = 1; i + 1 < kernel.size(); ++i) sum += 2 * kernel[i];
    EXPECT_EQ(sum, kernel.back());
  }
}

TEST(GaussianBlur, SpreadsASinglePixelAsWorkedByHand) {
  TestImage work(5, 3), image(5, 3);
  image.fill(0);
  image.row(1)[2 * 3 + 1] = 255;
  blur(work, image, 1);
  // 3571 * 255 >> 16 = 13 and 58394 * 255 >> 16 = 227; then the same again down the columns.
  const int horizontal[5] = {0, 13, 227, 13, 0};
  const int vertical[3][5] = {{0, 0, 12, 0, 0}, {0, 11, 202, 11, 0}, {0, 0, 12, 0, 0}};
  for (int x = 0; x < 5; ++x) {
    EXPECT_EQ(work.row(1)[x * 3 + 1], horizontal[x]) << x;
    EXPECT_EQ(work.row(1)[x * 3], 0);
    for (int y = 0; y < 3; ++y) EXPECT_EQ(image.row(y)[x * 3 + 1], vertical[y][x]) << x << y;
  }
}

TEST(GaussianBlur, KeepsFlatImagesExceptThatRadius3Darkens) {
  test::forEachLevelAndTeam([] {
    for (int radius = 1; radius <= 8; ++radius) {
      for (const auto& [value, darkened] : {std::pair{255, 253}, {128, 126}, {1, 0}, {0, 0}}) {
        TestImage work(41, 37), image(41, 37);
        image.fill(static_cast<uint8_t>(value));
        blur(work, image, radius);
        for (int y = 0; y < image.height(); ++y) {
          for (size_t x = 0; x < image.rowBytes(); ++x) {
            ASSERT_EQ(image.row(y)[x], radius == 3 ? darkened : value) << radius << " " << y;
          }
        }
      }
    }
  });
}

TEST(GaussianBlur, FollowsTheClampedFormulaForEverySmallSize) {
  initialise();
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] {
      uint64_t seed = 1;
      for (int width = 1; width <= 33; ++width) {
        for (int height = 1; height <= 33; height += width % 3 + 1) {
          const int radius = static_cast<int>(seed % 8) + 1;
          const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
          expectModel(width, height, radius, guard, seed++);
        }
      }
    });
  }
}

TEST(GaussianBlur, GivesTheSameBytesAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    for (int radius = 1; radius <= 9; ++radius) {
      expectModel(211 + radius, 67 - radius, radius, GuardAt::end, 7);
      expectModel(32 + radius, 19, radius, GuardAt::start, 8);
    }
    expectModel(1027, 5, INT32_MAX, GuardAt::end, 9);
  });
}

TEST(GaussianBlur, MirrorsWithTheImage) {
  initialise();
  TestImage work(77, 20), image(77, 20), mirrored(77, 20);
  image.fillRandom(3);
  const auto mirror = [](const TestImage& from, TestImage& to) {
    for (int y = 0; y < from.height(); ++y) {
      for (int x = 0; x < from.width(); ++x) {
        const uint8_t* pixel = from.row(y) + 3 * (from.width() - 1 - x);
        std::copy(pixel, pixel + 3, to.row(y) + 3 * x);
      }
    }
  };
  TestImage unmirrored(77, 20);
  mirror(image, mirrored);
  blur(work, image, 5);
  blur(work, mirrored, 5);
  mirror(mirrored, unmirrored);
  image.row(0)[77 * 3] = unmirrored.row(0)[77 * 3];
  for (int y = 0; y < 20; ++y) {
    ASSERT_TRUE(std::equal(image.row(y), image.row(y) + 77 * 3, unmirrored.row(y))) << y;
  }
}

TEST(GaussianBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage work(20, 20), image(20, 20);
  image.fillRandom(4);
  work.fillRandom(5);
  const std::vector<uint8_t> workBefore = work.bytes(), imageBefore = image.bytes();
  const auto expectUnchanged = [&](const char* what) {
    EXPECT_EQ(firstDifference(workBefore, work.bytes(), work.stride()), "") << what;
    EXPECT_EQ(firstDifference(imageBefore, image.bytes(), image.stride()), "") << what;
  };
  blur(work, image, 0);
  blur(work, image, INT32_MIN);
  expectUnchanged("radius");
  KVL_GaussianBlur(nullptr, work.bits(), &image.header, image.bits(), 2);
  KVL_GaussianBlur(&work.header, nullptr, &image.header, image.bits(), 2);
  KVL_GaussianBlur(&work.header, work.bits(), nullptr, image.bits(), 2);
  KVL_GaussianBlur(&work.header, work.bits(), &image.header, nullptr, 2);
  expectUnchanged("null");
  work.header.biWidth = 19;
  blur(work, image, 2);
  work.header.biWidth = 20;
  work.header.biHeight = 19;
  blur(work, image, 2);
  expectUnchanged("sizes that differ");

  const int sizes[][2] = {{20, 0},
                          {20, -20},
                          {0, 20},
                          {-20, 20},
                          {INT32_MIN, 1},
                          {20, INT32_MIN},
                          {715827882, 1},
                          {INT32_MAX, 1},
                          {INT32_MAX, INT32_MAX},
                          {500000000, INT32_MAX}};
  for (const auto& [width, height] : sizes) {
    work.header.biWidth = image.header.biWidth = width;
    work.header.biHeight = image.header.biHeight = height;
    blur(work, image, 2);
    expectUnchanged((std::to_string(width) + " x " + std::to_string(height)).c_str());
  }
}

std::string g_debugLines;

TEST(GaussianBlur, EmitsItsDebugLineAfterValidation) {
  const PlatformCalls saved = g_platform;
  g_platform.debugOutput = [](const char* line) { g_debugLines += line; };
  TestImage work(2, 2), image(2, 2);
  blur(work, image, 0);
  KVL_GaussianBlur(&work.header, work.bits(), &image.header, nullptr, 1);
  EXPECT_EQ(g_debugLines, "");
  blur(work, image, 1);
  EXPECT_EQ(g_debugLines, "KVL_GaussianBlur\n");
  g_platform = saved;
}

TEST(GaussianKernels, EachVectorLevelReplacesBothKernels) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const GaussianKernels scalar = gaussianKernels(InstructionSet::sse2);
  const GaussianKernels ssse3 = gaussianKernels(InstructionSet::sse41);
  const GaussianKernels avx2 = gaussianKernels(InstructionSet::avx2);
  EXPECT_EQ(gaussianKernels(InstructionSet::scalar).horizontal, scalar.horizontal);
  EXPECT_NE(scalar.horizontal, ssse3.horizontal);
  EXPECT_NE(scalar.vertical, ssse3.vertical);
  EXPECT_NE(ssse3.horizontal, avx2.horizontal);
  EXPECT_NE(ssse3.vertical, avx2.vertical);
}

}  // namespace
}  // namespace kvl
