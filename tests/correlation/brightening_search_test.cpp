#include "correlation/search_model.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

// A result record and a table between unreadable pages. Bytes that no search may touch are checked
// when the outcome is taken.
class Records {
 public:
  Records(const std::vector<int64_t>& table, GuardAt guard)
      : result_(sizeof(CorrelationBlockResult), GuardAt::start),
        table_(table.size() * sizeof(uint32_t), guard) {
    result_.fill(0x5A);
    result()->limitHit = 0;
    for (size_t i = 0; i < table.size(); ++i) entries()[i] = static_cast<uint32_t>(table[i]);
  }

  CorrelationBlockResult* result() const {
    return reinterpret_cast<CorrelationBlockResult*>(result_.data());
  }
  uint32_t* entries() const { return reinterpret_cast<uint32_t*>(table_.data()); }

  Outcome outcome(CorrelationVector v, uint32_t firstLimitBlock) const {
    for (size_t i = 0; i < result_.size(); ++i) {
      const bool isWritten = (i >= 8 && i < 16) || i == 96;
      EXPECT_TRUE(isWritten || result_.data()[i] == 0x5A) << "byte " << i << " of the result";
    }
    Outcome o{v.x, v.y, result()->score, result()->limitHit, firstLimitBlock, {}};
    for (size_t i = 0; i < table_.size() / sizeof(uint32_t); ++i) {
      o.table.push_back(static_cast<int32_t>(entries()[i]));
    }
    return o;
  }

 private:
  GuardedMemory result_;
  GuardedMemory table_;
};

constexpr uint32_t blockId = 0x5A5A5A5A;

// The options as a host's longer record: everything that is not read is noise.
CorrelationOptions optionsOf(const Scene& s, ModelOptions model) {
  CorrelationOptions options;
  std::memset(&options, 0xEE, sizeof options);
  const CorrelationOptions geometry = s.options();
  options.width = geometry.width;
  options.height = geometry.height;
  options.blockLeft = geometry.blockLeft;
  options.blockTop = geometry.blockTop;
  options.blockRight = geometry.blockRight;
  options.blockBottom = geometry.blockBottom;
  options.fieldRepair = model.field ? 1 : 0;
  options.fieldRepairMode = 3;
  options.fieldParity = model.parity ? 1 : 0;
  return options;
}

Outcome norm(const Scene& s, ModelOptions model, int range, const std::vector<int64_t>& table,
             GuardAt guard) {
  const Records records(table, guard);
  const CorrelationOptions options = optionsOf(s, model);
  const CorrelationVector v = KVL_CalcCorrelationNorm(records.result(), s.a.bits(), s.b.bits(),
                                                      range, &options, records.entries());
  return records.outcome(v, 0);
}

Outcome it(const Scene& s, ModelOptions model, int range, bool stopAtLimit,
           uint32_t firstLimitBlock, const std::vector<int64_t>& table, GuardAt guard) {
  const Records records(table, guard);
  const CorrelationOptions options = optionsOf(s, model);
  const CorrelationVector v =
      KVL_CalcCorrelationIt(records.result(), s.a.bits(), s.b.bits(), range, stopAtLimit ? 9 : 0,
                            &options, records.entries(), &firstLimitBlock);
  return records.outcome(v, firstLimitBlock);
}

std::vector<int64_t> emptyTable(const Scene& s) {
  return std::vector<int64_t>(static_cast<size_t>(s.width()) * static_cast<size_t>(s.height()));
}

TEST(BrighteningSearch, ScoresAsWorkedByHand) {
  Scene s(4, 2, 0, GuardAt::end, 1);
  s.a.assign({10, 20, 30, 40, 9, 9, 9, 9});
  s.b.assign({12, 19, 33, 47, 0, 0, 0, 50});
  s.block = {0, 1, 4, 2};  // the picture's lower row, the first in memory
  // Only where B is brighter: 2 + 3 + 7.
  const Outcome still = norm(s, {}, 0, emptyTable(s), GuardAt::end);
  EXPECT_EQ(describe(still), describe(Outcome{0, 0, -12, 0, 0, {0, 0, 0, 0, 0, 0, -12, 0}}));
  // Row y = -1 meets the second row of B, row y = 1 nothing. (1, 0) meets 19, 33 and 47 with 10, 20
  // and 30: 9 + 13 + 17 = 39, for 3 columns of 4.
  const Outcome around = norm(s, {}, 1, emptyTable(s), GuardAt::end);
  const std::vector<int64_t> table = {0, 0, -10, -20 * 4 / 3, 0, 0, -12, -39 * 4 / 3};
  EXPECT_EQ(describe(around), describe(Outcome{-1, -1, 0, 0, 0, table}));
}

