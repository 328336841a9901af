#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "core/initialise.h"
#include "correlation/block_measures.h"
#include "correlation/search_model.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::GuardAt;
using test::GuardedMemory;
using test::ModelOptions;
using test::Outcome;
using test::Random;
using test::Scene;

Outcome normal(const Scene& s, bool masked, int range) {
  int64_t score = 77;
  const CorrelationVector v = KVL_CalcCorrelationNormal(
      &score, s.a.bits(), static_cast<int32_t>(s.a.stride()), s.b.bits(),
      static_cast<int32_t>(s.b.stride()), masked ? s.mask.bits() : nullptr, s.width(), s.height(),
      &s.block, range);
  return {v.x, v.y, static_cast<double>(score), 0, 0, {}};
}

Outcome iterativ(const Scene& s, bool masked, const POINT* start, int maxSteps, int limit,
                 const std::vector<int64_t>& table, GuardAt guard) {
  const GuardedMemory memory(table.size() * sizeof(int64_t), guard);
  std::memcpy(memory.data(), table.data(), memory.size());
  int64_t score = 77;
  const CorrelationVector v = KVL_CalcCorrelationIterativ(
      &score, s.a.bits(), static_cast<int32_t>(s.a.stride()), s.b.bits(),
      static_cast<int32_t>(s.b.stride()), masked ? s.mask.bits() : nullptr, s.width(), s.height(),
      &s.block, start, maxSteps, limit, reinterpret_cast<int64_t*>(memory.data()));
  Outcome outcome{v.x, v.y, static_cast<double>(score), 0, 0, table};
  std::memcpy(outcome.table.data(), memory.data(), memory.size());
  return outcome;
}

std::string nameOf(const Scene& s, int range) {
  return std::to_string(s.width()) + " x " + std::to_string(s.height()) + ", block " +
         std::to_string(s.block.left) + " " + std::to_string(s.block.top) + " " +
         std::to_string(s.block.right) + " " + std::to_string(s.block.bottom) + ", range " +
         std::to_string(range);
}

TEST(SquaredSearch, ScoresAsWorkedByHand) {
  const uint8_t a[] = {1, 2, 3, 10, 20, 30};
  const uint8_t b[] = {2, 3, 9, 20, 30, 99};
  const RECT block{0, 1, 2, 2};  // of the picture's lower row, the first in memory
  int64_t score = 7;
  CorrelationVector v = KVL_CalcCorrelationNormal(&score, a, 3, b, 3, nullptr, 3, 2, &block, 0);
  EXPECT_EQ(v.x, 0);
  EXPECT_EQ(v.y, 0);
  EXPECT_EQ(score, -2);  // (2 - 1)^2 + (3 - 2)^2
  const uint8_t mask[] = {254, 253, 0, 255, 255, 255};
  KVL_CalcCorrelationNormal(&score, a, 3, b, 3, mask, 3, 2, &block, 0);
  EXPECT_EQ(score, -3);  // 1 * 1 + 2 * 1

  // At (-1, 0) only 2 has a partner, 2. The row y = -1 before it in the scan meets 20, 30 and 99,
  // and the row y = 1, whose scores are 0 as well, comes after it.
  v = KVL_CalcCorrelationNormal(&score, a, 3, b, 3, nullptr, 3, 2, &block, 1);
  EXPECT_EQ(v.x, -1);
  EXPECT_EQ(v.y, 0);
  EXPECT_EQ(score, 0);

  int64_t table[6] = {};
  const POINT start{0, 0};
  v = KVL_CalcCorrelationIterativ(&score, a, 3, b, 3, nullptr, 3, 2, &block, &start, 1, 1, table);
  EXPECT_EQ(v.x, 0);  // (-1, 0) is better, but too near the edge of so small a table
  EXPECT_EQ(score, 0);
  // 2 * (20 - 2)^2 for half the width; 19^2 + 28^2; 29^2 + 97^2; 0; 1 + 1; 2^2 + 7^2
  const int64_t expected[6] = {-648, -1145, -10250, 0, -2, -53};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(table[i], expected[i]) << i;
}

