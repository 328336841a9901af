#include "support/testing.h"

namespace kvl::test {
namespace {

constexpr uint32_t interlaced = 1, average = 2;

struct Format {
  const char* name;
  const GUID* guid;
};

const Format formats[] = {
    {"YV12", &KVL_SUBTYPE_YV12},   {"YV16", &KVL_SUBTYPE_YV16}, {"YV24", &KVL_SUBTYPE_YV24},
    {"NV12", &KVL_SUBTYPE_NV12},   {"YUY2", &KVL_SUBTYPE_YUY2}, {"RGB24", &KVL_SUBTYPE_RGB24},
    {"RGB32", &KVL_SUBTYPE_RGB32}, {"RGB8", &KVL_SUBTYPE_RGB8},
};

int64_t ceilHalf(int64_t n) {
  return n / 2 + n % 2;
}

struct Plane {
  int64_t offset, stride, rows;
};

// Where the planes of a frame lie; one for a packed layout.
std::vector<Plane> planesOf(const std::string& name, SIZE size, int64_t stride) {
  const int64_t rows = size.cy, half = ceilHalf(size.cx);
  if (name == "YUY2") return {{0, stride > 0 ? stride : (2 * size.cx + 3) / 4 * 4, rows}};
  if (name == "RGB24") return {{0, stride > 0 ? stride : 3 * (size.cx + 1) / 4 * 4, rows}};
  if (name == "RGB32") return {{0, stride > 0 ? stride : 4 * size.cx, rows}};
  if (name == "RGB8") return {{0, stride > 0 ? stride : (size.cx + 3) / 4 * 4, rows}};
  const Plane luma = {0, 2 * half, rows};
  const int64_t after = luma.stride * rows;
  if (name == "NV12") return {luma, {after, 2 * half, ceilHalf(rows)}};
  const int64_t width = name == "YV24" ? 2 * half : half;
  const int64_t chromaRows = name == "YV12" ? ceilHalf(rows) : rows;
  return {luma, {after, width, chromaRows}, {after + width * chromaRows, width, chromaRows}};
}

int64_t frameBytes(const std::vector<Plane>& planes) {
  return planes.back().offset + planes.back().stride * planes.back().rows;
}

// How a row of a plane is made: outputs of `unit` bytes, rounded up in blocks.
struct Rule {
  int64_t outputs;
  int64_t unit;
  int64_t block;  // 0: none
  bool samples;
  bool yuy2;
  uint8_t restOfRow[2], restOfPlane[2];
};

struct Model {
  const std::vector<uint8_t>& source;
  std::vector<uint8_t>& result;

  int sampleAt(int64_t at, int64_t unit) const {
    const auto end = static_cast<int64_t>(source.size());
    while (at >= end) at -= unit;
    return source[static_cast<size_t>(at)];
  }

  void row(const Plane& from, const Plane& to, const Rule& rule, int64_t j, int64_t a, int64_t b) {
    uint8_t* out = &result[static_cast<size_t>(to.offset + j * to.stride)];
    const int64_t inBlocks = rule.block == 0 ? 0 : rule.outputs / rule.block * rule.block;
    for (int64_t i = 0; i < rule.outputs; ++i) {
      for (int64_t c = 0; c < rule.unit; ++c) {
        static constexpr int64_t words[4][2] = {{0, 2}, {1, 5}, {4, 6}, {3, 7}};
        const int64_t first = rule.yuy2 ? words[c][0] : c;
        const int64_t second = rule.yuy2 ? words[c][1] : rule.unit + c;
        const int64_t rowA = from.offset + a * from.stride + 2 * rule.unit * i;
        const int64_t rowB = from.offset + b * from.stride + 2 * rule.unit * i;
        const int a0 = sampleAt(rowA + first, rule.unit), a1 = sampleAt(rowA + second, rule.unit);
        const int b0 = sampleAt(rowB + first, rule.unit), b1 = sampleAt(rowB + second, rule.unit);
        const int up = ((a0 + b0 + 1) / 2 + (a1 + b1 + 1) / 2 + 1) / 2;
        const int down = (a0 + a1 + b0 + b1) / 4;
        out[i * rule.unit + c] = static_cast<uint8_t>(rule.samples ? a0 : i < inBlocks ? up : down);
      }
    }
    const int64_t written = rule.outputs * rule.unit;
    for (int64_t x = written; x < to.stride; ++x) out[x] = rule.restOfRow[(x - written) % 2];
  }

  // Rows of the result but for what NV12 adds.
  void rows(const Plane& from, const Plane& to, const Rule& rule, int64_t count, bool fields) {
    if (fields) {
      for (int64_t j = 0, r = 0; j + 2 <= count; j += 2, r += 4) {
        row(from, to, rule, j, r, r + 2);
        row(from, to, rule, j + 1, r + 1, r + 3);
      }
    } else {
      for (int64_t j = 0; j < count; ++j) row(from, to, rule, j, 2 * j, 2 * j + 1);
    }
  }

