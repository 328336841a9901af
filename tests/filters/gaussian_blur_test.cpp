#include "core/platform.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

// Centre and side weights of each radius.
const std::vector<std::vector<int>> kernels = {
    {58394, 3571},
    {26386, 16004, 3571},
    {15639, 13271, 8109, 3568},
    {10684, 9976, 8121, 5763, 3566},
    {7887, 7641, 6946, 5927, 4745, 3566},
    {6112, 6022, 5758, 5343, 4813, 4207, 3570},
    {4902, 4871, 4777, 4625, 4420, 4170, 3884, 3570},
    {4031, 4023, 4001, 3963, 3911, 3845, 3765, 3674, 3571},
};

// The clamped formula along a line of n samples that lie `step` apart.
void modelLine(const uint8_t* in, uint8_t* out, int n, size_t step, int radius) {
  const std::vector<int>& w = kernels[static_cast<size_t>(radius) - 1];
  for (int x = 0; x < n; ++x) {
    int64_t sum = 0;
    for (int d = -radius; d <= radius; ++d) {
      const int at = std::clamp(x + d, 0, n - 1);
      sum += int64_t{w[static_cast<size_t>(std::abs(d))]} * in[static_cast<size_t>(at) * step];
    }
    out[static_cast<size_t>(x) * step] = static_cast<uint8_t>(std::min<int64_t>(sum / 65536, 255));
  }
}

void blur(TestImage& work, TestImage& image, int radius) {
  KVL_GaussianBlur(&work.header, work.bits(), &image.header, image.bits(), radius);
}

Check modelCheck(int width, int height, int radius, uint64_t seed) {
  const auto model = [=](Bytes& work, Bytes& image) {
    const int r = std::min(radius, 8);
    const size_t stride = image.size() / static_cast<size_t>(height);
    for (size_t row = 0; row < image.size(); row += stride) {
      for (size_t c = 0; c < 3; ++c) modelLine(&image[row + c], &work[row + c], width, 3, r);
    }
    for (size_t x = 0; x < static_cast<size_t>(3 * width); ++x) {
      modelLine(&work[x], &image[x], height, stride, r);
    }
  };
  return twoImageCheck({width, height}, {width, height}, seed,
                       text(width, " x ", height, ", radius ", radius), model,
                       [=](TestImage& work, TestImage& image) { blur(work, image, radius); });
}

TEST(GaussianBlur, SpreadsASinglePixelAsWorkedByHand) {
  TestImage work(5, 3), image(5, 3);
  image.fill(0);
  image.row(1)[2 * 3 + 1] = 255;
  blur(work, image, 1);
  // 3571 * 255 >> 16 = 13 and 58394 * 255 >> 16 = 227; then the same again down the columns.
  const int horizontal[5] = {0, 13, 227, 13, 0};
  const int vertical[3][5] = {{0, 0, 12, 0, 0}, {0, 11, 202, 11, 0}, {0, 0, 12, 0, 0}};
  for (int x = 0; x < 5; ++x) {
    EXPECT_EQ(work.row(1)[x * 3 + 1], horizontal[x]) << x;
    EXPECT_EQ(work.row(1)[x * 3], 0);
    for (int y = 0; y < 3; ++y) EXPECT_EQ(image.row(y)[x * 3 + 1], vertical[y][x]) << x << y;
  }
}

// Its weights sum to 65535.
TEST(GaussianBlur, DarkensFlatImagesAtRadius3Only) {
  for (int radius = 1; radius <= 8; ++radius) {
    TestImage work(41, 37), image(41, 37);
    image.fill(255);
    blur(work, image, radius);
    EXPECT_EQ(image.row(17)[50], radius == 3 ? 253 : 255) << radius;
  }
}

TEST(GaussianBlur, FollowsTheClampedFormulaAtEveryLevelAndTeamSize) {
  std::vector<Check> small, large;
  for (const SmallSize& s : smallSizes(1)) {
    small.push_back(modelCheck(s.width, s.height, static_cast<int>(s.seed % 8) + 1, s.seed));
  }
  forEachLevel(small);
  for (int radius = 1; radius <= 9; ++radius) {
    large.push_back(modelCheck(211 + radius, 67 - radius, radius, 7));
    large.push_back(modelCheck(32 + radius, 19, radius, 8));
  }
  large.push_back(modelCheck(1027, 5, INT32_MAX, 9));
  forEachLevelAndTeam(large);
}

TEST(GaussianBlur, ChangesNothingForABadCall) {
  initialise();
  TestImage work(20, 20), image(20, 20);
  BadCalls calls(KVL_GaussianBlur, &work.header, work.bits(), &image.header, image.bits(), 2);
  calls.watch(image.fillRandom(4), work.fillRandom(5));
  calls.eachNull();
  calls.with<0>({makeHeader(19, 20), makeHeader(20, 19)});
  calls.with<0, 2>(impossibleSizes);
  calls.with<0, 2>({makeHeader(20, -20)});
  calls.with<4>({0, INT32_MIN});
}

std::string g_debugLines;

TEST(GaussianBlur, EmitsItsDebugLineAfterValidation) {
  const PlatformCalls saved = g_platform;
  g_platform.debugOutput = [](const char* line) { g_debugLines += line; };
  TestImage work(2, 2), image(2, 2);
  blur(work, image, 0);
  KVL_GaussianBlur(&work.header, work.bits(), &image.header, nullptr, 1);
  EXPECT_EQ(g_debugLines, "");
  blur(work, image, 1);
  EXPECT_EQ(g_debugLines, "KVL_GaussianBlur\n");
  g_platform = saved;
}

}  // namespace
}  // namespace kvl::test
