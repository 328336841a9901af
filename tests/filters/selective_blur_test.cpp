#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>

#include "core/initialise.h"
#include "filters/selective_mean.h"
#include "filters/transpose_rgb24.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::Random;
using test::TestImage;

std::string describe(int width, int height, int threshold, int radius) {
  return std::to_string(width) + " x " + std::to_string(height) + ", threshold " +
         std::to_string(threshold) + ", radius " + std::to_string(radius);
}

// The mean of one component of a w x h image whose pixels lie `xStep` and whose rows lie `yStep`
// bytes apart, over the rectangle of `rx` and `ry` pixels to each side.
uint8_t modelMean(const uint8_t* bits, int w, int h, size_t xStep, size_t yStep, int x, int y,
                  int rx, int ry, int64_t normaliser, int threshold) {
  const auto at = [&](int column, int row) {
    return int{bits[static_cast<size_t>(column) * xStep + static_cast<size_t>(row) * yStep]};
  };
  const int m = at(x, y);
  int64_t weights = 0, values = 0;
  for (int row = std::max(0, y - ry); row <= std::min(h - 1, y + ry); ++row) {
    for (int column = std::max(0, x - rx); column <= std::min(w - 1, x + rx); ++column) {
      const int n = at(column, row);
      const int weight = threshold - std::abs(m - n);
      if ((column == x && row == y) || weight <= 0) continue;
      weights += weight;
      values += int64_t{n} * weight;
    }
  }
  const int64_t reciprocal = 65536 / normaliser;
  const int64_t mean = ((normaliser - weights) * m + values) * reciprocal / 65536;
  return static_cast<uint8_t>(std::min<int64_t>(mean, 255));
}

void selectiveBlurOf(const TestImage& source, TestImage& destination, int threshold, int radius) {
  KVL_SelectiveBlur(&source.header, source.bits(), &destination.header, destination.bits(),
                    threshold, radius);
}

void modifiedBlur(TestImage& work, TestImage& image, int threshold, int radius) {
  KVL_ModifiedSelectiveBlur(&work.header, work.bits(), &image.header, image.bits(), threshold,
                            radius);
}

void expectSquareModel(int width, int height, int threshold, int radius, GuardAt guard,
                       uint64_t seed) {
  TestImage source(width, height, 24, guard), destination(width, height, 24, guard);
  source.fillRandom(seed);
  destination.fillRandom(seed + 1);
  const std::vector<uint8_t> before = source.bytes();
  std::vector<uint8_t> expected = destination.bytes();
  const int64_t side = 2 * int64_t{radius} + 1;
  for (int y = 0; y < height; ++y) {
    for (size_t i = 0; i < source.rowBytes(); ++i) {
      expected[static_cast<size_t>(y) * source.stride() + i] = modelMean(
          source.bits() + i % 3, width, height, 3, source.stride(), static_cast<int>(i / 3), y,
          radius, radius, (side * side - 1) * threshold, threshold);
    }
  }
  selectiveBlurOf(source, destination, threshold, radius);
  const std::string what = describe(width, height, threshold, radius);
  ASSERT_EQ(firstDifference(expected, destination.bytes(), source.stride()), "") << what;
  ASSERT_EQ(firstDifference(before, source.bytes(), source.stride()), "") << what << ", source";
}

