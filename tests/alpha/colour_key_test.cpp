#include "alpha/colour_key_kernels.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

struct Settings {
  int32_t red, green, blue;
  int32_t low, high;
  int32_t spill;
};

std::string describe(const Settings& s) {
  return text("key ", s.red, " ", s.green, " ", s.blue, ", tolerances ", s.low, " ", s.high,
              ", spill ", s.spill);
}

void key(TestImage& mask, TestImage& image, const Settings& s) {
  KVL_CalcAlphaBmpForMix_ColorBox(mask.bits(), static_cast<int32_t>(mask.stride()), image.bits(),
                                  static_cast<int32_t>(image.stride()), image.width(),
                                  image.height(), s.red, s.green, s.blue, s.low, s.high,
                                  static_cast<uint32_t>(s.spill));
}

// The formulas for key colours of bytes and tolerances up to 100, with real numbers where the
// library has integers.
int hueOfColour(double r, double g, double b) {
  const double highest = std::max({r, g, b}), d = highest - std::min({r, g, b});
  if (d == 0) return 0;
  double hue = std::trunc((b - r) * 60 / d) + 120;
  if (g != highest) hue = std::trunc((r - g) * 60 / d) + 240;
  if (r == highest) hue = std::trunc((g - b) * 60 / d);
  return static_cast<int>(hue < 0 ? hue + 360 : hue);
}

double unroundedFactor(int hue, int keyHue, int spill) {
  const double pi = std::atan(1.0) * 4, degrees = hue - keyHue + 90;
  const double sine = static_cast<double>(std::sin(static_cast<long double>(degrees * pi / 180)));
  const double v = sine * 1.5 - std::abs(spill - 100.0) * 1.5 / 100;
  return v <= 0 ? 16384 : v >= 1 ? 0 : (1 - v) * 16384 + 0.5;
}

struct Model {
  Settings s;
  int low, high;
  int factors[360];

  explicit Model(const Settings& settings) : s(settings) {
    low = (s.low * s.low * 195075 + 5000) / 10000;
    high = (s.high * s.high * 195075 + 5000) / 10000;
    const int keyHue = hueOfColour(s.red, s.green, s.blue);
    for (int hue = 0; hue < 360; ++hue) {
      factors[hue] = static_cast<int>(unroundedFactor(hue, keyHue, s.spill));
    }
  }

  uint8_t operator()(uint8_t* p) const {
    const double b = p[0], g = p[1], r = p[2];
    const auto d2 = static_cast<int>(std::pow(r - s.red, 2) + std::pow(g - s.green, 2) +
                                     std::pow(b - s.blue, 2));
    if (d2 <= low) return 0;
    const int alpha = d2 < high ? static_cast<int>((d2 - low) * 255. / (high - low)) : 255;
    if (alpha > 0) takeOutSpill(p, r, g, b);
    return static_cast<uint8_t>(alpha);
  }

  void takeOutSpill(uint8_t* p, double r, double g, double b) const {
    const double highest = std::max({r, g, b}), lowest = std::min({r, g, b});
    const double sum = highest + lowest, d = highest - lowest, light = std::floor(sum / 2);
    const int hue = hueOfColour(r, g, b);
    const int factor = factors[hue];
    if (factor >= 16384) return;
    const double saturation = d == 0 ? 0 : std::floor(d * 255 / (light > 128 ? 510 - sum : sum));
    const double kept = std::floor(factor * saturation / 16384);
    const double share = std::floor(kept * light / 255);
    const double u = light > 128 ? kept - share : share;
    // Each channel falls from 60 to 120 degrees away from its pure hue.
    for (int c = 0; c < 3; ++c) {
      const int apart = std::abs(hue - 120 * (2 - c));
      const double w = std::clamp(120 - std::min(apart, 360 - apart), 0, 60);
      p[c] = static_cast<uint8_t>(light - u + std::floor(2 * u * w / 60));
    }
  }
};

// The image's bytes and the mask's.
void applyModel(const Settings& s, Bytes& mask, Bytes& image, int width, int height) {
  const Model model(s);
  const size_t maskStride = mask.size() / static_cast<size_t>(height);
  const size_t stride = image.size() / static_cast<size_t>(height);
  for (size_t y = 0; y < static_cast<size_t>(height); ++y) {
    for (size_t x = 0; x < static_cast<size_t>(width); ++x) {
      mask[y * maskStride + x] = model(&image[y * stride + 3 * x]);
    }
  }
}

Check modelCheck(int width, int height, const Settings& s, uint64_t seed) {
  return twoImageCheck(
      {width, height, 8}, {width, height}, seed, describe(s),
      [=](Bytes& mask, Bytes& image) { applyModel(s, mask, image, width, height); },
      [=](TestImage& mask, TestImage& image) { key(mask, image, s); });
}

