// What the resampled picture is worth: its distance from an exact model.
#include "resize/resize_case.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

int32_t scaled(int32_t size, double scale) {
  return std::max(1, static_cast<int32_t>(std::lround(size * scale)));
}

// Smooth shapes, edges and grain.
void fillPicture(TestImage& image) {
  Random random(3);
  const int components = image.header.biBitCount / 8;
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) {
      const bool inside = (x / 40 + y / 30) % 3 == 0;
      for (int c = 0; c < components; ++c) {
        const double wave = 60 * std::sin(x * 0.031 + c) + 50 * std::cos(y * 0.047 - c);
        const double value = 128 + wave + (inside ? 40 : 0) + random.range(-8, 8);
        image.row(y)[x * components + c] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
      }
    }
  }
}

double largestError(const std::vector<Sample>& samples) {
  double largest = 0;
  for (const Sample& s : samples) largest = std::max(largest, std::abs(s.exact - s.result));
  return largest;
}

double meanError(const std::vector<Sample>& samples) {
  double sum = 0;
  for (const Sample& s : samples) sum += std::abs(s.exact - s.result);
  return sum / static_cast<double>(samples.size());
}

TEST(ResizeQuality, EnlargesBilinearlyWithinOneLevel) {
  initialise();
  for (const double scale : {1.0, 1.001, 1.5, 3.1, 17.3}) {
    ResizeCase c(101, 57, scaled(101, scale), scaled(57, scale));
    c.source.fillRandom(4);
    c.rect = {1.25, 0.4, 99.75, 55.9};
    c.run();
    EXPECT_LE(largestError(exactSamples(c)), 1.05) << scale;
  }
}

// Rims included: a fractional rectangle is averaged as far as it covers each sample.
TEST(ResizeQuality, ShrinksToAreaAverages) {
  initialise();
  Random random(6);
  for (int i = 0; i < 100; ++i) {
    const int32_t toW = random.range(1, 60), toH = random.range(1, 50);
    ResizeCase c(130, 110, toW, toH);
    c.source.fillRandom(static_cast<uint64_t>(i));
    const auto fraction = [&] { return random.range(0, 999) / 1000.0; };
    c.rect = {30 * fraction(), 30 * fraction(), 130 - 30 * fraction(), 110 - 30 * fraction()};
    if (i % 3 == 0) c.rect = {-20 * fraction(), -9 * fraction(), 130 + 70 * fraction(), 125.3};
    c.run();
    const std::vector<Sample> samples = exactSamples(c);
    EXPECT_LE(meanError(samples), 0.5) << i;
    EXPECT_LE(largestError(samples), 1.6) << i;
  }
}

TEST(ResizeQuality, KeepsThePublishedSignalToNoise) {
  initialise();
  const std::pair<double, double> published[] = {
      {0.5, 55.5}, {2.0 / 3, 55.5}, {0.37, 56.5}, {1.5, 55.5}, {3.1, 55.5}};
  for (const auto& [scale, atLeast] : published) {
    ResizeCase c(640, 480, scaled(640, scale), scaled(480, scale));
    fillPicture(c.source);
    c.run();
    const double ratio = psnr(exactSamples(c));
    RecordProperty("psnr_" + std::to_string(scale), std::to_string(ratio));
    EXPECT_GE(ratio, atLeast) << scale;
    std::printf("PSNR at %.3f: %.2f dB\n", scale, ratio);
  }
}

}  // namespace
}  // namespace kvl::test