void expectModifiedModel(int width, int height, int threshold, int radius, GuardAt guard,
                         uint64_t seed) {
  TestImage work(width, height, 24, guard), image(width, height, 24, guard);
  work.fillRandom(seed);
  image.fillRandom(seed + 1);
  std::vector<uint8_t> expectedWork = work.bytes(), expected = image.bytes();
  const size_t stride = image.stride();
  const size_t workStride = stride * static_cast<size_t>(height) / static_cast<size_t>(width);
  const int64_t normaliser = 2 * int64_t{threshold} * radius;
  for (int y = 0; y < height; ++y) {
    for (size_t i = 0; i < image.rowBytes(); ++i) {
      expectedWork[i / 3 * workStride + 3 * static_cast<size_t>(y) + i % 3] =
          modelMean(image.bits() + i % 3, width, height, 3, stride, static_cast<int>(i / 3), y,
                    radius, 0, normaliser, threshold);
    }
  }
  for (int y = 0; y < height; ++y) {
    for (size_t i = 0; i < image.rowBytes(); ++i) {
      expected[static_cast<size_t>(y) * stride + i] =
          modelMean(&expectedWork[i % 3], width, height, workStride, 3, static_cast<int>(i / 3), y,
                    0, radius, normaliser, threshold);
    }
  }
  modifiedBlur(work, image, threshold, radius);
  const std::string what = describe(width, height, threshold, radius);
  ASSERT_EQ(firstDifference(expectedWork, work.bytes(), workStride), "") << what << ", work";
  ASSERT_EQ(firstDifference(expected, image.bytes(), stride), "") << what;
  ASSERT_EQ(work.width(), width);
  ASSERT_EQ(work.height(), height);
}

using ExpectModel = std::function<void(int, int, int, int, GuardAt, uint64_t)>;

void expectModelForEverySmallSize(const ExpectModel& expect) {
  Random random(5);
  uint64_t seed = 1;
  for (int width = 1; width <= 33; ++width) {
    for (int height = 1; height <= 33; height += width % 4 + 1) {
      const int threshold = random.range(0, 3) == 0 ? random.range(1, 9000) : random.range(1, 140);
      expect(width, height, threshold, random.range(1, 4),
             seed % 2 != 0 ? GuardAt::end : GuardAt::start, seed);
      ++seed;
    }
  }
}

TEST(SelectiveBlur, MixesASinglePixelAsWorkedByHand) {
  TestImage source(5, 3), destination(5, 3);
  source.fill(100);
  source.row(1)[2 * 3] = 104;
  selectiveBlurOf(source, destination, 10, 1);
  // D = 80, K = 819. Centre: (32 * 104 + 8 * 100 * 6) * 819 >> 16. A neighbour of it that keeps
  // its 8 neighbours: (80 * 100 + 4 * 6) * 819 >> 16. A flat 100: 8000 * 819 >> 16.
  EXPECT_EQ(destination.row(1)[2 * 3], 101);
  EXPECT_EQ(destination.row(1)[1 * 3], 100);
  EXPECT_EQ(destination.row(0)[0], 99);
  EXPECT_EQ(destination.row(1)[2 * 3 + 1], 99);
}

TEST(SelectiveBlur, TruncatesTheReciprocalOfFlatAreas) {
  test::forEachLevelAndTeam([] {
    const int cases[][4] = {{255, 1, 1, 255}, {255, 10, 1, 254},  {200, 227, 8, 199},
                            {200, 228, 8, 0}, {200, 1, 127, 198}, {200, 8192, 1, 200},
                            {200, 8193, 1, 0}};
    for (const auto& [value, threshold, radius, expected] : cases) {
      TestImage source(43, 9), destination(43, 9);
      source.fill(static_cast<uint8_t>(value));
      selectiveBlurOf(source, destination, threshold, radius);
      for (int y = 0; y < 9; ++y) {
        for (size_t i = 0; i < source.rowBytes(); ++i) {
          ASSERT_EQ(destination.row(y)[i], expected) << threshold << " " << radius;
        }
        for (size_t i = source.rowBytes(); i < source.stride(); ++i) {
          ASSERT_EQ(destination.row(y)[i], 0xCD) << "padding";
        }
      }
    }
  });
}

TEST(SelectiveBlur, FollowsTheCutFormulaForEverySmallSize) {
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] { expectModelForEverySmallSize(expectSquareModel); });
  }
}