TEST(SquaredSearch, FindsIdenticalImagesAtRestAndAKnownShift) {
  test::forEachLevelAndTeam([] {
    Scene s(96, 80, 5, GuardAt::end, 4);
    s.block = {30, 28, 62, 60};
    for (int y = 0; y < s.height(); ++y) std::copy_n(s.a.row(y), s.width(), s.b.row(y));
    EXPECT_EQ(describe(normal(s, false, 12)), describe(Outcome{0, 0, 0, 0, 0, {}}));
    // To the right by 7 and back by 5 rows of memory.
    for (int y = 0; y < s.height(); ++y) {
      for (int x = 0; x < s.width(); ++x) {
        const int fromX = std::clamp(x - 7, 0, s.width() - 1);
        const int fromY = std::clamp(y + 5, 0, s.height() - 1);
        s.b.row(y)[x] = s.a.row(fromY)[fromX];
      }
    }
    EXPECT_EQ(describe(normal(s, false, 12)), describe(Outcome{7, 5, 0, 0, 0, {}}));
    // Squares of two steps climb all the way only on a smooth slope.
    for (int y = 0; y < s.height(); ++y) {
      for (int x = 0; x < s.width(); ++x) {
        const auto hill = [](int u, int v) {
          return static_cast<uint8_t>(255 - ((u - 46) * (u - 46) + (v - 40) * (v - 40)) / 16);
        };
        s.a.row(y)[x] = hill(std::clamp(x, 10, 80), std::clamp(y, 10, 70));
        s.b.row(y)[x] = hill(std::clamp(x - 7, 10, 80), std::clamp(y + 5, 10, 70));
      }
    }
    s.block = {40, 34, 52, 46};
    const std::vector<int64_t> table(96 * 80);
    const Outcome found = iterativ(s, false, nullptr, 2, 16, table, GuardAt::end);
    EXPECT_EQ(found.x, 7);
    EXPECT_EQ(found.y, 5);
    EXPECT_EQ(found.score, 0);
  });
}

TEST(SquaredSearch, ExhaustiveFollowsTheModelAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    Random random(1);
    for (uint64_t seed = 0; seed < 150; ++seed) {
      const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
      Scene s(random.range(1, 40), random.range(1, 33), seed % 4, guard, seed);
      s.block = test::randomBlock(random, s.width(), s.height());
      const int range = random.range(0, 9);
      const bool masked = seed % 3 == 0;
      ASSERT_EQ(describe(test::modelNormal(s, {masked}, range)), describe(normal(s, masked, range)))
          << nameOf(s, range);
    }
  });
}

TEST(SquaredSearch, ExhaustiveFollowsTheModelForLargeBlocks) {
  test::forEachLevelAndTeam([] {
    const RECT blocks[] = {{3, 2, 200, 61},     // wide
                           {10, 5, 29, 149},    // more rows than a thread claims, narrow
                           {-5, -9, 220, 160},  // the whole image and beyond
                           {40, 10, 104, 74}};
    uint64_t seed = 1;
    for (const RECT& block : blocks) {
      Scene s(211, 151, 0, seed % 2 != 0 ? GuardAt::end : GuardAt::start, seed);
      s.block = block;
      for (const bool masked : {false, true}) {
        ASSERT_EQ(describe(test::modelNormal(s, {masked}, 4)), describe(normal(s, masked, 4)))
            << nameOf(s, 4);
      }
      ++seed;
    }
  });
}

TEST(SquaredSearch, IterativeFollowsTheModelWithItsWholeTable) {
  test::forEachLevelAndTeam([] {
    Random random(2);
    for (uint64_t seed = 0; seed < 150; ++seed) {
      const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
      Scene s(random.range(1, 33), random.range(1, 33), seed % 3, guard, seed);
      s.block = test::randomBlock(random, s.width(), s.height());
      const bool masked = seed % 4 == 0;
      std::vector<int64_t> table(static_cast<size_t>(s.width()) * static_cast<size_t>(s.height()));
      // Entries that the host left there, of either sign, make landscapes of their own.
      if (seed % 5 == 0) {
        for (int64_t& entry : table) entry = random.range(0, 2) * random.range(-1000, 10);
      }
      const POINT start{random.range(-s.width(), s.width()) / 2,
                        random.range(-s.height(), s.height()) / 2};
      const int maxSteps = random.range(0, 5), limit = random.range(0, 9);
      const Outcome expected = test::modelIterativ(s, {masked}, start, maxSteps, limit, table);
      const Outcome actual = iterativ(s, masked, &start, maxSteps, limit, table, guard);
      ASSERT_EQ(describe(expected), describe(actual))
          << nameOf(s, maxSteps) << ", limit " << limit << ", start " << start.x << " " << start.y;
    }
  });
}

// A path through the table on which every step is better than the one before makes as many restarts
// as it is long; recursion would need a stack frame for each.
TEST(SquaredSearch, IterativeWalksALongPathAndEnds) {
  initialise();
  Scene s(401, 401, 0, GuardAt::end, 1);
  s.block = {0, 0, 1, 1};
  std::vector<int64_t> table(401 * 401, -1000000);
  // Serpentines whose lines lie four apart.
  int64_t score = -900000;
  double lastX = 0, lastY = 0;
  bool rightwards = true;
  for (int y = -190; y <= 190; y += 4) {
    for (int i = -190; i <= 190; ++i) {
      const int x = rightwards ? i : -i;
      table[static_cast<size_t>((y + 200) * 401 + x + 200)] = score++;
      lastX = x;
      lastY = y;
    }
    for (int up = 1; up < 4 && y < 190 - 3; ++up) {
      table[static_cast<size_t>((y + up + 200) * 401 + static_cast<int>(lastX) + 200)] = score++;
    }
    rightwards = !rightwards;
  }
  const POINT start{-190, -190};
  const Outcome outcome = iterativ(s, false, &start, 1, 1000, table, GuardAt::end);
  EXPECT_EQ(outcome.x, lastX);
  EXPECT_EQ(outcome.y, lastY);
  EXPECT_EQ(outcome.score, static_cast<double>(score - 1));
}