TEST(BrighteningSearch, ExhaustiveFollowsTheModelWithItsWholeTable) {
  forEachLevelAndTeam([] {
    const auto compare = [](const Scene& s, ModelOptions model, int range, uint64_t seed,
                            const std::vector<int64_t>& table) {
      ASSERT_EQ(describe(modelNorm(s, model, range, table)),
                describe(norm(s, model, range, table, guardOf(seed))))
          << s.width() << " x " << s.height() << " range " << range << " seed " << seed;
    };
    Random random(3);
    for (uint64_t seed = 0; seed < 200; ++seed) {
      Scene s(random.range(1, 40), random.range(1, 33), 0, guardOf(seed), seed);
      s.block = randomBlock(random, s.width(), s.height());
      std::vector<int64_t> table = emptyTable(s);
      for (int64_t& entry : table) entry = random.range(-9, 9);
      compare(s, {false, seed % 3 != 0, seed % 2 != 0}, random.range(0, 9), seed, table);
    }
    uint64_t seed = 1;
    for (const RECT& block : {RECT{3, 2, 200, 61}, {10, 5, 29, 149}, {-5, -9, 330, 160}}) {
      for (const bool field : {false, true}) {
        Scene s(311, 151, 0, guardOf(seed), seed);
        s.block = block;
        compare(s, {false, field, seed % 3 == 0}, 3, seed, emptyTable(s));
        ++seed;
      }
    }
  });
}

TEST(BrighteningSearch, IterativeFollowsTheModelWithItsWholeTable) {
  forEachLevelAndTeam([] {
    Random random(4);
    for (uint64_t seed = 0; seed < 200; ++seed) {
      Scene s(random.range(1, 40), random.range(1, 40), 0, guardOf(seed), seed);
      s.block = randomBlock(random, s.width(), s.height());
      const ModelOptions model{false, seed % 3 == 0, seed % 2 != 0};
      const int range = random.range(-1, 9);
      std::vector<int64_t> table = emptyTable(s);
      if (seed % 4 == 0) {
        for (int64_t& entry : table) entry = random.range(0, 2) * random.range(-1000, 10);
      }
      const bool stopAtLimit = seed % 3 != 1;
      const uint32_t first = seed % 5 == 0 ? 17 : 0xFFFFFFFF;
      ASSERT_EQ(describe(modelIt(s, model, range, stopAtLimit, blockId, first, table)),
                describe(it(s, model, range, stopAtLimit, first, table, guardOf(seed))))
          << s.width() << " x " << s.height() << " range " << range << " seed " << seed;
    }
  });
}

TEST(BrighteningSearch, TheFirstBlockAtTheLimitStaysTheFirst) {
  initialise();
  // Every step to the right darkens B; 8 + 1 is beyond 2 * 4.
  Scene s(120, 40, 0, GuardAt::end, 1);
  s.a.fill(0);
  for (int i = 0; i < 120 * 40; ++i) s.b.bits()[i] = static_cast<uint8_t>(240 - 2 * (i % 120));
  s.block = {20, 15, 30, 25};
  const Outcome stopped = it(s, {}, 4, true, 0xFFFFFFFF, emptyTable(s), GuardAt::end);
  EXPECT_EQ(stopped.x, 8);
  EXPECT_EQ(stopped.limitHit, 1);
  EXPECT_EQ(stopped.firstLimitBlock, blockId);
  EXPECT_EQ(it(s, {}, 4, true, 3, emptyTable(s), GuardAt::end).firstLimitBlock, 3u);
  const Records records(emptyTable(s), GuardAt::end);
  const CorrelationOptions options = optionsOf(s, {});
  KVL_CalcCorrelationIt(records.result(), s.a.bits(), s.b.bits(), 4, 1, &options, records.entries(),
                        nullptr);
  EXPECT_EQ(records.result()->limitHit, 1);
}