TEST(SelectiveBlur, GivesTheSameBytesAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    // Thresholds on both sides of every bound of the narrow sums, and beyond a byte.
    uint64_t seed = 1;
    for (const int threshold : {1, 10, 52, 53, 127, 128, 129, 255, 256, 1365}) {
      expectSquareModel(60, 5, threshold, 1, GuardAt::end, seed++);
      expectSquareModel(61, 9, threshold, 3, GuardAt::start, seed++);
    }
    expectSquareModel(211, 13, 20, 2, GuardAt::end, 31);
    expectSquareModel(90, 7, 9, 40, GuardAt::start, 32);
    expectSquareModel(300, 3, 1, 127, GuardAt::end, 33);
  });
}

TEST(SelectiveBlur, TurnsWithTheImage) {
  initialise();
  TestImage source(53, 21), turned(53, 21), blurred(53, 21), turnedBlurred(53, 21);
  source.fillRandom(3);
  const auto turn = [](const TestImage& from, TestImage& to) {
    for (int y = 0; y < from.height(); ++y) {
      for (int x = 0; x < from.width(); ++x) {
        const uint8_t* pixel = from.row(from.height() - 1 - y) + 3 * (from.width() - 1 - x);
        std::copy(pixel, pixel + 3, to.row(y) + 3 * x);
      }
    }
  };
  turn(source, turned);
  selectiveBlurOf(source, blurred, 60, 3);
  selectiveBlurOf(turned, turnedBlurred, 60, 3);
  TestImage expected(53, 21);
  turn(blurred, expected);
  EXPECT_EQ(firstDifference(expected.bytes(), turnedBlurred.bytes(), expected.stride()), "");
}

TEST(ModifiedSelectiveBlur, LeavesTheTransposedRowsInTheWorkBits) {
  TestImage work(3, 2), image(3, 2);
  image.fill(0);
  // Components 0 of the two rows; the other components stay black.
  const uint8_t rows[2][3] = {{100, 104, 200}, {10, 10, 10}};
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) image.row(y)[3 * x] = rows[y][x];
  }
  modifiedBlur(work, image, 10, 1);
  // D = 20, K = 3276. First row: (20 * 100 + 6 * 4), (20 * 104 - 6 * 4), 20 * 200, each * K >> 16.
  const uint8_t firstPass[3][2] = {{101, 9}, {102, 9}, {199, 9}};
  const uint8_t result[2][3] = {{100, 101, 198}, {8, 8, 8}};
  // The work rows lie 12 * 2 / 3 bytes apart.
  for (size_t x = 0; x < 3; ++x) {
    for (size_t y = 0; y < 2; ++y) {
      EXPECT_EQ(work.bits()[x * 8 + y * 3], firstPass[x][y]);
      EXPECT_EQ(image.row(static_cast<int>(y))[x * 3], result[y][x]);
    }
    EXPECT_EQ(work.bits()[x * 8 + 6], 0xCD);
    EXPECT_EQ(work.bits()[x * 8 + 7], 0xCD);
  }
}

TEST(ModifiedSelectiveBlur, FollowsTheCutFormulaForEverySmallSize) {
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] { expectModelForEverySmallSize(expectModifiedModel); });
  }
}

TEST(ModifiedSelectiveBlur, GivesTheSameBytesAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    uint64_t seed = 1;
    for (const int threshold : {1, 10, 90, 128, 129, 255, 4000}) {
      expectModifiedModel(131, 50, threshold, 1, GuardAt::end, seed++);
      expectModifiedModel(67, 77, threshold, 8, GuardAt::start, seed++);
    }
    expectModifiedModel(200, 33, 300, 90, GuardAt::end, 40);
    expectModifiedModel(70, 18, 1, 32768, GuardAt::end, 41);
    expectModifiedModel(70, 18, 1, 32769, GuardAt::start, 42);
    expectModifiedModel(20, 20, INT32_MAX / 2, 1, GuardAt::end, 43);
  });
}

TEST(ModifiedSelectiveBlur, TakesOneHeaderForBothImages) {
  initialise();
  TestImage work(30, 20), image(30, 20), expected(30, 20);
  image.fillRandom(1);
  expected.assign(image.bytes());
  modifiedBlur(work, expected, 30, 2);
  KVL_ModifiedSelectiveBlur(&image.header, work.bits(), &image.header, image.bits(), 30, 2);
  EXPECT_EQ(firstDifference(expected.bytes(), image.bytes(), image.stride()), "");
  EXPECT_EQ(image.width(), 30);
  EXPECT_EQ(image.height(), 20);
}