  void fillFrom(const Plane& to, const Rule& rule, int64_t firstRow) {
    for (int64_t y = firstRow; y < to.rows; ++y) {
      for (int64_t x = 0; x < to.stride; ++x) {
        result[static_cast<size_t>(to.offset + y * to.stride + x)] = rule.restOfPlane[x % 2];
      }
    }
  }
};

struct Case {
  Format format;
  SIZE from;
  int32_t fromStride;
  SIZE to;
  int32_t toStride;
  uint32_t flags;
};

std::string describe(const Case& c) {
  return text(c.format.name, " ", c.from.cx, "x", c.from.cy, " (", c.fromStride, ") to ", c.to.cx,
              "x", c.to.cy, " (", c.toStride, "), flags ", c.flags);
}

// What the call must leave in `result`, at the current level.
void model(const Case& c, const std::vector<uint8_t>& source, std::vector<uint8_t>& result) {
  const std::string name = c.format.name;
  const std::vector<Plane> from = planesOf(name, c.from, c.fromStride);
  const std::vector<Plane> to = planesOf(name, c.to, c.toStride);
  const bool fields = (c.flags & interlaced) != 0, samples = (c.flags & average) == 0;
  const bool sse2 = instructionSet() >= InstructionSet::sse2;
  const int64_t planeBlock = instructionSet() >= InstructionSet::ssse3 ? 16 : 0;
  const int64_t columns = std::min(c.to.cx, c.from.cx / 2);
  Model m{source, result};
  for (size_t p = 0; p < from.size(); ++p) {
    const int64_t count = std::min(to[p].rows, from[p].rows / 2);
    if (p == 1 && name == "NV12") {
      const Rule rule = {to[p].stride / 2, 2, sse2 ? 8 : 0, false, false, {127, 127}, {127, 127}};
      const int64_t wanted = ceilHalf(std::min(c.to.cy, c.from.cy / 2));
      const int64_t halved = std::min(from[p].rows / 2, wanted);
      m.rows(from[p], to[p], rule, halved, fields);
      const int64_t last = from[p].rows - 1;
      for (int64_t j = halved; j < wanted; ++j) m.row(from[p], to[p], rule, j, last, last);
      m.fillFrom(to[p], rule, wanted);
      continue;
    }
    const uint8_t f = p == 0 ? 0 : 127;
    const int64_t outputs = std::min<int64_t>(c.to.cx, to[p].stride);
    Rule rule = {outputs, 1, planeBlock, samples, false, {f, f}, {f, f}};
    if (name == "YUY2") rule = {columns / 2, 4, sse2 ? 4 : 0, false, true, {0, 255}, {0, 127}};
    if (name == "RGB24") rule = {columns, 3, 0, false, false, {}, {}};
    if (name == "RGB32") rule = {columns, 4, sse2 ? 4 : 0, false, false, {}, {}};
    m.rows(from[p], to[p], rule, count, fields);
    m.fillFrom(to[p], rule, count);
  }
}

int32_t shrink(const Case& c, const uint8_t* source, uint8_t* destination) {
  return KVL_ShrinkToHalf(c.format.guid, source, c.fromStride, c.from, destination, c.toStride,
                          c.to, c.flags);
}

void expectModel(const Case& c, uint64_t seed) {
  const std::vector<Plane> to = planesOf(c.format.name, c.to, c.toStride);
  const int64_t bytes = frameBytes(planesOf(c.format.name, c.from, c.fromStride));
  GuardedMemory source(static_cast<size_t>(bytes), guardOf(seed));
  const GuardedMemory destination(static_cast<size_t>(frameBytes(to)), guardOf(seed));
  source.fillRandom(seed);
  const std::vector<uint8_t> input = source.bytes();
  std::vector<uint8_t> expected = destination.bytes();
  model(c, input, expected);
  ASSERT_EQ(shrink(c, source.data(), destination.data()), 0) << describe(c);
  expectBytes(expected, destination.bytes(), static_cast<size_t>(to[0].stride), 1, describe(c));
  ASSERT_EQ(input, source.bytes()) << describe(c);
}

// A stride that holds the row, or stands for it.
int32_t someStride(Random& random, const std::string& name, SIZE size) {
  const auto packed = static_cast<int32_t>(planesOf(name, size, 0)[0].stride);
  const int kind = random.range(0, 3);
  return kind == 0 ? random.range(-9, 0) : kind == 1 ? packed + random.range(0, 21) : packed;
}

TEST(ShrinkToHalf, FollowsTheModelForEveryLayoutAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(7);
    for (const Format& format : formats) {
      for (int32_t width = 1; width <= 33; ++width) {
        for (int32_t round = 0; round < 3; ++round) {
          // Above all halves, but also sizes that have nothing to do with each other.
          const SIZE to = {width, random.range(1, 12)};
          SIZE from = {2 * to.cx + random.range(-1, 2), 2 * to.cy + random.range(-1, 2)};
          if (round == 2) from = {random.range(1, 70), random.range(1, 30)};
          expectModel(
              {format, from, someStride(random, format.name, from), to,
               someStride(random, format.name, to), static_cast<uint32_t>(random.range(0, 3))},
              random.next());
        }
      }
      for (uint32_t flags = 0; flags < 4; ++flags) {
        for (const SIZE from : {SIZE{517, 70}, SIZE{1283, 43}, SIZE{640, 96}}) {
          expectModel({format, from, 0, {from.cx / 2, from.cy / 2}, 0, flags}, flags);
        }
      }
    }
  });
}

