#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <sstream>
#include <string>

#include "core/initialise.h"
#include "filters/averaging_blur_kernels.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::Random;
using test::TestImage;

struct Part {
  int32_t x0, y0, width, height;
};

// One sample of the published formulas by direct summation.
int modelSample(const std::vector<int>& line, int64_t i, double radius) {
  const auto last = static_cast<int64_t>(line.size()) - 1;
  const auto at = [&](int64_t x) {
    return uint64_t(line[static_cast<size_t>(std::clamp<int64_t>(x, 0, last))]);
  };
  const auto k = static_cast<int64_t>(std::floor(radius));
  const uint64_t largest = 510 * static_cast<uint64_t>(std::ceil(radius)) + 255;
  uint64_t unit = uint64_t{1} << 31;
  while (unit > 2 && unit > 4294967295u / largest) unit /= 2;
  const auto full = static_cast<uint64_t>(static_cast<double>(unit) / (2 * radius + 1) + 0.5);
  const auto edge =
      static_cast<uint64_t>(static_cast<double>(full) * (radius - floor(radius)) + 0.5);
  if (full == 0) return 0;
  uint64_t sum = 0;
  for (int64_t d = -k; d <= k; ++d) sum += at(i + d);
  const uint64_t value = full * sum + edge * (at(i - k - 1) + at(i + k + 1)) + unit / 2;
  return static_cast<int>(std::min<uint64_t>(value / unit, 255));
}

struct ModelRows {
  std::vector<uint8_t>& bytes;
  int64_t width, height;
  size_t stride;
};

void modelPass(const ModelRows& in, const ModelRows& out, const Part& part, double radius,
               size_t samples) {
  const int64_t length = std::min<int64_t>(in.width - part.x0, part.width);
  const int64_t lines = std::min<int64_t>(in.height - part.y0, part.height);
  if (length <= 1) return;
  for (int64_t j = 0; j < lines; ++j) {
    for (size_t c = 0; c < samples; ++c) {
      std::vector<int> line;
      for (int64_t i = 0; i < length; ++i) {
        line.push_back(
            in.bytes[size_t(part.y0 + j) * in.stride + size_t(part.x0 + i) * samples + c]);
      }
      for (int64_t i = 0; i < length; ++i) {
        out.bytes[size_t(part.x0 + i) * out.stride + size_t(part.y0 + j) * samples + c] =
            static_cast<uint8_t>(modelSample(line, i, radius));
      }
    }
  }
}

void modelBothPasses(const ModelRows& source, const ModelRows& transposed, const Part& part,
                     double horizontal, double vertical, size_t samples) {
  modelPass(source, transposed, part, horizontal, samples);
  modelPass(transposed, source, {part.y0, part.x0, part.height, part.width}, vertical, samples);
}

// A call whose result the model has worked out, to be made as often as a test likes.
using Check = std::function<void()>;

Check wholeImageCheck(int32_t width, int32_t height, int32_t radius, uint64_t seed) {
  const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
  TestImage pattern(width, height);
  const std::vector<uint8_t> imageBefore = pattern.fillRandom(seed).bytes();
  const std::vector<uint8_t> workBefore = pattern.fillRandom(seed + 1000).bytes();
  std::vector<uint8_t> expectedImage = imageBefore, expectedWork = workBefore;
  const size_t workStride = size_t(height) * pattern.stride() / size_t(width);
  modelBothPasses({expectedImage, width, height, pattern.stride()},
                  {expectedWork, height, width, workStride}, {0, 0, width, height}, radius, radius,
                  3);
  return [=] {
    TestImage work(width, height, 24, guard), image(width, height, 24, guard);
    work.assign(workBefore);
    image.assign(imageBefore);
    KVL_AveragingBlur(&work.header, work.bits(), &image.header, image.bits(), radius);
    std::ostringstream what;
    what << width << " x " << height << ", radius " << radius;
    ASSERT_EQ(firstDifference(expectedWork, work.bytes(), workStride), "")
        << what.str() << ", work";
    ASSERT_EQ(firstDifference(expectedImage, image.bytes(), image.stride()), "") << what.str();
    ASSERT_TRUE(work.width() == width && work.height() == height) << what.str();
  };
}

struct Signs {
  int source = 1;
  int transposed = 1;
};