const Settings keys[] = {
    {0, 177, 64, 15, 35, 100},     {0, 0, 255, 0, 60, 70},         {255, 0, 0, 5, 5, 150},
    {128, 128, 128, 10, 100, 100}, {230, 12, 200, 50, 20, 0},      {255, 255, 0, 20, 21, 199},
    {255, 255, 255, 0, 0, 100},    {9, 200, 9, 10, 60, INT32_MIN}, {9, 200, 9, 10, 60, 205}};

TEST(ColourKey, KeysAndTakesOutSpillAsWorkedByHand) {
  // low = 0.01 * 195075 + 0.5 = 1951, high = 0.09 * 195075 + 0.5 = 17557.
  TestImage mask(4, 1, 8), image(4, 1);
  image.assign({64, 177, 0,     // the key
                64, 177, 100,   // d2 = 10000: (10000 - 1951) * 255 / 15606 = 131
                200, 100, 200,  // far, hue 300
                80, 180, 80});  // d2 = 6665: 77; hue 120
  key(mask, image, {0, 177, 64, 10, 30, 100});
  EXPECT_EQ(mask.bytes(), (std::vector<uint8_t>{0, 131, 255, 77}));
  const std::vector<uint8_t> result = image.bytes();
  EXPECT_EQ(std::vector(result.begin(), result.begin() + 3), (std::vector<uint8_t>{64, 177, 0}));
  EXPECT_EQ(std::vector(result.begin() + 6, result.begin() + 9),
            (std::vector<uint8_t>{200, 100, 200}));
  // Key hue (64 - 0) * 60 / 177 + 120 = 141. At hue 120: sin(69 degrees) * 1.5 = 1.40, factor 0, so
  // the pixel turns to its lightness of 260 / 2.
  EXPECT_EQ(std::vector(result.begin() + 9, result.end()), (std::vector<uint8_t>{130, 130, 130}));
}

TEST(ColourKey, FollowsItsFormulasAtEveryLevelAndTeamSize) {
  std::vector<Check> small, large;
  for (int width = 1; width <= 50; ++width) {
    small.push_back(modelCheck(width, width % 4 + 1, keys[width % std::size(keys)], width));
  }
  forEachLevel(small);
  for (const Settings& s : keys) large.push_back(modelCheck(205, 39, s, large.size()));
  Random random(1);
  for (int i = 0; i < 40; ++i) {
    large.push_back(modelCheck(67, 3,
                               {random.range(0, 255), random.range(0, 255), random.range(0, 255),
                                random.range(0, 60), random.range(0, 100), random.range(0, 200)},
                               large.size()));
  }
  forEachLevelAndTeam(large);
}

TEST(ColourKey, GivesTheSameBytesForEveryColour) {
  initialise();
  const InstructionSet best = availableLevels().back();
  for (const Settings& s : {keys[0], keys[4], Settings{200, 30, 10, 0, 40, 130}}) {
    const ColourKey plan = makeColourKey({s.red, s.green, s.blue}, {s.low, s.high}, s.spill);
    ASSERT_TRUE(plan.isPlain);
    std::vector<uint8_t> row(3 * 65536), masks[2] = {std::vector<uint8_t>(65536), {}};
    masks[1] = masks[0];
    for (int red = 0; red < 256; ++red) {
      for (size_t i = 0; i < 65536; ++i) {
        row[3 * i] = static_cast<uint8_t>(i);
        row[3 * i + 1] = static_cast<uint8_t>(i >> 8);
        row[3 * i + 2] = static_cast<uint8_t>(red);
      }
      std::vector<uint8_t> vector = row;
      colourKeyKernels(InstructionSet::scalar).row(masks[0].data(), row.data(), 65536, plan);
      colourKeyKernels(best).row(masks[1].data(), vector.data(), 65536, plan);
      ASSERT_EQ(masks[0], masks[1]) << describe(s) << " " << red;
      ASSERT_EQ(row, vector) << describe(s) << " " << red;
    }
  }
}

TEST(ColourKey, RampsExactlyBetweenAllTolerances) {
  for (const InstructionSet level : {InstructionSet::scalar, InstructionSet::avx2}) {
    atLevel(level, [] {
      TestImage mask(256, 1, 8), image(256, 1);
      for (int x = 0; x < 256; ++x) std::fill_n(image.bits() + 3 * x, 3, static_cast<uint8_t>(x));
      for (int low = 0; low <= 100; ++low) {
        for (int high = 0; high <= 100; ++high) {
          const Settings s = {0, 0, 0, low, high, 0};
          Bytes expectedMask = mask.bytes(), expectedImage = image.bytes();
          applyModel(s, expectedMask, expectedImage, 256, 1);
          key(mask, image, s);
          ASSERT_EQ(expectedMask, mask.bytes()) << describe(s);
        }
      }
    });
  }
}