TEST(SquaredSearch, ReadsRowsUpwardsWithNegativeStrides) {
  initialise();
  Scene s(37, 29, 3, GuardAt::start, 9);
  s.block = {4, 6, 25, 20};
  const Outcome expected = normal(s, false, 5);
  Scene flipped(37, 29, 3, GuardAt::start, 9);
  for (int y = 0; y < 29; ++y) {
    std::copy_n(s.a.row(y), 37, flipped.a.row(28 - y));
    std::copy_n(s.b.row(y), 37, flipped.b.row(28 - y));
  }
  int64_t score = 0;
  const CorrelationVector v = KVL_CalcCorrelationNormal(
      &score, flipped.a.row(28), -static_cast<int32_t>(flipped.a.stride()), flipped.b.row(28),
      -static_cast<int32_t>(flipped.b.stride()), nullptr, 37, 29, &s.block, 5);
  EXPECT_EQ(describe(expected), describe(Outcome{v.x, v.y, static_cast<double>(score), 0, 0, {}}));
}

TEST(SquaredSearch, EndsWithinTheImageForAnyRangeStartAndBlock) {
  test::forEachLevelAndTeam([] {
    Scene s(7, 5, 1, GuardAt::end, 3);
    constexpr int lowest = INT32_MIN, highest = INT32_MAX;
    const RECT blocks[] = {{1, 1, 4, 4},
                           {lowest, lowest, highest, highest},
                           {highest, highest, lowest, lowest},
                           {lowest, lowest, lowest + 1, lowest + 1},
                           {100, 100, 200, 200},
                           {3, 3, 3, 3}};
    const std::vector<int64_t> table(35);
    for (const RECT& block : blocks) {
      s.block = block;
      // The first candidate lies off the image, scores 0, and nothing is better.
      for (const int range : {7, 1000, highest}) {
        const Outcome outside = normal(s, false, range);
        if (block.left == lowest && block.right == highest) continue;
        EXPECT_EQ(describe(outside),
                  describe(Outcome{-double(range), -double(range), 0, 0, 0, {}}));
      }
      for (const POINT& start : {POINT{0, 0}, {lowest, highest}, {highest, lowest}, {-3, 2}}) {
        for (const int limit : {lowest, 0, 3, highest}) {
          for (const int steps : {lowest, 0, 2, 30, highest}) {
            iterativ(s, true, &start, steps, limit, table, GuardAt::end);
          }
        }
      }
    }
  });
}

// However wide images without rows say they are: going through the range would take hours.
TEST(SquaredSearch, ImagesWithoutPixelsEndAtOnce) {
  initialise();
  uint8_t image = 0;
  int64_t score = 5, table = 0;
  const RECT block = {0, 0, 10, 10};
  const POINT start = {-3, 4};
  for (const SIZE size : {SIZE{INT32_MAX, 0}, {0, INT32_MAX}, {INT32_MAX, -1}, {-1, INT32_MAX}}) {
    score = 5;
    const CorrelationVector first = KVL_CalcCorrelationNormal(&score, &image, 0, &image, 0, nullptr,
                                                              size.cx, size.cy, &block, INT32_MAX);
    EXPECT_EQ(score, 0);
    EXPECT_EQ(first.x, -INT32_MAX);
    EXPECT_EQ(first.y, -INT32_MAX);
    score = 5;
    const CorrelationVector same =
        KVL_CalcCorrelationIterativ(&score, &image, 0, &image, 0, nullptr, size.cx, size.cy, &block,
                                    &start, INT32_MAX, INT32_MAX, &table);
    EXPECT_EQ(score, 0);
    EXPECT_EQ(same.x, -3);
    EXPECT_EQ(same.y, 4);
  }
}

