#include <array>
#include <memory>

#include "resize/resize_case.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

std::string describe(const ResizeCase& c) {
  return text(c.source.width(), " ", c.source.height(), " (", c.rect.left, " ", c.rect.top, " ",
              c.rect.right, " ", c.rect.bottom, ") -> ", c.destination.width(), " ",
              c.destination.height(), " (", c.into.left, " ", c.into.top, " ", c.into.right, " ",
              c.into.bottom, ") flags ", c.flags, " ", c.source.header.biBitCount);
}

// Bytes of the work buffer that no result may depend on stay defined: the same for every call.
void expectModel(ResizeCase& c, uint64_t seed) {
  c.source.fillRandom(seed);
  c.destination.fillRandom(seed + 1);
  const std::vector<uint8_t> expected = modelBytes(c, c.destination.bytes());
  ASSERT_NO_FATAL_FAILURE(c.run()) << describe(c);
  expectBytes(expected, c.destination, describe(c));
}

// A rectangle of either kind: whole or fractional, inside the source or hanging over it.
std::unique_ptr<ResizeCase> randomCase(Random& random, int32_t largest) {
  const auto size = [&] { return random.range(1, largest); };
  const int32_t sizes[] = {size(), size(), size(), size()};
  const uint16_t bits = random.range(0, 1) != 0 ? 24 : 8;
  auto result = std::make_unique<ResizeCase>(sizes[0], sizes[1], sizes[2], sizes[3], bits,
                                             bits == 8 ? GuardAt::end : GuardAt::start);
  ResizeCase& c = *result;
  c.flags = random.next() & 1;
  const int kind = random.range(0, 3);
  const auto along = [&](double length, double& from, double& to) {
    if (kind == 0) return;
    const double unit = kind == 1 ? 1 : 1.0 / random.range(2, 300);
    const double overhang = kind == 3 ? length : 0;
    const auto edge = [&] {
      return unit * random.range(static_cast<int32_t>(-overhang / unit),
                                 static_cast<int32_t>((length + overhang) / unit));
    };
    const double a = edge(), b = edge();
    if (std::min(a, b) >= length || std::max(a, b) <= 0 || std::abs(a - b) < 0.01) return;
    from = std::min(a, b);
    to = std::max(a, b);
  };
  along(c.source.width(), c.rect.left, c.rect.right);
  along(c.source.height(), c.rect.top, c.rect.bottom);
  if (random.range(0, 2) == 0) {
    c.into.left = random.range(-5, c.destination.width() - 1);
    c.into.top = random.range(-5, c.destination.height() - 1);
    c.into.right = std::max<int32_t>(c.into.left, 0) + random.range(1, largest);
    c.into.bottom = std::max<int32_t>(c.into.top, 0) + random.range(1, largest);
  }
  return result;
}

TEST(Resize, HalvesAndDoublesAsWorkedByHand) {
  ResizeCase half(4, 2, 2, 1, 8);
  half.source.assign({10, 20, 31, 40,  //
                      12, 21, 30, 44});
  half.run();
  // Columns first, halves up: 11, 21, 31, 42; then pairs, halves down: 16, 36.
  EXPECT_EQ(half.at(0, 0), 16);
  EXPECT_EQ(half.at(1, 0), 36);

  ResizeCase twice(2, 1, 4, 1, 8);
  twice.source.assign({0, 100, 0, 0});
  twice.run();
  const int expected[] = {0, 25, 75, 100};
  for (int x = 0; x < 4; ++x) EXPECT_EQ(twice.at(x, 0), expected[x]) << x;

  // 3 to 2: each output is one sample and half of the next, two thirds and one third of it.
  ResizeCase third(3, 1, 2, 1, 8);
  third.source.assign({0, 90, 240, 0});
  third.run();
  EXPECT_EQ(third.at(0, 0), 30);
  EXPECT_EQ(third.at(1, 0), 190);
}

