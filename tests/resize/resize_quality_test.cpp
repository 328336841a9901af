// What the resampled picture is worth: properties, and its distance from an exact model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "core/initialise.h"
#include "resize/resize_case.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::Random;
using test::ResizeCase;
using test::Sample;
using test::TestImage;

constexpr double scales[] = {0.01, 0.37, 0.5, 2.0 / 3, 0.9, 1, 1.01, 1.5, 2, 3.1};

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

double mean(const TestImage& image) {
  double sum = 0;
  for (int32_t y = 0; y < image.height(); ++y) {
    for (size_t x = 0; x < image.rowBytes(); ++x) sum += image.row(y)[x];
  }
  return sum / static_cast<double>(image.rowBytes()) / image.height();
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

TEST(ResizeQuality, FlatStaysFlat) {
  initialise();
  for (const double scale : scales) {
    for (const int value : {0, 1, 127, 254, 255}) {
      ResizeCase c(101, 83, scaled(101, scale), scaled(83, scale));
      c.source.fill(static_cast<uint8_t>(value));
      c.rect = {-3.3, 2.2, 90.7, 90.1};
      c.run();
      for (const Sample& s : test::exactSamples(c)) ASSERT_EQ(s.result, value) << scale;
    }
  }
}

TEST(ResizeQuality, RampsStayMonotonicBothWays) {
  initialise();
  for (const double scale : scales) {
    ResizeCase c(300, 200, scaled(300, scale), scaled(200, scale), 8);
    for (int32_t y = 0; y < 200; ++y) {
      for (int32_t x = 0; x < 300; ++x) {
        c.source.row(y)[x] = static_cast<uint8_t>(x * x / 700 + y / 2);
      }
    }
    c.rect = {0.3, 0.6, 299.1, 198.2};
    c.run();
    for (int32_t y = 0; y < c.destination.height(); ++y) {
      for (int32_t x = 0; x < c.destination.width(); ++x) {
        const int left = c.at(std::max(x - 1, 0), y), below = c.at(x, std::max(y - 1, 0));
        ASSERT_GE(c.at(x, y), std::max(left, below)) << scale << " " << x << " " << y;
      }
    }
  }
}

TEST(ResizeQuality, MirrorsWithTheSource) {
  initialise();
  Random random(5);
  for (int i = 0; i < 300; ++i) {
    const int32_t w = random.range(2, 90), h = random.range(2, 60);
    const int32_t toW = random.range(1, 120), toH = random.range(1, 90);
    ResizeCase plain(w, h, toW, toH), mirrored(w, h, toW, toH);
    plain.source.fillRandom(static_cast<uint64_t>(i));
    // Sixteenths, which survive the subtraction exactly.
    const auto edge = [&](int32_t low, int32_t high) { return random.range(low, high) / 16.0; };
    plain.rect = {edge(-100, 8 * w - 1), edge(-100, 8 * h - 1), edge(8 * w, 16 * w + 90),
                  edge(8 * h, 16 * h + 90)};
    if (i % 2 == 0) plain.rect = {0, 0, static_cast<double>(w), static_cast<double>(h)};
    mirrored.rect = {w - plain.rect.right, h - plain.rect.bottom, w - plain.rect.left,
                     h - plain.rect.top};
    plain.flags = mirrored.flags = i % 3 == 0;
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        std::copy_n(plain.source.row(y) + 3 * x, 3,
                    mirrored.source.row(h - 1 - y) + 3 * (w - 1 - x));
      }
    }
    plain.run();
    mirrored.run();
    for (int32_t y = 0; y < toH; ++y) {
      for (int32_t x = 0; x < toW; ++x) {
        for (int32_t k = 0; k < 3; ++k) {
          ASSERT_EQ(plain.at(x, y, k), mirrored.at(toW - 1 - x, toH - 1 - y, k))
              << i << " " << x << " " << y;
        }
      }
    }
  }
}

