#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <sstream>
#include <string>

#include "core/initialise.h"
#include "filters/classic_blur_kernels.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::Random;
using test::TestImage;

// What is stored of a 32-bit value that may have wrapped.
uint8_t lowByteOfShifted(uint64_t value) {
  return static_cast<uint8_t>((value + (1u << 23)) % (uint64_t{1} << 32) >> 24);
}

uint8_t modelSelective(const std::vector<int>& line, int64_t i, int64_t threshold, int64_t extent) {
  const int64_t whole = 2 * extent * threshold;
  const auto reciprocal = static_cast<int64_t>(16777216.0 / static_cast<double>(whole) + 0.5);
  const int64_t m = line[size_t(i)];
  int64_t centre = whole, sum = 0;
  for (int64_t t = std::max<int64_t>(0, i - extent);
       t <= i + extent && t < static_cast<int64_t>(line.size()); ++t) {
    if (t == i) continue;
    const int64_t v = line[size_t(t)], weight = std::max<int64_t>(0, threshold - std::abs(m - v));
    centre -= weight;
    sum += weight * v;
  }
  return lowByteOfShifted(static_cast<uint64_t>((centre * m + sum) * reciprocal));
}

uint8_t modelPlain(const std::vector<int>& line, int64_t i, double radius) {
  const auto reciprocal = static_cast<uint64_t>(16777216.0 / (2 * radius + 1) + 0.5);
  const auto edge = static_cast<uint64_t>((radius - std::floor(radius)) * 32768 + 0.5);
  const auto reach = static_cast<int64_t>(std::ceil(radius));
  uint64_t sum = 0, edges = 0;
  for (int64_t t = 0; t < static_cast<int64_t>(line.size()); ++t) {
    const int64_t distance = std::abs(t - i);
    if (distance > reach) continue;
    if (edge > 0 && distance == reach) {
      edges += uint64_t(line[size_t(t)]) * edge;
    } else {
      sum += uint64_t(line[size_t(t)]);
    }
  }
  return lowByteOfShifted(reciprocal * (sum + (edges + 16384) / 32768));
}

void modelPass(const std::vector<uint8_t>& in, size_t inStride, std::vector<uint8_t>& out,
               size_t outStride, int width, int height, int threshold, float radius,
               size_t samples) {
  const auto extent = static_cast<int64_t>(std::floor(double{radius} + 0.5));
  if (threshold != 255 && extent == 0) return;
  for (int j = 0; j < height; ++j) {
    for (size_t c = 0; c < samples; ++c) {
      std::vector<int> line;
      for (int i = 0; i < width; ++i)
        line.push_back(in[size_t(j) * inStride + size_t(i) * samples + c]);
      for (int i = 0; i < width; ++i) {
        out[size_t(i) * outStride + size_t(j) * samples + c] =
            threshold == 255 ? modelPlain(line, i, double{radius})
                             : modelSelective(line, i, threshold, extent);
      }
    }
  }
}

// A call whose result the model has worked out, to be made as often as a test likes.
using Check = std::function<void()>;

Check modelCheck(int width, int height, int samples, int threshold, float radius, uint64_t seed) {
  const GuardAt guard = seed % 2 ? GuardAt::end : GuardAt::start;
  const auto bitCount = static_cast<uint16_t>(8 * samples);
  const size_t imageStride = size_t(width * samples) + seed % 6;
  const size_t workStride = size_t(height * samples) + seed % 5;
  const std::vector<uint8_t> imageBefore =
      TestImage(width, height, bitCount, guard, imageStride).fillRandom(seed).bytes();
  const std::vector<uint8_t> workBefore =
      TestImage(height, width, bitCount, guard, workStride).fillRandom(seed + 1000).bytes();
  std::vector<uint8_t> expectedImage = imageBefore, expectedWork = workBefore;
  modelPass(expectedImage, imageStride, expectedWork, workStride, width, height, threshold, radius,
            size_t(samples));
  modelPass(expectedWork, workStride, expectedImage, imageStride, height, width, threshold, radius,
            size_t(samples));
  return [=] {
    TestImage image(width, height, bitCount, guard, imageStride);
    TestImage work(height, width, bitCount, guard, workStride);
    image.assign(imageBefore);
    work.assign(workBefore);
    const auto w = static_cast<uint32_t>(width), h = static_cast<uint32_t>(height);
    const auto is = static_cast<uint32_t>(imageStride), ws = static_cast<uint32_t>(workStride);
    if (samples == 3 && seed % 2) {
      KVL_BlurClassicUni(image.bits(), is, work.bits(), ws, w, h, threshold, radius);
    } else {
      KVL_BlurClassicUni_MultiComp(image.bits(), is, work.bits(), ws, w, h, threshold, radius,
                                   samples, 1);
    }
    std::ostringstream what;
    what << width << " x " << height << " x " << samples << ", threshold " << threshold
         << ", radius " << radius;
    ASSERT_EQ(firstDifference(expectedWork, work.bytes(), workStride, size_t(samples)), "")
        << what.str() << ", work";
    ASSERT_EQ(firstDifference(expectedImage, image.bytes(), imageStride, size_t(samples)), "")
        << what.str();
  };
}