TEST(SquaredSearch, WritesOnlyZeroScoresForInvalidArguments) {
  initialise();
  Scene s(8, 8, 0, GuardAt::end, 3);
  s.block = {2, 2, 6, 6};
  const std::vector<int64_t> table(64);
  std::vector<int64_t> scratch = table;
  const uint8_t *a = s.a.bits(), *b = s.b.bits();
  const auto expectZero = [](CorrelationVector v) {
    EXPECT_EQ(v.x, 0);
    EXPECT_EQ(v.y, 0);
  };
  int64_t score = 5;
  expectZero(KVL_CalcCorrelationNormal(nullptr, a, 8, b, 8, nullptr, 8, 8, &s.block, 1));
  expectZero(KVL_CalcCorrelationNormal(&score, nullptr, 8, b, 8, nullptr, 8, 8, &s.block, 1));
  expectZero(KVL_CalcCorrelationNormal(&score, a, 8, nullptr, 8, nullptr, 8, 8, &s.block, 1));
  expectZero(KVL_CalcCorrelationNormal(&score, a, 8, b, 8, nullptr, 8, 8, nullptr, 1));
  const POINT start{1, -2};
  const auto iterate = [&](int64_t* best, const uint8_t* imageA, const uint8_t* imageB,
                           const RECT* block, int64_t* entries) {
    return KVL_CalcCorrelationIterativ(best, imageA, 8, imageB, 8, nullptr, 8, 8, block, &start, 2,
                                       2, entries);
  };
  expectZero(iterate(nullptr, a, b, &s.block, scratch.data()));
  expectZero(iterate(&score, nullptr, b, &s.block, scratch.data()));
  expectZero(iterate(&score, a, nullptr, &s.block, scratch.data()));
  expectZero(iterate(&score, a, b, nullptr, scratch.data()));
  expectZero(iterate(&score, a, b, &s.block, nullptr));
  EXPECT_EQ(score, 5);
  EXPECT_EQ(scratch, table);

  for (const int range : {-1, INT32_MIN}) {
    score = 5;
    expectZero(KVL_CalcCorrelationNormal(&score, a, 8, b, 8, nullptr, 8, 8, &s.block, range));
    EXPECT_EQ(score, 0);
  }
  for (const int stride : {INT32_MAX, INT32_MIN}) {
    score = 5;
    expectZero(
        KVL_CalcCorrelationNormal(&score, a, stride, b, 8, nullptr, 8, INT32_MAX, &s.block, 1));
    EXPECT_EQ(score, 0);
  }
  // Images without pixels: every score is 0, and the first candidate or the start is the answer.
  for (const auto& [width, height] : {std::pair{0, 8}, {8, 0}, {-8, 8}, {8, INT32_MIN}}) {
    score = 5;
    const CorrelationVector first =
        KVL_CalcCorrelationNormal(&score, a, 8, b, 8, nullptr, width, height, &s.block, 2);
    EXPECT_EQ(first.x, -2);
    EXPECT_EQ(score, 0);
    const CorrelationVector same = KVL_CalcCorrelationIterativ(
        &score, a, 8, b, 8, nullptr, width, height, &s.block, &start, 2, 2, scratch.data());
    EXPECT_EQ(same.y, -2);
    EXPECT_EQ(scratch, table);
  }
}

// The vector sums flush their lanes before they overflow: extremes over long and over many rows.
TEST(BlockMeasures, AreExactAtEveryLevel) {
  const BlockMeasures scalar = blockMeasures(InstructionSet::scalar);
  std::vector<uint8_t> a(300000), b(300000), mask(300000), black(300000), white(300000, 255);
  Random random(8);
  for (size_t i = 0; i < a.size(); ++i) {
    a[i] = static_cast<uint8_t>(random.next());
    b[i] = static_cast<uint8_t>(random.next());
    mask[i] = static_cast<uint8_t>(random.next());
  }
  for (const InstructionSet level : test::availableLevels()) {
    SCOPED_TRACE(test::levelName(level));
    const BlockMeasures vector = blockMeasures(level);
    const bool isVector = level >= InstructionSet::ssse3;
    EXPECT_EQ(vector.squaredDifferences != scalar.squaredDifferences, isVector);
    EXPECT_EQ(vector.maskedSquaredDifferences != scalar.maskedSquaredDifferences, isVector);
    EXPECT_EQ(vector.brightening != scalar.brightening, isVector);
    for (const auto& [pixels, rows] : {std::pair<ptrdiff_t, ptrdiff_t>{300000, 1},
                                       {1, 3000},
                                       {8, 9000},
                                       {63, 4000},
                                       {100, 77}}) {
      const PixelRows noise{a.data(), 31, b.data(), 30, mask.data(), 29, pixels, rows};
      const PixelRows extreme{black.data(), 30, white.data(), 31, black.data(), 29, pixels, rows};
      for (const PixelRows& one : {noise, extreme}) {
        EXPECT_EQ(vector.squaredDifferences(one), scalar.squaredDifferences(one)) << pixels;
        EXPECT_EQ(vector.maskedSquaredDifferences(one), scalar.maskedSquaredDifferences(one))
            << pixels;
        EXPECT_EQ(vector.brightening(one), scalar.brightening(one)) << pixels;
      }
    }
  }
}

}  // namespace
}  // namespace kvl