TEST(SelectiveBlurs, HaveBodiesOfTheirOwnForAvx2) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const SelectiveMeanKernels scalar = selectiveMeanKernels(InstructionSet::sse41);
  const SelectiveMeanKernels vector = selectiveMeanKernels(InstructionSet::avx2);
  EXPECT_NE(vector.mean, scalar.mean);
  EXPECT_NE(vector.meanInside, nullptr);
  EXPECT_NE(transposeRgb24Kernel(InstructionSet::avx2), transposeRgb24Scalar);
}

TEST(SelectiveBlurs, ChangeNothingForABadCall) {
  initialise();
  TestImage work(20, 20), image(20, 20);
  const auto run = [&](int threshold, int radius) {
    selectiveBlurOf(work, image, threshold, radius);
    selectiveBlurOf(image, work, threshold, radius);
    modifiedBlur(work, image, threshold, radius);
  };
  work.fillRandom(5);
  image.fillRandom(4);
  const std::vector<uint8_t> workBefore = work.bytes(), imageBefore = image.bytes();
  BITMAPINFOHEADER* const headers[] = {&work.header, &image.header};
  const auto expectUnchanged = [&](const std::string& what, int width = 20, int height = 20) {
    EXPECT_EQ(firstDifference(workBefore, work.bytes(), work.stride()), "") << what;
    EXPECT_EQ(firstDifference(imageBefore, image.bytes(), image.stride()), "") << what;
    EXPECT_EQ(work.header.biWidth, width) << what;
    EXPECT_EQ(work.header.biHeight, height) << what;
  };
  for (const int bad : {0, -1, INT32_MIN}) {
    run(10, bad);
    run(bad, 2);
  }
  expectUnchanged("radius or threshold below 1");
  for (const auto& [threshold, radius] :
       {std::pair{INT32_MAX, 1}, {INT32_MAX / 8 + 1, 23169}, {1, INT32_MAX}, {2, 1 << 30}}) {
    run(threshold, radius);
  }
  selectiveBlurOf(work, image, INT32_MAX / 8 + 1, 1);
  selectiveBlurOf(work, image, 1, 23170);
  modifiedBlur(work, image, INT32_MAX / 2 + 1, 1);
  expectUnchanged("normaliser beyond 32 bits");
  for (int missing = 0; missing < 4; ++missing) {
    BITMAPINFOHEADER* const w = missing == 0 ? nullptr : headers[0];
    BITMAPINFOHEADER* const i = missing == 2 ? nullptr : headers[1];
    uint8_t* const workBits = missing == 1 ? nullptr : work.bits();
    uint8_t* const imageBits = missing == 3 ? nullptr : image.bits();
    KVL_SelectiveBlur(w, workBits, i, imageBits, 10, 2);
    KVL_ModifiedSelectiveBlur(w, workBits, i, imageBits, 10, 2);
  }
  expectUnchanged("null");
  work.header.biWidth = 19;
  run(10, 2);
  expectUnchanged("widths that differ", 19);
  work.header.biWidth = 20;
  work.header.biHeight = 19;
  run(10, 2);
  expectUnchanged("heights that differ", 20, 19);
  const int sizes[][2] = {{20, 0},
                          {20, -20},
                          {0, 20},
                          {-20, 20},
                          {20, INT32_MIN},
                          {715827882, 1},
                          {INT32_MAX, INT32_MAX}};
  for (const auto& [width, height] : sizes) {
    for (BITMAPINFOHEADER* header : headers) {
      header->biWidth = width;
      header->biHeight = height;
    }
    run(10, 2);
    expectUnchanged(describe(width, height, 10, 2), width, height);
  }
}

}  // namespace
}  // namespace kvl