// `signs` are those of the two heights.
template <class Blur, class Radius>
Check rectangleCheck(Blur blur, int32_t width, int32_t height, uint16_t bitCount, Part part,
                     Radius horizontal, Radius vertical, uint64_t seed, Signs signs = {}) {
  const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
  TestImage source(width, height * signs.source, bitCount);
  TestImage transposed(height, width * signs.transposed, bitCount);
  const std::vector<uint8_t> sourceBefore = source.fillRandom(seed).bytes();
  const std::vector<uint8_t> transposedBefore = transposed.fillRandom(seed + 1000).bytes();
  std::vector<uint8_t> expectedSource = sourceBefore, expectedTransposed = transposedBefore;
  modelBothPasses({expectedSource, width, source.height(), source.stride()},
                  {expectedTransposed, height, transposed.height(), transposed.stride()}, part,
                  double(horizontal), double(vertical), bitCount / 8);
  return [=] {
    TestImage in(width, height * signs.source, bitCount, guard);
    TestImage work(height, width * signs.transposed, bitCount, guard);
    in.assign(sourceBefore);
    work.assign(transposedBefore);
    blur(&in.header, in.bits(), &work.header, work.bits(), part.x0, part.y0, part.width,
         part.height, horizontal, vertical);
    std::ostringstream what;
    what << width << " x " << in.height() << " x " << bitCount << ", rectangle " << part.x0 << " "
         << part.y0 << " " << part.width << " " << part.height << ", radii " << horizontal << " "
         << vertical;
    ASSERT_EQ(firstDifference(expectedTransposed, work.bytes(), work.stride()), "")
        << what.str() << ", transposed";
    ASSERT_EQ(firstDifference(expectedSource, in.bytes(), in.stride()), "") << what.str();
  };
}

void runAtEveryLevelAndTeam(const std::vector<Check>& checks) {
  test::forEachLevelAndTeam([&] {
    for (const Check& check : checks) check();
  });
}

TEST(AveragingBlur, WeightsAreAsWorkedByHand) {
  const BoxWeights one = boxWeights(1);
  EXPECT_EQ(one.shift, 22);
  EXPECT_EQ(one.full, 1398101u);
  EXPECT_EQ(one.edge, 0u);
  // The bound of 1.5 is that of radius 2: 255 * 5 * 2^21 is the last below 2^32; 2^21 / 4 = 524288.
  const BoxWeights oneAndAHalf = fractionalBoxWeights(1.5f);
  EXPECT_EQ(oneAndAHalf.reach, 1);
  EXPECT_EQ(oneAndAHalf.shift, 21);
  EXPECT_EQ(oneAndAHalf.full, 524288u);
  EXPECT_EQ(oneAndAHalf.edge, 262144u);
  EXPECT_EQ(boxWeights(2055).full, 1u);
  EXPECT_EQ(boxWeights(2056).full, 0u);
}

TEST(AveragingBlur, AveragesAndTransposesAsWorkedByHand) {
  TestImage source(3, 2, 8), transposed(2, 3, 8);
  const uint8_t rows[2][3] = {{0, 90, 255}, {60, 0, 3}};
  for (int y = 0; y < 2; ++y) std::copy(rows[y], rows[y] + 3, source.row(y));
  KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, transposed.bits(), 0, 0, 3, 2,
                 1, 1);
  const uint8_t averages[3][2] = {{30, 40}, {115, 21}, {200, 2}};
  // Two thirds of the one and a third of the other, halves up.
  const uint8_t blurred[2][3] = {{33, 84, 134}, {37, 52, 68}};
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 2; ++x) {
      EXPECT_EQ(transposed.row(y)[x], averages[y][x]) << x << " " << y;
      EXPECT_EQ(source.row(x)[y], blurred[x][y]) << x << " " << y;
    }
    EXPECT_EQ(transposed.row(y)[2], 0xCD);
  }
}

TEST(AveragingBlur, KeepsFlatImagesUpToRadius128) {
  const auto everyRadius = [] {
    const auto flatAfter = [](int value, int32_t radius) {
      TestImage source(35, 3, 8), transposed(3, 35, 8);
      source.fill(static_cast<uint8_t>(value));
      KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, transposed.bits(), 0, 0, 35,
                     3, radius, 1);
      const uint8_t first = source.row(0)[0];
      EXPECT_EQ(std::count(source.row(1), source.row(1) + 35, first), 35) << value;
      return first;
    };
    for (int32_t radius = 1; radius <= 128; radius += radius < 20 ? 1 : 9) {
      for (int value = 0; value < 256; value += 15) ASSERT_EQ(flatAfter(value, radius), value);
    }
    EXPECT_EQ(flatAfter(254, 129), 255);
    EXPECT_EQ(flatAfter(255, 129), 255);
    EXPECT_EQ(flatAfter(255, 2055), 255);
    EXPECT_EQ(flatAfter(255, 2056), 0);
  };
  for (const InstructionSet level : test::availableLevels()) test::atLevel(level, everyRadius);
}

