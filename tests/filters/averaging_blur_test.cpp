#include <ctime>

#include "support/testing.h"

namespace kvl::test {
namespace {

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
  Bytes& bytes;
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

Check wholeImageCheck(int32_t width, int32_t height, int32_t radius, uint64_t seed) {
  const auto model = [=](Bytes& work, Bytes& image) {
    const size_t stride = image.size() / size_t(height);
    const size_t workStride = size_t(height) * stride / size_t(width);
    modelBothPasses({image, width, height, stride}, {work, height, width, workStride},
                    {0, 0, width, height}, radius, radius, 3);
  };
  return twoImageCheck(
      {width, height}, {width, height}, seed, text(width, " x ", height, ", radius ", radius),
      model, [=](TestImage& work, TestImage& image) {
        KVL_AveragingBlur(&work.header, work.bits(), &image.header, image.bits(), radius);
      });
}

// Of the shapes the heights may be negative.
template <class Blur, class Radius>
Check rectangleCheck(Blur blur, const Shape& source, const Shape& transposed, const Part& part,
                     Radius horizontal, Radius vertical, uint64_t seed) {
  const auto model = [=](Bytes& in, Bytes& out) {
    const int32_t width = source.width, height = transposed.width;
    modelBothPasses({in, width, source.height, in.size() / size_t(height)},
                    {out, height, transposed.height, out.size() / size_t(width)}, part,
                    double(horizontal), double(vertical), source.bitCount / 8);
  };
  return twoImageCheck(
      source, transposed, seed,
      text(source.width, " x ", source.height, " x ", source.bitCount, ", rectangle ", part.x0, " ",
           part.y0, " ", part.width, " ", part.height, ", radii ", horizontal, " ", vertical),
      model, [=](TestImage& in, TestImage& out) {
        blur(&in.header, in.bits(), &out.header, out.bits(), part.x0, part.y0, part.width,
             part.height, horizontal, vertical);
      });
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
  forEachLevel([] {
    for (const auto& [value, radius, expected] : {std::tuple{254, 128, 254},
                                                  {255, 127, 255},
                                                  {254, 129, 255},
                                                  {255, 2055, 255},
                                                  {255, 2056, 0}}) {
      TestImage source(35, 3, 8), transposed(3, 35, 8);
      source.fill(static_cast<uint8_t>(value));
      KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, transposed.bits(), 0, 0, 35,
                     3, radius, 1);
      EXPECT_EQ(std::count(source.row(1), source.row(1) + 35, expected), 35) << radius;
    }
  });
}

TEST(AveragingBlur, FollowsTheFormulaAtEveryLevelAndTeamSize) {
  std::vector<Check> small, large;
  for (const SmallSize& s : smallSizes(1)) {
    small.push_back(
        wholeImageCheck(s.width, s.height, static_cast<int32_t>(s.seed % 19) + 1, s.seed));
  }
  forEachLevel(small);
  for (const int32_t radius : {1, 2, 7, 50, 127, 128, 129, 300, 1500, 2056, INT32_MAX}) {
    large.push_back(wholeImageCheck(203, 101, radius, large.size()));
  }
  // Lines longer than what is kept of them at a time, with and without room for the box.
  large.push_back(wholeImageCheck(1201, 3, 127, 8));
  large.push_back(wholeImageCheck(1201, 5, 224, 9));
  large.push_back(wholeImageCheck(1203, 3, 225, 10));
  large.push_back(wholeImageCheck(1201, 5, 400, 11));
  forEachLevelAndTeam(large);
}

TEST(AveragingBlur, ShortLinesDoNotPayForALongRadius) {
  TestImage source(3, 60000, 24), transposed(60000, 3, 24);
  // Of the processor, since the machine may have other work.
  const auto secondsOf = [&](int32_t radius) {
    const std::clock_t start = std::clock();
    KVL_AvgBlurUni(&source.header, source.bits(), &transposed.header, transposed.bits(), 0, 0, 3,
                   60000, radius, 1);
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  };
  atLevel(InstructionSet::scalar, [&] {
    const double shortest = secondsOf(1);
    EXPECT_LT(secondsOf(2055), 20 * shortest + 0.05);
  });
}

TEST(AveragingBlur, BlursRectanglesOfEveryBitCount) {
  std::vector<Check> checks;
  Random random(5);
  for (uint64_t seed = 0; seed < 120; ++seed) {
    const uint16_t bitCount = seed % 3 == 0 ? 8 : seed % 3 == 1 ? 24 : 32;
    const int32_t width = random.range(1, 70), height = random.range(1, 130);
    const Part part = {random.range(0, width), random.range(0, height), random.range(-1, width + 9),
                       random.range(-1, height + 9)};
    const Shape source = {width, seed % 7 ? height : -height, bitCount};
    const Shape transposed = {height, seed % 5 ? width : -width, bitCount};
    checks.push_back(rectangleCheck(KVL_AvgBlurUni, source, transposed, part, random.range(1, 30),
                                    random.range(1, 150), seed));
    checks.push_back(rectangleCheck(KVL_AvgBlurUniFloat, source, transposed, part,
                                    float(random.range(0, 300)) / 64,
                                    float(random.range(0, 9000)) / 64, seed));
  }
  const Part all = {0, 0, INT32_MAX, INT32_MAX};
  for (const float radius : {0.0f, 1e-6f, 0.999f, 1.5f, 128.0f, 128.5f, 254.25f, 700.7f, 1e9f}) {
    checks.push_back(
        rectangleCheck(KVL_AvgBlurUniFloat, {555, 37}, {37, 555}, all, radius, 0.5f, 3));
  }
  forEachLevelAndTeam(checks);
}

TEST(AveragingBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage source(20, 12), transposed(12, 20), work(20, 12);
  source.fillRandom(4);
  transposed.fillRandom(5);
  work.fillRandom(6);
  BadCalls whole(KVL_AveragingBlur, &work.header, work.bits(), &source.header, source.bits(), 2);
  whole.watch(source, work);
  whole.eachNull();
  whole.with<0>({makeHeader(19, 12), makeHeader(20, 13)});
  whole.with<0, 2>({makeHeader(20, 0), makeHeader(0, 20), makeHeader(-20, 12), makeHeader(20, -12),
                    makeHeader(20, INT32_MIN), makeHeader(INT32_MAX, INT32_MAX)});
  whole.with<4>({0, INT32_MIN});

  const auto expectRefusals = [&](auto calls) {
    calls.watch(source, transposed);
    calls.eachNull();
    // Rectangles outside.
    calls.template with<4>({-1, INT32_MIN, 20, INT32_MAX});
    calls.template with<5>({-1, INT32_MIN, 12, INT32_MAX});
    calls.template with<6>({0, INT32_MIN});
    calls.template with<7>({0, INT32_MIN});
    // Sizes that do not agree, and such as cannot be real.
    calls.template with<0>(impossibleSizes);
    calls.template with<0>({makeHeader(19, 12), makeHeader(20, 13), makeHeader(20, 12, 32)});
    calls.template with<0, 2>({makeHeader(INT32_MAX, INT32_MAX), makeHeader(0, 0)});
    for (const uint16_t bits : {0, 1, 16, 48}) {
      const BITMAPINFOHEADER from = makeHeader(20, 12, bits), to = makeHeader(12, 20, bits);
      calls.call({&from, source.bits(), &to, transposed.bits(), 0, 0, 20, 12, 2, 2}, "bit count");
    }
    const BITMAPINFOHEADER from = makeHeader(20, 12, 24, 0x32595559),
                           to = makeHeader(12, 20, 24, 0x32595559);
    calls.call({&from, source.bits(), &to, transposed.bits(), 0, 0, 20, 12, 2, 2}, "compression");
    calls.template with<8>({-1});
    calls.template with<9>({-1});
  };
  expectRefusals(BadCalls(KVL_AvgBlurUni, &source.header, source.bits(), &transposed.header,
                          transposed.bits(), 0, 0, 20, 12, 2, 2));
  BadCalls fractional(KVL_AvgBlurUniFloat, &source.header, source.bits(), &transposed.header,
                      transposed.bits(), 0, 0, 20, 12, 2, 2);
  expectRefusals(fractional);
  fractional.watch(source, transposed);
  fractional.with<8>({-1e-30, notANumber, 2147483648.0, infinity, -infinity});
  fractional.with<9>({-1e-30, notANumber, 2147483648.0, infinity, -infinity});
}

}  // namespace
}  // namespace kvl::test