TEST(BrighteningSearch, EndsWithinTheImageForAnyRangeAndBlock) {
  forEachLevel([] {
    Scene s(5, 6, 0, GuardAt::start, 2);
    constexpr int low = INT32_MIN, high = INT32_MAX;
    for (const RECT& block : {RECT{1, 1, 4, 4},
                              {low, low, high, high},
                              {high, high, low, low},
                              {2, 2, 2, 2},
                              {-9, -9, -4, -4}}) {
      s.block = block;
      for (const int range : {low, -1, 0, 1, 6, high}) {
        for (const bool field : {false, true}) {
          const Outcome o = norm(s, {false, field, true}, range, emptyTable(s), GuardAt::end);
          if (block.left == 1 && range == high) {
            EXPECT_EQ(o.x, -double(high));
          }
          it(s, {false, field, field}, range, field, 0, emptyTable(s), GuardAt::start);
        }
      }
    }
  });
}

// However wide images without rows say they are: going through the range would take hours.
TEST(BrighteningSearch, ImagesWithoutPixelsEndAtOnce) {
  initialise();
  uint8_t image = 0;
  uint32_t table = 0, limitBlock = 0xFFFFFFFF;
  for (const SIZE size : {SIZE{INT32_MAX, 0}, {0, INT32_MAX}, {INT32_MAX, -1}, {-1, INT32_MAX}}) {
    CorrelationOptions options = {};
    options.width = size.cx;
    options.height = size.cy;
    options.blockRight = options.blockBottom = 10;
    CorrelationBlockResult result = {};
    result.score = 5;
    const CorrelationVector first =
        KVL_CalcCorrelationNorm(&result, &image, &image, INT32_MAX, &options, &table);
    EXPECT_EQ(result.score, 0);
    EXPECT_EQ(first.x, -INT32_MAX);
    EXPECT_EQ(first.y, -INT32_MAX);
    result.score = 5;
    const CorrelationVector rest =
        KVL_CalcCorrelationIt(&result, &image, &image, INT32_MAX, 1, &options, &table, &limitBlock);
    EXPECT_EQ(result.score, 0);
    EXPECT_EQ(rest.x, 0);
    EXPECT_EQ(rest.y, 0);
    EXPECT_EQ(limitBlock, 0xFFFFFFFF);
  }
}

TEST(BrighteningSearch, WritesNothingForNullPointersAndOnlyScoresForOtherInvalidArguments) {
  initialise();
  Scene s(8, 8, 0, GuardAt::end, 3);
  s.block = {2, 2, 6, 6};
  const Records records(emptyTable(s), GuardAt::end);
  const CorrelationOptions good = optionsOf(s, {});
  const uint8_t *a = s.a.bits(), *b = s.b.bits();
  const CorrelationVector centre{0, 0};
  CorrelationBlockResult* const result = records.result();
  uint32_t first = 5;
  uint32_t* const table = records.entries();
  BadCalls exhaustive(KVL_CalcCorrelationNorm, result, a, b, 2, &good, table);
  BadCalls iterative(KVL_CalcCorrelationIt, result, a, b, 2, 1, &good, table, &first);
  BadCalls refining(KVL_CalcCorrelationSub, result, a, b, &centre, &good);
  const auto watched = [&](auto calls, size_t resultBytes) {
    calls.watch(table, 64 * sizeof *table).watch(&first, sizeof first);
    calls.watch(result, resultBytes);
    return calls;
  };
  watched(exhaustive, sizeof *result).eachNull();
  watched(iterative, sizeof *result).eachNull(0, 7);
  watched(refining, sizeof *result).eachNull();
  for (const auto& [width, height] :
       {std::pair{INT32_MAX, INT32_MAX}, {0, 8}, {8, 0}, {-8, -8}, {INT32_MIN, INT32_MIN}}) {
    CorrelationOptions bad = good;
    bad.width = width;
    bad.height = height;
    for (int which = 0; which < 3; ++which) {
      result->score = 7;
      if (which == 0) watched(exhaustive, 8).call({result, a, b, -1, &bad, table}, "size");
      if (which == 1)
        watched(iterative, 8).call({result, a, b, -1, 1, &bad, table, &first}, "size");
      if (which == 2) watched(refining, 8).call({result, a, b, &centre, &bad}, "size");
      EXPECT_EQ(result->score, 0) << which;
    }
  }
}

}  // namespace
}  // namespace kvl::test