TEST(AveragingBlur, FollowsTheFormulaForEverySmallSize) {
  std::vector<Check> checks;
  for (int width = 1; width <= 33; ++width) {
    for (int height = 1; height <= 33; height += width % 3 + 1) {
      const uint64_t seed = checks.size();
      checks.push_back(wholeImageCheck(width, height, static_cast<int32_t>(seed % 19) + 1, seed));
    }
  }
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [&] {
      for (const Check& check : checks) check();
    });
  }
}

TEST(AveragingBlur, GivesTheSameBytesAtEveryLevelAndTeamSize) {
  std::vector<Check> checks;
  for (const int32_t radius : {1, 2, 7, 50, 127, 128, 129, 300, 1500, 2056, INT32_MAX}) {
    checks.push_back(wholeImageCheck(203, 101, radius, checks.size()));
  }
  // Lines longer than what is kept of them at a time, with and without room for the box.
  checks.push_back(wholeImageCheck(1201, 3, 127, 8));
  checks.push_back(wholeImageCheck(1201, 5, 224, 9));
  checks.push_back(wholeImageCheck(1203, 3, 225, 10));
  checks.push_back(wholeImageCheck(1201, 5, 400, 11));
  runAtEveryLevelAndTeam(checks);
}

TEST(AveragingBlur, BlursRectanglesOfEveryBitCount) {
  std::vector<Check> checks;
  Random random(5);
  for (uint64_t seed = 0; seed < 120; ++seed) {
    const uint16_t bitCount = seed % 3 == 0 ? 8 : seed % 3 == 1 ? 24 : 32;
    const int32_t width = random.range(1, 70), height = random.range(1, 130);
    const Part part = {random.range(0, width), random.range(0, height), random.range(-1, width + 9),
                       random.range(-1, height + 9)};
    const Signs signs = {seed % 7 ? 1 : -1, seed % 5 ? 1 : -1};
    checks.push_back(rectangleCheck(KVL_AvgBlurUni, width, height, bitCount, part,
                                    random.range(1, 30), random.range(1, 150), seed, signs));
    checks.push_back(rectangleCheck(KVL_AvgBlurUniFloat, width, height, bitCount, part,
                                    float(random.range(0, 300)) / 64,
                                    float(random.range(0, 9000)) / 64, seed, signs));
  }
  const Part all = {0, 0, INT32_MAX, INT32_MAX};
  for (const float radius : {0.0f, 1e-6f, 0.999f, 1.5f, 128.0f, 128.5f, 254.25f, 700.7f, 1e9f}) {
    checks.push_back(rectangleCheck(KVL_AvgBlurUniFloat, 555, 37, 24, all, radius, 0.5f, 3));
  }
  runAtEveryLevelAndTeam(checks);
}

TEST(AveragingBlur, MirrorsWithTheImage) {
  initialise();
  const int32_t width = 77, height = 20;
  TestImage image(width, height, 8), mirrored(width, height, 8), work(height, width, 8);
  image.fillRandom(3);
  for (int y = 0; y < height; ++y) {
    std::reverse_copy(image.row(y), image.row(y) + width, mirrored.row(height - 1 - y));
  }
  for (TestImage* each : {&image, &mirrored}) {
    KVL_AvgBlurUniFloat(&each->header, each->bits(), &work.header, work.bits(), 0, 0, width, height,
                        4.3f, 2.6f);
  }
  for (int y = 0; y < height; ++y) {
    uint8_t* other = mirrored.row(height - 1 - y);
    std::reverse(other, other + width);
    ASSERT_TRUE(std::equal(other, other + width, image.row(y))) << y;
  }
}

TEST(AveragingBlur, ReplacesTheKernelFromItsLevelOn) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const auto scalar = averagingBlurKernels(InstructionSet::scalar).blurLines;
  EXPECT_EQ(averagingBlurKernels(InstructionSet::sse41).blurLines, scalar);
  EXPECT_NE(averagingBlurKernels(InstructionSet::avx2).blurLines, scalar);
}

TEST(AveragingBlur, FractionalRadiusThatIsWholeGivesTheIntegerBlur) {
  initialise();
  for (const int32_t radius : {1, 2, 33, 128, 129, 500, 2055, 4096, 16777216}) {
    const BoxWeights whole = boxWeights(radius);
    const BoxWeights fractional = fractionalBoxWeights(static_cast<float>(radius));
    EXPECT_EQ(whole.reach, fractional.reach) << radius;
    EXPECT_EQ(whole.full, fractional.full) << radius;
    EXPECT_EQ(whole.shift, fractional.shift) << radius;
    EXPECT_EQ(fractional.edge, 0u) << radius;
  }
}

