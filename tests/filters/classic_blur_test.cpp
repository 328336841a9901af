#include "filters/classic_blur_kernels.h"
#include "support/kernel_levels.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

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

Check modelCheck(int width, int height, int samples, int threshold, float radius, uint64_t seed) {
  const auto bitCount = static_cast<uint16_t>(8 * samples);
  const size_t stride = size_t(width * samples) + seed % 6;
  const size_t workStride = size_t(height * samples) + seed % 5;
  const auto model = [=](Bytes& image, Bytes& work) {
    modelPass(image, stride, work, workStride, width, height, threshold, radius, size_t(samples));
    modelPass(work, workStride, image, stride, height, width, threshold, radius, size_t(samples));
  };
  return twoImageCheck(
      {width, height, bitCount, stride}, {height, width, bitCount, workStride}, seed,
      text(width, " x ", height, " x ", samples, ", threshold ", threshold, ", radius ", radius),
      model, [=](TestImage& image, TestImage& work) {
        const auto w = static_cast<uint32_t>(width), h = static_cast<uint32_t>(height);
        const auto is = static_cast<uint32_t>(stride), ws = static_cast<uint32_t>(workStride);
        if (samples == 3 && seed % 2 != 0) {
          KVL_BlurClassicUni(image.bits(), is, work.bits(), ws, w, h, threshold, radius);
        } else {
          KVL_BlurClassicUni_MultiComp(image.bits(), is, work.bits(), ws, w, h, threshold, radius,
                                       samples, 1);
        }
      });
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

TEST(ClassicBlur, FollowsTheFormulaAtEveryLevelAndTeamSize) {
  std::vector<Check> small, large;
  for (const SmallSize& s : smallSizes(1)) {
    const int threshold = s.seed % 4 == 0 ? 255 : static_cast<int>(s.seed * 7 % 254) + 1;
    small.push_back(modelCheck(s.width, s.height, s.seed % 3 == 0 ? 1 : 3, threshold,
                               static_cast<float>(s.seed % 53) / 8 + 0.125f, s.seed));
  }
  forEachLevel(small);
  const auto add = [&](int width, int height, int samples, int threshold, float radius) {
    large.push_back(modelCheck(width, height, samples, threshold, radius, large.size()));
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
  forEachLevelAndTeam(large);
}

TEST(ClassicBlur, HasKernelsOfItsOwnForAvx2) {
  EXPECT_EQ(replaced(classicBlurKernels), (Replaced{0, 0, 0, 2}));
}

TEST(ClassicBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage image(20, 12), work(12, 20);
  image.fillRandom(4);
  work.fillRandom(5);
  const auto expectRefusals = [&](auto calls) {
    calls.watch(image, work);
    calls.eachNull();
    calls.template with<1>({0, 59});
    calls.template with<3>({0, 35});
    calls.template with<4>({0u});
    calls.template with<5>({0u, 0xFFFFFFFF});
    calls.template with<6>({0, -1, INT32_MIN, INT32_MAX});
    calls.template with<7>({0.0, -0.0, -1.0, notANumber, 2147483648.0, infinity, -infinity});
  };
  for (const int threshold : {20, 255}) {
    expectRefusals(
        BadCalls(KVL_BlurClassicUni, image.bits(), 60, work.bits(), 36, 20, 12, threshold, 2.0f));
    BadCalls calls(KVL_BlurClassicUni_MultiComp, image.bits(), 60, work.bits(), 36, 20, 12,
                   threshold, 2.0f, 3, 1);
    expectRefusals(calls);
    calls.watch(image, work);
    calls.with<8>({-1, 0, 2, 4});
    calls.with<9>({-1, 0, 2});
  }
  BadCalls heavy(KVL_BlurClassicUni, image.bits(), 60, work.bits(), 36, 20, 12, 20, 1024.0f);
  heavy.watch(image, work).with<6>({1 << 20});  // a centre weight of 2^31
}

}  // namespace
}  // namespace kvl::test
