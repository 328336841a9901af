#include <array>

#include "alpha/colour_shift_kernels.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

constexpr auto endless = static_cast<float>(infinity), noNumber = static_cast<float>(notANumber);

struct Shift {
  float red, green, blue;
  int32_t byRatio;
};

// Red, green and blue of one pixel through the formula of the blocks.
uint8_t storedFloat(float v) {
  if (std::isnan(v)) return 0;
  return static_cast<uint8_t>(std::nearbyint(v > 255 ? 255 : v < 0 ? 0 : v));
}

float floatLuminance(const std::array<float, 3>& v) {
  const float green = 0.587f * v[1], red = 0.299f * v[0], blue = 0.114f * v[2];
  const float sum = green + red;
  return sum + blue;
}

void floatPixel(std::array<float, 3> v, const Shift& s, uint8_t* pixel) {
  const float amounts[3] = {s.red, s.green, s.blue};
  const float before = floatLuminance(v);
  for (size_t i = 0; i < 3; ++i) {
    if (amounts[i] == 0) continue;
    const float strength = std::fabs(amounts[i]) * 0.8627451f;
    const float scale = 1.0f - strength;
    const float rest = 1.0f - scale;
    const float offset = amounts[i] > 0 ? rest * 255.0f : 0.0f;
    const float product = v[i] * scale;
    v[i] = product + offset;
  }
  const float after = floatLuminance(v);
  if (s.byRatio != 0) {
    const float ratio = before / after;
    for (float& one : v) one *= ratio;
  } else {
    v[0] += before - after;
    v[2] += before - after;
    const float withoutRed = before - 0.299f * v[0];
    v[1] = (withoutRed - 0.114f * v[2]) * 1.7035775f;
  }
  for (size_t i = 0; i < 3; ++i) pixel[2 - i] = storedFloat(v[i]);
}