TEST(AveragingBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage source(20, 12), transposed(12, 20), work(20, 12);
  source.fillRandom(4);
  transposed.fillRandom(5);
  work.fillRandom(6);
  const std::vector<uint8_t> before[] = {source.bytes(), transposed.bytes(), work.bytes()};
  const auto expectUnchanged = [&](const std::string& what) {
    EXPECT_EQ(firstDifference(before[0], source.bytes(), source.stride()), "") << what;
    EXPECT_EQ(firstDifference(before[1], transposed.bytes(), transposed.stride()), "") << what;
    EXPECT_EQ(firstDifference(before[2], work.bytes(), work.stride()), "") << what;
  };
  const auto whole = [&](int32_t radius) {
    KVL_AveragingBlur(&work.header, work.bits(), &source.header, source.bits(), radius);
  };
  const auto rectangle = [&](Part p, float horizontal, float vertical) {
    KVL_AvgBlurUniFloat(&source.header, source.bits(), &transposed.header, transposed.bits(), p.x0,
                        p.y0, p.width, p.height, horizontal, vertical);
    if (!(std::abs(horizontal) < 1e9f && std::abs(vertical) < 1e9f)) return;
    KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, transposed.bits(), p.x0, p.y0,
                   p.width, p.height, static_cast<int32_t>(horizontal),
                   static_cast<int32_t>(vertical));
  };
  const Part all = {0, 0, 20, 12};
  whole(0);
  whole(INT32_MIN);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const float bad : {-1.0f, -1e-30f, nan, 2147483648.0f, HUGE_VALF, -HUGE_VALF}) {
    rectangle(all, bad, 2);
    rectangle(all, 2, bad);
  }
  KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, transposed.bits(), 0, 0, 9, 9,
                 0, 1);
  expectUnchanged("radius");
  KVL_AveragingBlur(nullptr, work.bits(), &source.header, source.bits(), 2);
  KVL_AveragingBlur(&work.header, nullptr, &source.header, source.bits(), 2);
  KVL_AveragingBlur(&work.header, work.bits(), nullptr, source.bits(), 2);
  KVL_AveragingBlur(&work.header, work.bits(), &source.header, nullptr, 2);
  KVL_AvgBlurUni(nullptr, source.bits(), &transposed.header, transposed.bits(), 0, 0, 9, 9, 1, 1);
  KVL_AvgBlurUni(&source.header, nullptr, &transposed.header, transposed.bits(), 0, 0, 9, 9, 1, 1);
  KVL_AvgBlurUni(&source.header, source.bits(), nullptr, transposed.bits(), 0, 0, 9, 9, 1, 1);
  KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, nullptr, 0, 0, 9, 9, 1, 1);
  expectUnchanged("null");
  for (const Part& outside :
       {Part{-1, 0, 9, 9}, Part{0, -1, 9, 9}, Part{INT32_MIN, 3, INT32_MAX, 9}, Part{20, 0, 9, 9},
        Part{0, 12, 9, 9}, Part{INT32_MAX, INT32_MAX, 9, 9}, Part{3, 3, 0, 9},
        Part{3, 3, 9, INT32_MIN}}) {
    rectangle(outside, 2, 2);
    expectUnchanged("rectangle at " + std::to_string(outside.x0) + " " +
                    std::to_string(outside.y0));
  }
  const BITMAPINFOHEADER good[] = {source.header, transposed.header, work.header};
  const int32_t sizes[][2] = {{19, 12},        {20, 13}, {0, 0},        {-20, 12},
                              {20, INT32_MIN}, {0, 12},  {INT32_MIN, 1}};
  for (const auto& [width, height] : sizes) {
    source.header.biWidth = width;
    source.header.biHeight = height;
    whole(2);
    rectangle(all, 2, 2);
    work.header.biWidth = width;
    work.header.biHeight = height;
    if (width <= 0 || height <= 0) whole(2);
    expectUnchanged(std::to_string(width) + " x " + std::to_string(height));
    work.header = good[2];
  }
  // Sizes that agree and cannot be real.
  source.header.biWidth = work.header.biWidth = INT32_MAX;
  source.header.biHeight = work.header.biHeight = INT32_MAX;
  transposed.header.biWidth = transposed.header.biHeight = INT32_MAX;
  whole(2);
  rectangle(all, 2, 2);
  expectUnchanged("sizes beyond the address space");
  for (const uint16_t bitCount : {0, 1, 16, 48}) {
    source.header = good[0];
    transposed.header = good[1];
    source.header.biBitCount = bitCount;
    rectangle(all, 2, 2);
    transposed.header.biBitCount = bitCount;
    rectangle(all, 2, 2);
    expectUnchanged("bit count " + std::to_string(bitCount));
  }
  source.header = good[0];
  transposed.header = good[1];
  source.header.biCompression = transposed.header.biCompression = 0x32595559;
  rectangle(all, 2, 2);
  expectUnchanged("compression");
}

}  // namespace
}  // namespace kvl
