#include "support/testing.h"

namespace kvl::test {
namespace {

// One component of a w x h image whose pixels lie `xStep` and whose rows lie `yStep` bytes apart.
struct Plane {
  const uint8_t* bits;
  int w, h;
  size_t xStep, yStep;

  int at(int x, int y) const {
    return bits[static_cast<size_t>(x) * xStep + static_cast<size_t>(y) * yStep];
  }
};

// Its mean over the rectangle of `rx` and `ry` pixels to each side.
uint8_t modelMean(const Plane& p, int x, int y, int rx, int ry, int64_t normaliser, int threshold) {
  const int m = p.at(x, y);
  int64_t weights = 0, values = 0;
  for (int row = std::max(0, y - ry); row <= std::min(p.h - 1, y + ry); ++row) {
    for (int column = std::max(0, x - rx); column <= std::min(p.w - 1, x + rx); ++column) {
      const int n = p.at(column, row);
      const int weight = threshold - std::abs(m - n);
      if ((column == x && row == y) || weight <= 0) continue;
      weights += weight;
      values += int64_t{n} * weight;
    }
  }
  const int64_t mean = ((normaliser - weights) * m + values) * (65536 / normaliser) / 65536;
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

// visit(y, i) for every byte of every row's pixels.
template <class Visit>
void forEachByte(int width, int height, const Visit& visit) {
  for (int y = 0; y < height; ++y) {
    for (size_t i = 0; i < static_cast<size_t>(3 * width); ++i) visit(y, i);
  }
}

Check squareCheck(int width, int height, int threshold, int radius, uint64_t seed) {
  const auto model = [=](Bytes& source, Bytes& destination) {
    const size_t stride = source.size() / static_cast<size_t>(height);
    const int64_t side = 2 * int64_t{radius} + 1;
    forEachByte(width, height, [&](int y, size_t i) {
      destination[static_cast<size_t>(y) * stride + i] =
          modelMean({&source[i % 3], width, height, 3, stride}, static_cast<int>(i / 3), y, radius,
                    radius, (side * side - 1) * threshold, threshold);
    });
  };
  return twoImageCheck({width, height}, {width, height}, seed,
                       text(width, " x ", height, ", threshold ", threshold, ", radius ", radius),
                       model, [=](TestImage& source, TestImage& destination) {
                         selectiveBlurOf(source, destination, threshold, radius);
                       });
}

Check modifiedCheck(int width, int height, int threshold, int radius, uint64_t seed) {
  const auto model = [=](Bytes& work, Bytes& image) {
    const size_t stride = image.size() / static_cast<size_t>(height);
    const size_t workStride = stride * static_cast<size_t>(height) / static_cast<size_t>(width);
    const int64_t normaliser = 2 * int64_t{threshold} * radius;
    forEachByte(width, height, [&](int y, size_t i) {
      work[i / 3 * workStride + 3 * static_cast<size_t>(y) + i % 3] =
          modelMean({&image[i % 3], width, height, 3, stride}, static_cast<int>(i / 3), y, radius,
                    0, normaliser, threshold);
    });
    forEachByte(width, height, [&](int y, size_t i) {
      image[static_cast<size_t>(y) * stride + i] =
          modelMean({&work[i % 3], width, height, workStride, 3}, static_cast<int>(i / 3), y, 0,
                    radius, normaliser, threshold);
    });
  };
  return twoImageCheck(
      {width, height}, {width, height}, seed,
      text(width, " x ", height, ", threshold ", threshold, ", radius ", radius), model,
      [=](TestImage& work, TestImage& image) { modifiedBlur(work, image, threshold, radius); });
}

std::vector<Check> smallChecks(Check (*check)(int, int, int, int, uint64_t)) {
  Random random(5);
  std::vector<Check> checks;
  for (const SmallSize& s : smallSizes(2)) {
    const int threshold = random.range(0, 3) == 0 ? random.range(1, 9000) : random.range(1, 140);
    checks.push_back(check(s.width, s.height, threshold, random.range(1, 4), s.seed));
  }
  return checks;
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
  forEachLevel([] {
    const int cases[][4] = {{255, 1, 1, 255}, {255, 10, 1, 254},  {200, 227, 8, 199},
                            {200, 228, 8, 0}, {200, 1, 127, 198}, {200, 8192, 1, 200},
                            {200, 8193, 1, 0}};
    for (const auto& [value, threshold, radius, expected] : cases) {
      TestImage source(43, 9), destination(43, 9);
      source.fill(static_cast<uint8_t>(value));
      selectiveBlurOf(source, destination, threshold, radius);
      for (int y = 0; y < 9; ++y) {
        EXPECT_EQ(std::count(destination.row(y), destination.row(y) + 3 * 43, expected), 3 * 43)
            << threshold << " " << radius;
        EXPECT_EQ(destination.row(y)[3 * 43], 0xCD) << "padding";
      }
    }
  });
}

TEST(SelectiveBlur, FollowsTheCutFormulaAtEveryLevelAndTeamSize) {
  forEachLevel(smallChecks(squareCheck));
  // Thresholds on both sides of every bound of the narrow sums, and beyond a byte.
  std::vector<Check> checks;
  for (const int threshold : {1, 10, 52, 53, 127, 128, 129, 255, 256, 1365}) {
    checks.push_back(squareCheck(60, 5, threshold, 1, checks.size()));
    checks.push_back(squareCheck(61, 9, threshold, 3, checks.size()));
  }
  checks.push_back(squareCheck(211, 13, 20, 2, 31));
  checks.push_back(squareCheck(90, 7, 9, 40, 32));
  checks.push_back(squareCheck(300, 3, 1, 127, 33));
  forEachLevelAndTeam(checks);
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
  }
}

TEST(ModifiedSelectiveBlur, FollowsTheCutFormulaAtEveryLevelAndTeamSize) {
  forEachLevel(smallChecks(modifiedCheck));
  std::vector<Check> checks;
  for (const int threshold : {1, 10, 90, 128, 129, 255, 4000}) {
    checks.push_back(modifiedCheck(131, 50, threshold, 1, checks.size()));
    checks.push_back(modifiedCheck(67, 77, threshold, 8, checks.size()));
  }
  checks.push_back(modifiedCheck(200, 33, 300, 90, 40));
  checks.push_back(modifiedCheck(70, 18, 1, 32768, 41));
  checks.push_back(modifiedCheck(70, 18, 1, 32769, 42));
  checks.push_back(modifiedCheck(20, 20, INT32_MAX / 2, 1, 43));
  forEachLevelAndTeam(checks);
}

TEST(ModifiedSelectiveBlur, TakesOneHeaderForBothImages) {
  initialise();
  TestImage work(30, 20), image(30, 20), expected(30, 20);
  image.fillRandom(1);
  expected.assign(image.bytes());
  modifiedBlur(work, expected, 30, 2);
  KVL_ModifiedSelectiveBlur(&image.header, work.bits(), &image.header, image.bits(), 30, 2);
  expectBytes(expected.bytes(), image);
  EXPECT_EQ(image.width(), 30);
  EXPECT_EQ(image.height(), 20);
}

template <class Calls>
void expectRefusals(Calls calls, const TestImage& a, const TestImage& b) {
  calls.watch(a, b);
  calls.eachNull();
  calls.template with<0>({makeHeader(19, 20), makeHeader(20, 19)});
  calls.template with<0, 2>(impossibleSizes);
  calls.template with<0, 2>({makeHeader(20, -20)});
  calls.template with<4>({0, -1, INT32_MIN, INT32_MAX});
  calls.template with<5>({0, -1, INT32_MIN, INT32_MAX});
}

TEST(SelectiveBlurs, ChangeNothingForABadCall) {
  initialise();
  TestImage a(20, 20), b(20, 20);
  a.fillRandom(4);
  b.fillRandom(5);
  BadCalls square(KVL_SelectiveBlur, &a.header, a.bits(), &b.header, b.bits(), 10, 2);
  expectRefusals(square, a, b);
  BadCalls modified(KVL_ModifiedSelectiveBlur, &a.header, a.bits(), &b.header, b.bits(), 10, 2);
  expectRefusals(modified, a, b);
  // The first normalisers beyond 32 bits.
  for (const auto& [threshold, radius] :
       {std::pair{INT32_MAX / 8 + 1, 1}, {1, 23170}, {2, 1 << 30}}) {
    square.watch(b).call({&a.header, a.bits(), &b.header, b.bits(), threshold, radius}, "square");
  }
  modified.watch(a, b).call({&a.header, a.bits(), &b.header, b.bits(), INT32_MAX / 2 + 1, 1},
                            "line");
}

}  // namespace
}  // namespace kvl::test