// Integers that wrap, and truncation with the one result that x86 has for what does not fit.
using U = uint32_t;
int32_t asInt(U v) {
  return static_cast<int32_t>(v);
}
int32_t truncated(float v) {
  const double exact = v;
  return exact >= -2147483648.0 && exact < 2147483648.0 ? static_cast<int32_t>(exact) : INT32_MIN;
}
uint8_t storedInt(int32_t v) {
  return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

void integerPixel(std::array<int32_t, 3> v, const Shift& s, uint8_t* pixel) {
  const float amounts[3] = {s.red, s.green, s.blue};
  const auto luminance = [&] {
    return asInt(19595u * U(v[0]) + 38470u * U(v[1]) + 7471u * U(v[2]));
  };
  const int32_t before = luminance();
  for (size_t i = 0; i < 3; ++i) {
    if (amounts[i] == 0) continue;
    const float strength = std::fabs(amounts[i]) * 220.0f;
    const int32_t k = truncated(255.0f - strength);
    const int32_t bias = amounts[i] > 0 ? asInt(255u - U(k)) : 0;
    v[i] = asInt(U(asInt(U(v[i]) * U(k)) / 256) + U(bias));
  }
  const int32_t after = luminance();
  if (s.byRatio != 0) {
    const float ratio = static_cast<float>(before) / static_cast<float>(after);
    for (int32_t& one : v) one = truncated(static_cast<float>(one) * ratio);
  } else {
    const int32_t d = asInt(U(before) - U(after)) >> 16;
    v[0] = asInt(U(v[0]) + U(d));
    v[2] = asInt(U(v[2]) + U(d));
    v[1] = asInt(U(before) - 7471u * U(v[2]) - 19595u * U(v[0])) / 38470;
  }
  for (size_t i = 0; i < 3; ++i) pixel[2 - i] = storedInt(v[i]);
}

void modelRow(uint8_t* row, int width, const Shift& s) {
  const int inBlocks = instructionSet() >= InstructionSet::ssse3 ? width / 16 * 16 : 0;
  for (int x = 0; x < width; ++x) {
    uint8_t* p = row + 3 * x;
    if (x < inBlocks) {
      floatPixel({float(p[2]), float(p[1]), float(p[0])}, s, p);
    } else {
      integerPixel({p[2], p[1], p[0]}, s, p);
    }
  }
}

void shift(TestImage& image, const Shift& s) {
  KVL_ApplyRGBColorShift(&image.header, image.bits(), s.red, s.green, s.blue, s.byRatio);
}

void expectModel(TestImage& image, const Shift& s) {
  std::vector<uint8_t> expected = image.bytes();
  for (int y = 0; y < image.height(); ++y) {
    modelRow(&expected[static_cast<size_t>(y) * image.stride()], image.width(), s);
  }
  shift(image, s);
  expectBytes(expected, image,
              text(s.red, " ", s.green, " ", s.blue, s.byRatio != 0 ? " by ratio, " : ", ",
                   image.width(), " x ", image.height()));
}

const Shift shifts[] = {{-0.2f, 0, 0, 1},      {-0.2f, 0, 0, 0},    {0, 0.5f, -0.3f, 1},
                        {0, 0.5f, -0.3f, 0},   {1, 1, 1, 1},        {-1, -1, -1, 1},
                        {-1, -1, -1, 0},       {0.8f, -0.8f, 0, 0}, {0.01f, 0.3f, -1, 256},
                        {1.2f, -1.2f, 2, 1},   {1.2f, -1.2f, 2, 0}, {-3, -7, 0.5f, 1},
                        {1e8f, 0, 0, 0},       {0, -1e8f, 1, 1},    {1e30f, -1e30f, 1, 1},
                        {1e30f, -1e30f, 1, 0}, {endless, 0, 0, 1},  {-endless, 0, 1, 0},
                        {noNumber, 0, 0, 0},   {0, noNumber, 1, 1}, {-0.f, 1e-30f, 0, 1}};

TEST(ColourShift, ShiftsAsWorkedByHand) {
  // Red by -0.5: k = 255 - 110 = 145, T[200] = 200 * 145 / 256 = 113.
  // Y0 = 19595 * 200 + 38470 * 100 + 7471 * 50 = 8139550, Y1 = Y0 - 19595 * 87 = 6434785.
  // By ratio: 1.26493; 113 -> 142, 100 -> 126, 50 -> 63. By difference: 1704765 >> 16 = 26;
  // 139, 76 and (8139550 - 7471 * 76 - 19595 * 139) / 38470 = 126.
  for (const auto& [byRatio, red, green, blue] : {std::tuple{1, 142, 126, 63}, {0, 139, 126, 76}}) {
    TestImage image(1, 1);
    image.assign({50, 100, 200});
    shift(image, {-0.5f, 0, 0, byRatio});
    EXPECT_EQ(image.bits()[2], red);
    EXPECT_EQ(image.bits()[1], green);
    EXPECT_EQ(image.bits()[0], blue);
  }
}

// 255 - 0.8f * 220 is 79 in single precision and 78.99... beyond.
TEST(ColourShift, FormsItsFactorsInSinglePrecision) {
  atLevel(InstructionSet::scalar, [] {
    TestImage image(1, 1);
    image.assign({255, 0, 0});
    shift(image, {0, 0, -0.8f, 0});
    // 255 * 79 / 256 = 78; Y0 - Y1 = 7471 * 177 >> 16 = 20; blue = 98.
    EXPECT_EQ(image.bits()[0], 98);
  });
}

TEST(ColourShift, DividesByNoLuminanceWithoutATrap) {
  initialise();
  // The amount whose scale is 0: pure red turns black.
  const float toBlack = -1 / 0.8627451f;
  TestImage block(16, 1), pixel(1, 1);
  for (TestImage* image : {&block, &pixel}) {
    image->fill(0);
    for (int x = 0; x < image->width(); ++x) image->bits()[3 * x + 2] = 7;
    expectModel(*image, {toBlack, 0, 0, 1});
    EXPECT_EQ(image->bits()[2], 0);
  }
  // A red so faint that its weighted value is 0 while it is not: the ratio is infinite.
  for (const InstructionSet level : {InstructionSet::ssse3, InstructionSet::avx2}) {
    if (!test::hasLevel(level)) continue;
    block.fill(1);
    const float faintest = std::numeric_limits<float>::denorm_min();
    colourShiftKernels(level).blocks(block.bits(), 1, {{0, 0, faintest}, {0, 0, 0}, true});
    EXPECT_EQ(block.bits()[0], 0);
    EXPECT_EQ(block.bits()[2], 255);
  }
}

TEST(ColourShift, FollowsItsFormulasAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    for (int width = 1; width <= 50; ++width) {
      TestImage image(width, width % 4 + 1, 24, guardOf(width));
      expectModel(image.fillRandom(width), shifts[width % std::size(shifts)]);
    }
    for (const Shift& s : shifts) {
      TestImage noise(205, 39), colours(256, 48);
      expectModel(noise.fillRandom(1), s);
      // Each value of a byte in each component, beside every sixteenth one in the others.
      for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 256; ++x) {
          uint8_t* p = colours.row(y) + 3 * x;
          std::fill_n(p, 3, static_cast<uint8_t>(y / 3 * 17));
          p[y % 3] = static_cast<uint8_t>(x);
        }
      }
      expectModel(colours, s);
    }
  });
}

TEST(ColourShift, TakesRowsThatOverlapInTurn) {
  forEachLevelAndTeam([] {
    const Shift s = {-0.3f, 0.2f, 0, 1};
    for (const uint16_t bits : {8, 16, 32}) {
      TestImage image(40, 12, bits, GuardAt::start, 160);
      image.fillRandom(bits);
      const size_t stride = static_cast<size_t>(bits) * 5;
      std::vector<uint8_t> expected = image.bytes();
      for (size_t y = 0; y < 12; ++y) modelRow(&expected[y * stride], 40, s);
      shift(image, s);
      expectBytes(expected, image, text(bits, " bits"));
    }
  });
}

TEST(ColourShift, ChangesNothingForABadCall) {
  initialise();
  TestImage image(20, 20);
  BadCalls calls(KVL_ApplyRGBColorShift, &image.header, image.bits(), 1, 1, 1, 1);
  calls.watch(image.fillRandom(4)).eachNull();
  calls.with<0>({makeHeader(20, -20), makeHeader(20, 0), makeHeader(0, 20), makeHeader(-20, 20),
                 makeHeader(20, INT32_MIN), makeHeader(INT32_MAX, INT32_MAX), makeHeader(20, 20, 0),
                 makeHeader(20, 20, 24, 3), makeHeader(INT32_MAX, INT32_MAX, 65535)});
  calls.with<2, 3, 4>({-0.0f, 0.0f});
}

}  // namespace
}  // namespace kvl::test