std::vector<int> blurredRow(const std::vector<uint8_t>& row, int threshold, float radius) {
  const auto width = static_cast<int32_t>(row.size());
  // Rows that all are the same: the second pass sees flat lines. The middle is far from their ends.
  const int32_t height = 41;
  TestImage image(width, height, 8), work(height, width, 8);
  for (int y = 0; y < height; ++y) std::copy(row.begin(), row.end(), image.row(y));
  KVL_BlurClassicUni_MultiComp(image.bits(), static_cast<uint32_t>(image.stride()), work.bits(),
                               static_cast<uint32_t>(work.stride()), static_cast<uint32_t>(width),
                               static_cast<uint32_t>(height), threshold, radius, 1, 1);
  return {image.row(height / 2), image.row(height / 2) + width};
}

TEST(ClassicBlur, WeighsNeighboursAsWorkedByHand) {
  // Threshold 10, n 1, D 20, K 838861. Centre 100 beside 104 and 200: g = 6 and 0, so
  // (14 * 100 + 6 * 104) / 20 = 101.2; centre 104 beside 100: (14 * 104 + 6 * 100) / 20 = 102.8.
  EXPECT_EQ(blurredRow({104, 100, 200}, 10, 1.0f), (std::vector<int>{103, 101, 200}));
  // Below half a pixel nothing happens.
  EXPECT_EQ(blurredRow({104, 100, 200}, 10, 0.49f), (std::vector<int>{104, 100, 200}));
}

TEST(ClassicBlur, PlainBoxIsAsWorkedByHand) {
  EXPECT_EQ(blurredRow({255, 255, 255, 255, 255}, 255, 1.0f),
            (std::vector<int>{170, 255, 255, 255, 170}));
  // Radius 1.5: taps at -1 .. 1 full, those at -2 and 2 half, over 4.
  EXPECT_EQ(blurredRow({0, 0, 0, 200, 0, 0, 0}, 255, 1.5f),
            (std::vector<int>{0, 25, 50, 50, 50, 25, 0}));
}

TEST(ClassicBlur, KeepsFlatAreas) {
  initialise();
  for (const int threshold : {1, 30, 128, 200, 254, 300}) {
    for (const float radius : {1.0f, 2.4f, 9.0f}) {
      for (const int value : {0, 1, 127, 254, 255}) {
        const std::vector<uint8_t> flat(25, static_cast<uint8_t>(value));
        for (const int result : blurredRow(flat, threshold, radius)) ASSERT_EQ(result, value);
      }
    }
  }
}

TEST(ClassicBlur, FollowsTheFormulaForEverySmallSize) {
  std::vector<Check> checks;
  for (int width = 1; width <= 33; ++width) {
    for (int height = 1; height <= 33; height += width % 3 + 1) {
      const uint64_t seed = checks.size();
      const int threshold = seed % 4 == 0 ? 255 : static_cast<int>(seed * 7 % 254) + 1;
      checks.push_back(modelCheck(width, height, seed % 3 == 0 ? 1 : 3, threshold,
                                  static_cast<float>(seed % 53) / 8 + 0.125f, seed));
    }
  }
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [&] {
      for (const Check& check : checks) check();
    });
  }
}