TEST(ShrinkToHalf, StaysInsideRowsThatStridesCutShort) {
  forEachLevelAndTeam([] {
    Random random(3);
    for (const Format& format : {formats[4], formats[5], formats[6], formats[7]}) {
      for (int round = 0; round < 100; ++round) {
        const SIZE from = {random.range(1, 80), random.range(1, 9)};
        const SIZE to = {random.range(1, 80), random.range(1, 6)};
        const Case c = {format, from, random.range(1, 99), to, random.range(1, 99), 2};
        GuardedMemory source(static_cast<size_t>(c.fromStride * from.cy), guardOf(round));
        GuardedMemory destination(static_cast<size_t>(c.toStride * to.cy), guardOf(round));
        ASSERT_EQ(shrink(c, source.data(), destination.data()), 0) << describe(c);
      }
    }
  });
}

TEST(ShrinkToHalf, RoundsUpInBlocksAndDownAfterThem) {
  if (!test::hasLevel(InstructionSet::ssse3)) GTEST_SKIP() << "needs SSSE3";
  initialise();
  std::vector<uint8_t> source(2 * 34), result(18);
  std::fill(source.begin(), source.begin() + 34, uint8_t{1});
  std::fill(source.begin() + 34, source.end(), uint8_t{2});
  ASSERT_EQ(KVL_ShrinkToHalf(&KVL_SUBTYPE_RGB8, source.data(), 34, {34, 2}, result.data(), 18,
                             {17, 1}, average),
            0);
  std::vector<uint8_t> expected(18, 2);
  expected[16] = 1;  // after the block
  expected[17] = 0;  // beyond the width
  EXPECT_EQ(result, expected);
}

TEST(ShrinkToHalf, RefusesBadCallsAndChangesNothing) {
  initialise();
  const std::vector<uint8_t> source(1024, 9);
  std::vector<uint8_t> result(1024, 0xCD);
  GUID other = KVL_SUBTYPE_YV12;
  other.Data4[7] ^= 1;
  for (const Format& format : formats) {
    BadCalls calls(KVL_ShrinkToHalf, format.guid, source.data(), 0, {4, 4}, result.data(), 0,
                   {4, 4}, 2u);
    calls.watch(result.data(), result.size()).expect(invalidArgument);
    calls.eachNull();
    for (const SIZE bad :
         {SIZE{0, 4}, SIZE{4, 0}, SIZE{-4, 4}, SIZE{4, INT32_MIN}, SIZE{INT32_MAX, INT32_MAX}}) {
      calls.with<3>({bad});
      calls.with<6>({bad});
    }
    // Pointers are looked at before the subtype.
    calls.call({&other, nullptr, 0, {4, 4}, result.data(), 0, {4, 4}, 0}, "unknown subtype");
    calls.expect(notImplemented);
    calls.with<0>({other, KVL_SUBTYPE_UYVY, KVL_SUBTYPE_IYUV});
  }
}

TEST(CombineHalfFrames, CopiesOneFieldAndNothingElse) {
  forEachLevelAndTeam([] {
    for (const auto& [width, height] : {std::pair{5, 9}, {1, 2}, {40, 33}, {3, 1}, {700, 64}}) {
      for (const int32_t second : {0, 1, -7}) {
        TestImage source(width, height, 24, guardOf(second)), result(width, height, 24);
        source.fillRandom(5);
        result.fillRandom(6);
        std::vector<uint8_t> expected = result.bytes();
        for (int y = second != 0 ? 1 : 0; y < height / 2 * 2; y += 2) {
          std::copy_n(source.row(y), source.stride(),
                      &expected[static_cast<size_t>(y) * source.stride()]);
        }
        KVL_VoeCombineHalfFramesLpbi(&result.header, result.bits(), source.bits(), second);
        expectBytes(expected, result, text(width, " x ", height, ", field ", second));
      }
    }
  });
}

TEST(CombineHalfFrames, ChangesNothingForABadCall) {
  initialise();
  TestImage source(20, 20), result(20, 20);
  source.fillRandom(1);
  BadCalls calls(KVL_VoeCombineHalfFramesLpbi, &result.header, result.bits(), source.bits(), 1);
  calls.watch(result);
  calls.eachNull();
  calls.with<0>({makeHeader(20, 0), makeHeader(20, 1), makeHeader(20, -20),
                 makeHeader(20, INT32_MIN), makeHeader(0, 20), makeHeader(-20, 20),
                 makeHeader(20, 20, 0), makeHeader(20, 20, 24, 3),
                 makeHeader(INT32_MAX, INT32_MAX, 65535)});
}

}  // namespace
}  // namespace kvl::test