TEST(HueSpillTable, IsThatOfAnExactSineForEveryHueAndStrength) {
  double nearest = 1;
  for (int keyHue = 0; keyHue < 360; ++keyHue) {
    // Strengths above 100 repeat those below.
    for (int spill = 0; spill <= 101; ++spill) {
      const HueSpillTable table = hueSpillTable(keyHue, spill);
      for (int hue = 0; hue < 360; ++hue) {
        const double wanted = unroundedFactor(hue, keyHue, spill);
        ASSERT_EQ(table.factors[hue], static_cast<int>(wanted)) << keyHue << " " << spill;
        const double rest = std::abs(wanted - std::round(wanted));
        if (wanted != 0 && wanted != 16384) nearest = std::min(nearest, rest);
      }
      SpillRamp ramp;
      ASSERT_TRUE(makeSpillRamp(table, keyHue, ramp)) << keyHue << " " << spill;
    }
  }
  // No entry is so near to a step that another platform's sine could move it.
  EXPECT_GT(nearest, 1e-9);
}

TEST(ColourKey, WrapsWhatDoesNotFit) {
  forEachLevelAndTeam([] {
    const auto maskOf = [](int32_t red, int32_t low, int32_t high) {
      TestImage mask(20, 1, 8), image(20, 1);
      image.fill(0);
      key(mask, image, {red, 0, 0, low, high, 0});
      return int{mask.bits()[0]};
    };
    // 65536^2 wraps to 0.
    EXPECT_EQ(maskOf(65536, 0, 50), 0);
    EXPECT_EQ(maskOf(1, 65536, 50), 0);
    // 46341^2 wraps to -2147479015, whose threshold has no 32 bits: -2^31. The range is then
    // 195075 + 2^31 wrapped, and (0 + 2^31) * 255 wrapped is -2^31.
    EXPECT_EQ(maskOf(0, 46341, 0), 255);
    EXPECT_EQ(maskOf(0, 46341, 100), 1);
    // Tolerances above 100 stretch the ramp: high = 780300, d2 = 10000.
    EXPECT_EQ(maskOf(100, 0, 200), 10000 * 255 / 780300);
    EXPECT_EQ(maskOf(INT32_MIN, 10, 50), 0);
  });
}

TEST(ColourKey, WalksRowsByTheirSignedStrides) {
  constexpr int width = 37, height = 5;
  const Settings s = keys[0];
  const Model model(s);
  for (const auto& [maskStride, imageStride] :
       {std::pair{-40, -120}, {40, 120}, {0, 120}, {20, 60}, {-3, 0}, {37, -111}}) {
    forEachLevelAndTeam([&, m = maskStride, i = imageStride] {
      TestImage mask(200, 6, 8), image(200, 6);
      image.fillRandom(3);
      const auto first = [&](int stride) { return stride < 0 ? -stride * (height - 1) : 0; };
      std::vector<uint8_t> expectedMask = mask.bytes(), expectedImage = image.bytes();
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          expectedMask[static_cast<size_t>(first(m) + y * m + x)] =
              model(&expectedImage[static_cast<size_t>(first(i) + y * i + 3 * x)]);
        }
      }
      KVL_CalcAlphaBmpForMix_ColorBox(mask.bits() + first(m), m, image.bits() + first(i), i, width,
                                      height, s.red, s.green, s.blue, s.low, s.high, 100);
      expectBytes(expectedMask, mask, text(m, " ", i));
      expectBytes(expectedImage, image, text(m, " ", i));
    });
  }
}

TEST(ColourKey, ChangesNothingForABadCall) {
  initialise();
  TestImage mask(20, 20, 8), image(20, 20);
  BadCalls calls(KVL_CalcAlphaBmpForMix_ColorBox, mask.bits(), 20, image.bits(), 60, 20, 20, 0, 255,
                 0, 10, 20, 100);
  calls.watch(mask, image.fillRandom(4)).eachNull();
  calls.with<4>({0, -1, INT32_MIN});
  calls.with<5>({0, -1, INT32_MIN});
  const auto withStrides = [&](int32_t maskStride, int32_t imageStride) {
    calls.call(
        {mask.bits(), maskStride, image.bits(), imageStride, 20, INT32_MAX, 0, 255, 0, 10, 20, 100},
        "strides");
  };
  withStrides(INT32_MIN, 60);
  withStrides(20, INT32_MIN);
}

}  // namespace
}  // namespace kvl::test