TEST(ResizeQuality, TreatsEveryComponentLikeAPictureOfItsOwn) {
  test::forEachLevelAndTeam([] {
    for (const double scale : {0.37, 0.5, 0.9, 1.5}) {
      ResizeCase c(150, 120, scaled(150, scale), scaled(120, scale));
      c.source.fillRandom(1);
      c.run();
      for (int32_t k = 0; k < 3; ++k) {
        ResizeCase grey(150, 120, scaled(150, scale), scaled(120, scale), 8);
        for (int32_t y = 0; y < 120; ++y) {
          for (int32_t x = 0; x < 150; ++x) {
            grey.source.row(y)[x] = static_cast<uint8_t>(c.sourceAt(x, y, k));
          }
        }
        grey.run();
        for (int32_t y = 0; y < grey.destination.height(); ++y) {
          for (int32_t x = 0; x < grey.destination.width(); ++x) {
            ASSERT_EQ(grey.at(x, y), c.at(x, y, k)) << scale << " " << x << " " << y;
          }
        }
      }
    }
  });
}

TEST(ResizeQuality, WholeFactorsAverageBoxes) {
  initialise();
  for (const int32_t factor : {2, 3, 4, 5, 7, 16, 60}) {
    ResizeCase c(240 / factor * factor, 120 / factor * factor, 240 / factor, 120 / factor);
    c.source.fillRandom(2);
    c.run();
    for (int32_t y = 0; y < c.destination.height(); ++y) {
      for (int32_t x = 0; x < c.destination.width(); ++x) {
        int sum = 0;
        for (int32_t i = 0; i < factor * factor; ++i) {
          sum += c.sourceAt(x * factor + i % factor, y * factor + i / factor, 1);
        }
        ASSERT_NEAR(c.at(x, y, 1), std::lround(sum / double(factor * factor)), 1) << factor;
      }
    }
  }
}

TEST(ResizeQuality, KeepsTheMeanBrightness) {
  initialise();
  for (const double scale : scales) {
    ResizeCase c(640, 480, scaled(640, scale), scaled(480, scale), 8);
    fillPicture(c.source);
    c.run();
    EXPECT_NEAR(mean(c.source), mean(c.destination), 0.5) << scale;
  }
}

TEST(ResizeQuality, EnlargesBilinearlyWithinOneLevel) {
  initialise();
  for (const double scale : {1.0, 1.001, 1.5, 3.1, 17.3}) {
    ResizeCase c(101, 57, scaled(101, scale), scaled(57, scale));
    c.source.fillRandom(4);
    c.rect = {1.25, 0.4, 99.75, 55.9};
    c.run();
    EXPECT_LE(largestError(test::exactSamples(c)), 1.05) << scale;
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
    const std::vector<Sample> samples = test::exactSamples(c);
    EXPECT_LE(meanError(samples), 0.5) << i;
    EXPECT_LE(largestError(samples), 1.6) << i;
  }
}

// A slow pan and zoom: against the exact picture of each frame, nothing jumps by more than the ties
// of rounding, which some frames have and others do not.
TEST(ResizeQuality, FractionalRectanglesMoveThePictureEvenly) {
  initialise();
  for (const double scale : {0.5, 0.7, 1.0, 1.6}) {
    double before = 0;
    for (int frame = 0; frame < 200; ++frame) {
      const double at = frame / 100.0;
      ResizeCase c(120, 60, scaled(100, scale), scaled(50, scale), 8);
      fillPicture(c.source);
      c.rect = {at, at / 2, at + 100 - at / 7, at / 2 + 50};
      c.run();
      double error = 0;
      const std::vector<Sample> samples = test::exactSamples(c);
      for (const Sample& s : samples) error += s.result - s.exact;
      error /= static_cast<double>(samples.size());
      ASSERT_NEAR(error, 0, 0.3) << scale << " " << frame;
      ASSERT_NEAR(error, frame > 0 ? before : error, 0.3) << scale << " " << frame;
      before = error;
    }
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
    const double ratio = test::psnr(test::exactSamples(c));
    RecordProperty("psnr_" + std::to_string(scale), std::to_string(ratio));
    EXPECT_GE(ratio, atLeast) << scale;
    std::printf("PSNR at %.3f: %.2f dB\n", scale, ratio);
  }
}

}  // namespace
}  // namespace kvl
