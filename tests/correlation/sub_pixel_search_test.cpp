#include "correlation/search_model.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

struct Found {
  double x;
  double y;
  double score;
};

Found refine(const Scene& s, const CorrelationOptions& options, CorrelationVector centre) {
  CorrelationBlockResult result = {};
  result.score = 77;
  const CorrelationVector v =
      KVL_CalcCorrelationSub(&result, s.a.bits(), s.b.bits(), &centre, &options);
  return {v.x, v.y, result.score};
}

CorrelationOptions optionsOf(const Scene& s, double step, double scale, double range) {
  CorrelationOptions options = s.options();
  options.subStep = static_cast<float>(step);
  options.subScale = static_cast<float>(scale);
  options.subRange = static_cast<float>(range);
  return options;
}

double sample(const uint8_t* image, int width, int height, double u, double v) {
  const int x = static_cast<int>(u), y = static_cast<int>(v);
  const int right = std::min(x + 1, width - 1), up = std::min(y + 1, height - 1);
  const auto line = [&](int row) {
    const double left = image[row * width + x];
    return left + (u - x) * (image[row * width + right] - left);
  };
  return line(y) + (v - y) * (line(up) - line(y));
}

// Every candidate over the grid that the header defines, sample by sample.
Found model(const Scene& s, const CorrelationOptions& o, CorrelationVector centre) {
  const double step = o.subStep, d = o.subRange;
  const double scale = o.subScale > 0 && std::isfinite(o.subScale) ? o.subScale : 1.0;
  const double cx = centre.x, cy = centre.y;
  const int w = s.width(), h = s.height();
  const double l = s.block.left, r = s.block.right, lower = h - s.block.bottom,
               upper = h - s.block.top;
  const double mx =
      std::floor(std::min(scale * std::max(std::abs(cx - d), std::abs(cx + d)), (r - l) / 4));
  const double my = std::floor(
      std::min(scale * std::max(std::abs(cy - d), std::abs(cy + d)), (upper - lower) / 4));
  const double firstX = std::ceil(std::max({l + mx, 0.0, d - cx}));
  const double lastX = std::min({r - 1 - mx, w - 1.0, w - 1.0 - d - cx});
  const double firstY = std::ceil(std::max({lower + my, 0.0, cy + d}));
  const double lastY = std::min({upper - 1 - my, h - 1.0, h - 1.0 + cy - d});
  Found best{0, 0, 0};
  bool first = true;
  for (double y = cy - d; y <= cy + d; y += step) {
    for (double x = cx - d; x <= cx + d; x += step) {
      int64_t sum = 0;
      for (int j = 0; firstY + j * step <= lastY; ++j) {
        for (int i = 0; firstX + i * step <= lastX; ++i) {
          const double u = firstX + i * step, v = firstY + j * step;
          const int a = static_cast<int>(sample(s.a.bits(), w, h, u, v));
          const int b = static_cast<int>(sample(s.b.bits(), w, h, u + x, v - y));
          sum += std::max(0, b - a);
        }
      }
      if (first || -static_cast<double>(sum) > best.score) {
        best = {x, y, -static_cast<double>(sum)};
      }
      first = false;
    }
  }
  return best;
}

void expectSame(const Found& expected, const Found& actual, const std::string& what) {
  EXPECT_EQ(expected.x, actual.x) << what;
  EXPECT_EQ(expected.y, actual.y) << what;
  EXPECT_EQ(expected.score, actual.score) << what;
}

TEST(SubPixelSearch, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(6);
    for (uint64_t seed = 0; seed < 60; ++seed) {
      Scene s(random.range(1, 33), random.range(1, 33), 0, guardOf(seed), seed);
      s.block = {random.range(-2, s.width() - 1), random.range(-2, s.height() - 1), 0, 0};
      s.block.right = s.block.left + random.range(1, 20);
      s.block.bottom = s.block.top + random.range(1, 20);
      // Steps that are exact in binary, so that no position depends on how it is added up.
      const double step = 0.25 * random.range(1, 4);
      const CorrelationOptions options =
          optionsOf(s, step, 0.5 * random.range(-1, 4), 0.25 * random.range(0, 5));
      const CorrelationVector centre{0.5 * random.range(-6, 6), 0.25 * random.range(-9, 9)};
      const Found expected = model(s, options, centre);
      expectSame(expected, refine(s, options, centre), text("seed ", seed));
    }
  });
}

TEST(SubPixelSearch, RefusesStepsAndRangesThatAreNone) {
  initialise();
  Scene s(20, 20, 0, GuardAt::end, 3);
  s.block = {5, 5, 15, 15};
  const auto expectFound = [&](const Found& expected, CorrelationVector centre, double step,
                               double scale, double range) {
    expectSame(expected, refine(s, optionsOf(s, step, scale, range), centre),
               text(centre.x, " ", centre.y, " ", step, " ", scale, " ", range));
  };
  for (const double step : {0.0, -0.25, 1.0 / 1025}) expectFound({0, 0, 0}, {3, 2}, step, 1, 1);
  expectFound({0, 0, 0}, {3, 2}, 0.25, 1, -0.25);
  const Found usual = refine(s, optionsOf(s, 0.25, 1, 1), {1, 1});
  for (const double scale : {0.0, -3.0}) expectFound(usual, {1, 1}, 0.25, scale, 1);
  for (const double bad : {notANumber, infinity}) {
    expectFound({0, 0, 0}, {3, 2}, bad, 1, 1);
    expectFound({0, 0, 0}, {3, 2}, 0.25, 1, bad);
    expectFound({0, 0, 0}, {bad, 2}, 0.25, 1, 1);
    expectFound({0, 0, 0}, {3, -bad}, 0.25, 1, 1);
    expectFound(usual, {1, 1}, 0.25, bad, 1);  // counts as 1
  }
  // Too far out for a single sample: the first candidate, at once.
  for (const double distant : {1e3, 1e9, 1e300}) {
    expectFound({distant - 1, 1, 0}, {distant, 2}, 0.25, 1, 1);
    const auto reach = static_cast<double>(static_cast<float>(std::min(distant, 1e30)));
    expectFound({-reach, -reach, 0}, {0, 0}, 0.25, 1, reach);
  }
}

}  // namespace
}  // namespace kvl::test
