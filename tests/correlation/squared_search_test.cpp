#include "correlation/block_measures.h"
#include "correlation/search_model.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

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
  return text(s.width(), " x ", s.height(), ", block ", s.block.left, " ", s.block.top, " ",
              s.block.right, " ", s.block.bottom, ", range ", range);
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

TEST(SquaredSearch, ExhaustiveFollowsTheModelAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    const auto compare = [](const Scene& s, bool masked, int range) {
      ASSERT_EQ(describe(modelNormal(s, {masked}, range)), describe(normal(s, masked, range)))
          << nameOf(s, range);
    };
    Random random(1);
    for (uint64_t seed = 0; seed < 150; ++seed) {
      Scene s(random.range(1, 40), random.range(1, 33), seed % 4, guardOf(seed), seed);
      s.block = randomBlock(random, s.width(), s.height());
      compare(s, seed % 3 == 0, random.range(0, 9));
    }
    const RECT blocks[] = {{3, 2, 200, 61},     // wide
                           {10, 5, 29, 149},    // more rows than a thread claims, narrow
                           {-5, -9, 220, 160},  // the whole image and beyond
                           {40, 10, 104, 74}};
    uint64_t seed = 1;
    for (const RECT& block : blocks) {
      Scene s(211, 151, 0, guardOf(seed), seed);
      s.block = block;
      for (const bool masked : {false, true}) compare(s, masked, 4);
      ++seed;
    }
  });
}