TEST(Resize, FollowsItsFormulaAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    uint64_t seed = 1;
    for (const auto& [fromW, fromH, toW, toH] : {std::array{211, 67, 140, 45},
                                                 {211, 67, 105, 33},
                                                 {64, 96, 211, 131},
                                                 {901, 30, 1203, 29},
                                                 {211, 67, 300, 20},
                                                 {35, 400, 211, 33},
                                                 {500, 500, 1, 1},
                                                 {1, 1, 70, 70},
                                                 {700, 40, 16, 40}}) {
      for (const uint16_t bits : {8, 24}) {
        ResizeCase c(fromW, fromH, toW, toH, bits);
        ASSERT_NO_FATAL_FAILURE(expectModel(c, seed++));
      }
    }
  });
}

TEST(Resize, FollowsItsFormulaForEverySmallSizeAndManyRectangles) {
  forEachLevel([] {
    uint64_t seed = 1;
    for (int32_t from = 1; from <= 33; ++from) {
      for (int32_t to = 1; to <= 33; to += from % 3 + 1) {
        ResizeCase c(from, 34 - from, to, 34 - to, seed % 3 != 0 ? 24 : 8, guardOf(seed));
        expectModel(c, seed++);
      }
    }
    Random random(2);
    for (int i = 0; i < 400; ++i) expectModel(*randomCase(random, i % 8 == 0 ? 150 : 40), seed++);
  });
}

// Squares of four samples: every pair of samples in a column, and every pair of column means.
TEST(Resize, HalvesEveryPairOfSamples) {
  test::forEachLevelAndTeam([] {
    ResizeCase c(512, 1024, 256, 512, 8);
    for (int32_t y = 0; y < 1024; ++y) {
      for (int32_t x = 0; x < 512; ++x) {
        const int32_t pair = y / 2 % 256, i = x / 2;
        // Below, columns of equal samples; above, one column of the pair and one of a constant.
        const bool first = x % 2 == 0, mixed = y >= 512;
        const int32_t value = mixed ? (first ? (y % 2 == 0 ? pair : i) : 100) : (first ? pair : i);
        c.source.row(y)[x] = static_cast<uint8_t>(value);
      }
    }
    c.run();
    for (int32_t y = 0; y < 512; ++y) {
      for (int32_t x = 0; x < 256; ++x) {
        const int32_t pair = y % 256;
        const int32_t u = y < 256 ? pair : (pair + x + 1) / 2, v = y < 256 ? x : 100;
        ASSERT_EQ(c.at(x, y), (u + v) / 2) << x << " " << y;
      }
    }
  });
}

// Exact halves of any part and place, and rectangles that are all but that.
TEST(Resize, FollowsItsFormulaAtAndNearExactHalves) {
  test::forEachLevelAndTeam([] {
    Random random(5);
    uint64_t seed = 1;
    for (int32_t width = 1; width <= 100; width += seed % 3 == 0 ? 2 : 1) {
      const int32_t height = random.range(1, 9);
      ResizeCase c(2 * width + random.range(0, 3), 2 * height + random.range(0, 3),
                   width + random.range(0, 3), height + random.range(0, 3), seed % 2 != 0 ? 24 : 8,
                   seed % 4 < 2 ? GuardAt::start : GuardAt::end);
      const int32_t left = random.range(0, c.source.width() - 2 * width);
      const int32_t top = random.range(0, c.source.height() - 2 * height);
      c.rect = {double(left), double(top), double(left + 2 * width), double(top + 2 * height)};
      c.into.left = random.range(0, c.destination.width() - width);
      c.into.top = random.range(0, c.destination.height() - height);
      c.into.right = c.into.left + width;
      c.into.bottom = c.into.top + height;
      c.flags = random.next() & 1;
      if (seed % 5 == 0) {
        double* edges[] = {&c.rect.left, &c.rect.top, &c.rect.right, &c.rect.bottom};
        const double steps[] = {1e-9, -1e-9, 0.5, -1, 1, -2};
        *edges[random.range(0, 3)] += steps[random.range(0, 5)];
      }
      ASSERT_NO_FATAL_FAILURE(expectModel(c, seed++));
    }
  });
}

}  // namespace
}  // namespace kvl::test