TEST(ClassicBlur, GivesTheSameBytesAtEveryLevelAndTeamSize) {
  std::vector<Check> checks;
  const auto add = [&](int width, int height, int samples, int threshold, float radius) {
    checks.push_back(modelCheck(width, height, samples, threshold, radius, checks.size()));
  };
  // Around the bounds of the byte-wide and word-wide sums, and of the 32-bit wrap.
  const std::pair<int, float> selective[] = {
      {1, 1.0f},    {128, 3.0f},       {128, 4.0f},   {129, 1.0f},   {254, 2.0f},
      {254, 60.0f}, {256, 3.0f},       {32767, 2.0f}, {32768, 2.0f}, {100000, 3.0f},
      {20, 300.0f}, {9000000, 100.0f}, {16, 240.0f}};
  for (const auto& [threshold, radius] : selective) {
    add(107, 39, 3, threshold, radius);
    add(129, 101, 1, threshold, radius);
  }
  for (const float radius : {1e-6f, 0.3f, 1.0f, 1.00001f, 1.99999f, 2.5f, 50.0f, 127.0f, 127.5f,
                             128.0f, 128.25f, 129.5f, 250.5f, 1000.75f, 70000.5f, 2147483520.0f}) {
    add(107, 39, 3, 255, radius);
    add(801, 5, 1, 255, radius);
  }
  // Lines longer than what is kept of them at a time.
  add(1300, 7, 3, 255, 260.5f);
  add(700, 3, 1, 12, 240);
  add(700, 3, 1, 12, 241);
  test::forEachLevelAndTeam([&] {
    for (const Check& check : checks) check();
  });
}

TEST(ClassicBlur, ReplacesTheKernelsFromTheirLevelOn) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const ClassicBlurKernels scalar = classicBlurKernels(InstructionSet::scalar);
  const ClassicBlurKernels wide = classicBlurKernels(InstructionSet::avx2);
  EXPECT_EQ(classicBlurKernels(InstructionSet::sse41).plainBox, scalar.plainBox);
  EXPECT_NE(wide.plainBox, scalar.plainBox);
  EXPECT_NE(wide.selectiveNear, scalar.selectiveNear);
  EXPECT_EQ(wide.selective, scalar.selective);
}

TEST(ClassicBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage image(20, 12), work(12, 20);
  image.fillRandom(4);
  work.fillRandom(5);
  const std::vector<uint8_t> imageBefore = image.bytes(), workBefore = work.bytes();
  const auto expectUnchanged = [&](const std::string& what) {
    EXPECT_EQ(firstDifference(imageBefore, image.bytes(), image.stride()), "") << what;
    EXPECT_EQ(firstDifference(workBefore, work.bytes(), work.stride()), "") << what;
  };
  const auto blur = [&](int threshold, float radius, int components = 3, int layout = 1) {
    KVL_BlurClassicUni_MultiComp(image.bits(), 60, work.bits(), 36, 20, 12, threshold, radius,
                                 components, layout);
    if (components != 3 || layout != 1) return;
    KVL_BlurClassicUni(image.bits(), 60, work.bits(), 36, 20, 12, threshold, radius);
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const float radius : {0.0f, -0.0f, -1.0f, nan, 2147483648.0f, HUGE_VALF, -HUGE_VALF}) {
    blur(255, radius);
    blur(20, radius);
  }
  expectUnchanged("radius");
  blur(0, 2);
  blur(-1, 2);
  blur(INT32_MIN, 2);
  expectUnchanged("threshold");
  blur(INT32_MAX, 1);
  blur(1 << 20, 1024);
  expectUnchanged("centre weight");
  for (const int components : {-1, 0, 2, 4}) blur(20, 2, components);
  for (const int layout : {-1, 0, 2}) blur(20, 2, 3, layout);
  expectUnchanged("components and layout");
  KVL_BlurClassicUni(nullptr, 60, work.bits(), 36, 20, 12, 20, 2);
  KVL_BlurClassicUni(image.bits(), 60, nullptr, 36, 20, 12, 20, 2);
  expectUnchanged("null");
  for (const int threshold : {20, 255}) {
    KVL_BlurClassicUni(image.bits(), 59, work.bits(), 36, 20, 12, threshold, 2);
    KVL_BlurClassicUni(image.bits(), 60, work.bits(), 35, 20, 12, threshold, 2);
    KVL_BlurClassicUni(image.bits(), 0, work.bits(), 0, 20, 12, threshold, 2);
    KVL_BlurClassicUni(image.bits(), 60, work.bits(), 36, 0, 12, threshold, 2);
    KVL_BlurClassicUni(image.bits(), 60, work.bits(), 36, 20, 0, threshold, 2);
    KVL_BlurClassicUni(image.bits(), 0xFFFFFFFF, work.bits(), 0xFFFFFFFF, 20, 0xFFFFFFFF, threshold,
                       2);
    expectUnchanged("strides and sizes");
  }
}

}  // namespace
}  // namespace kvl