TEST(SquaredSearch, IterativeFollowsTheModelWithItsWholeTable) {
  forEachLevelAndTeam([] {
    Random random(2);
    for (uint64_t seed = 0; seed < 150; ++seed) {
      Scene s(random.range(1, 33), random.range(1, 33), seed % 3, guardOf(seed), seed);
      s.block = randomBlock(random, s.width(), s.height());
      const bool masked = seed % 4 == 0;
      std::vector<int64_t> table(static_cast<size_t>(s.width()) * static_cast<size_t>(s.height()));
      // Entries that the host left there, of either sign, make landscapes of their own.
      if (seed % 5 == 0) {
        for (int64_t& entry : table) entry = random.range(0, 2) * random.range(-1000, 10);
      }
      const POINT start{random.range(-s.width(), s.width()) / 2,
                        random.range(-s.height(), s.height()) / 2};
      const int maxSteps = random.range(0, 5), limit = random.range(0, 9);
      const Outcome expected = modelIterativ(s, {masked}, start, maxSteps, limit, table);
      const Outcome actual = iterativ(s, masked, &start, maxSteps, limit, table, guardOf(seed));
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
  int x = -190;
  for (int y = -190; y <= 190; ++y) {
    const bool crossing = (y + 190) % 4 == 0;
    const int step = x < 0 ? 1 : -1;
    for (int i = 0; i <= (crossing ? 380 : 0); ++i) {
      table[static_cast<size_t>((y + 200) * 401 + x + i * step + 200)] = score++;
    }
    if (crossing) x = -x;
  }
  const POINT start{-190, -190};
  const Outcome outcome = iterativ(s, false, &start, 1, 1000, table, GuardAt::end);
  EXPECT_EQ(outcome.y, 190);
  EXPECT_EQ(outcome.score, static_cast<double>(score - 1));
}

TEST(SquaredSearch, ReadsRowsUpwardsWithNegativeStrides) {
  initialise();
  Scene s(37, 29, 3, GuardAt::start, 9), flipped(37, 29, 3, GuardAt::start, 9);
  s.block = {4, 6, 25, 20};
  for (int y = 0; y < 29; ++y) {
    std::copy_n(s.a.row(y), 37, flipped.a.row(28 - y));
    std::copy_n(s.b.row(y), 37, flipped.b.row(28 - y));
  }
  int64_t score = 0;
  const CorrelationVector v = KVL_CalcCorrelationNormal(
      &score, flipped.a.row(28), -40, flipped.b.row(28), -43, nullptr, 37, 29, &s.block, 5);
  EXPECT_EQ(describe(normal(s, false, 5)),
            describe(Outcome{v.x, v.y, static_cast<double>(score), 0, 0, {}}));
}

TEST(SquaredSearch, EndsWithinTheImageForAnyRangeStartAndBlock) {
  forEachLevel([] {
    Scene s(7, 5, 1, GuardAt::end, 3);
    constexpr int low = INT32_MIN, high = INT32_MAX;
    const std::vector<int64_t> table(35);
    for (const RECT& block : {RECT{1, 1, 4, 4},
                              {high, high, low, low},
                              {low, low, low + 1, low + 1},
                              {100, 100, 200, 200},
                              {3, 3, 3, 3},
                              {low, low, high, high}}) {
      s.block = block;
      // The first candidate lies off the image, scores 0, and nothing is better.
      for (const int range : {7, 1000, high}) {
        const Outcome o = normal(s, false, range);
        if (block.right == high) continue;
        EXPECT_EQ(describe(o), describe(Outcome{-double(range), -double(range), 0, 0, 0, {}}));
      }
      for (const POINT& start : {POINT{0, 0}, {low, high}, {high, low}, {-3, 2}}) {
        for (const int limit : {low, 0, 3, high}) {
          for (const int steps : {low, 0, 2, 30, high}) {
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
  std::vector<int64_t> table(64);
  const uint8_t *a = s.a.bits(), *b = s.b.bits(), *none = nullptr;
  const POINT start{1, -2};
  int64_t score = 5;
  BadCalls exhaustive(KVL_CalcCorrelationNormal, &score, a, 8, b, 8, none, 8, 8, &s.block, 1);
  exhaustive.watch(&score, sizeof score).eachNull(0, 5);
  exhaustive.eachNull(8, 9);
  BadCalls iterative(KVL_CalcCorrelationIterativ, &score, a, 8, b, 8, none, 8, 8, &s.block, &start,
                     2, 2, table.data());
  iterative.watch(&score, sizeof score).watch(table.data(), table.size() * sizeof table[0]);
  for (const auto& [first, end] : {std::pair{0, 5}, {8, 9}, {12, 13}})
    iterative.eachNull(first, end);

  const auto best = [&](int stride, int width, int height, int range) {
    score = 5;
    const CorrelationVector v =
        KVL_CalcCorrelationNormal(&score, a, stride, b, 8, none, width, height, &s.block, range);
    EXPECT_EQ(score, 0);
    return v.x;
  };
  EXPECT_EQ(best(8, 8, 8, -1), 0);
  EXPECT_EQ(best(8, 8, 8, INT32_MIN), 0);
  EXPECT_EQ(best(INT32_MAX, 8, INT32_MAX, 1), 0);
  EXPECT_EQ(best(INT32_MIN, 8, INT32_MAX, 1), 0);
  // Images without pixels: every score is 0, and the first candidate or the start is the answer.
  for (const auto& [width, height] : {std::pair{0, 8}, {8, 0}, {-8, 8}, {8, INT32_MIN}}) {
    EXPECT_EQ(best(8, width, height, 2), -2);
    const CorrelationVector same = KVL_CalcCorrelationIterativ(
        &score, a, 8, b, 8, none, width, height, &s.block, &start, 2, 2, table.data());
    EXPECT_EQ(same.y, -2);
    EXPECT_EQ(table, std::vector<int64_t>(64));
  }
}

// The vector sums flush their lanes before they overflow: extremes over long and over many rows.
TEST(BlockMeasures, AreExactAtEveryLevel) {
  const BlockMeasures scalar = blockMeasures(InstructionSet::scalar);
  GuardedMemory a(300000), b(300000), mask(300000), black(300000), white(300000);
  a.fillRandom(1), b.fillRandom(2), mask.fillRandom(3), black.fill(0), white.fill(255);
  for (const InstructionSet level : availableLevels()) {
    SCOPED_TRACE(levelName(level));
    const BlockMeasures vector = blockMeasures(level);
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
}  // namespace kvl::test
