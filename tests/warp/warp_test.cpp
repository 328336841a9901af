#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "core/initialise.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"
#include "warp/warp_host.h"
#include "warp/warp_kernels.h"
#include "warp/warp_model.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::Matrix;
using test::ModelCall;
using test::ModelResult;
using test::Pixels;
using test::Random;
using test::TestImage;
using test::WarpHost;
using test::Weights;

constexpr Matrix identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

Matrix shift(double x, double y) {
  return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, 0, 1};
}

Matrix scale(double x, double y) {
  return {x, 0, 0, 0, 0, y, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

Matrix turn(double radians) {
  const double c = std::cos(radians), s = std::sin(radians);
  return {c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

// x / w and y / w with w = 1 + a * x + b * y.
Matrix perspective(double a, double b) {
  return {1, 0, 0, a, 0, 1, 0, b, 0, 0, 1, 0, 0, 0, 0, 1};
}

// A plane turned about the vertical axis, seen from a distance.
Matrix turnInSpace(double radians, double distance) {
  const double c = std::cos(radians), s = std::sin(radians);
  const Matrix rotation = {c, 0, s, 0, 0, 1, 0, 0, -s, 0, c, 0, 0, 0, 0, 1};
  const Matrix view = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1 / distance, 0, 0, 0, 1};
  return test::product(rotation, view);
}

RECT rect(int32_t left, int32_t top, int32_t right, int32_t bottom) {
  RECT r;
  r.left = left;
  r.top = top;
  r.right = right;
  r.bottom = bottom;
  return r;
}

bool isBottomUp(const BITMAPINFOHEADER& header) {
  return header.biCompression == 0 && header.biHeight > 0;
}

// Row `y` from the top of the picture.
uint8_t* rowOf(const TestImage& image, int y) {
  const int height = std::abs(image.height());
  return image.row(isBottomUp(image.header) ? height - 1 - y : y);
}

Pixels pixelsOf(const TestImage& image, int channels) {
  Pixels pixels(image.width(), std::abs(image.height()), channels);
  const auto rowBytes = static_cast<size_t>(image.width()) * channels;
  for (int y = 0; y < pixels.height; ++y) {
    std::copy(rowOf(image, y), rowOf(image, y) + rowBytes, pixels.bytes.begin() + y * rowBytes);
  }
  return pixels;
}

// What the memory must hold for that picture, padding as it is.
std::vector<uint8_t> bytesWith(const TestImage& image, const Pixels& pixels) {
  std::vector<uint8_t> bytes = image.bytes();
  const auto rowBytes = static_cast<size_t>(pixels.width) * pixels.channels;
  for (int y = 0; y < pixels.height; ++y) {
    std::copy_n(pixels.bytes.begin() + y * rowBytes, rowBytes,
                bytes.begin() + (rowOf(image, y) - image.bits()));
  }
  return bytes;
}

void warp(TestImage& destination, const RECT& destinationRect, const TestImage& source,
          const RECT& sourceRect, const Matrix& matrix, WarpHost& host, int level = 0,
          uint32_t flags = 0) {
  KVL_CalcQvWarpPixel(&destination.header, destination.bits(), &destinationRect, &source.header,
                      source.bits(), &sourceRect, matrix.data(), &host, level, flags);
}

struct Scene {
  int width, height;        // of the source
  int newWidth, newHeight;  // of the destination
  int channels = 3;
  bool sourceTopDown = false, destinationTopDown = false, imageTopDown = false;
  GuardAt guard = GuardAt::end;
};

Weights weightsOfLevel() {
  return instructionSet() >= InstructionSet::ssse3 ? Weights::single : Weights::plain;
}

// Calls the library and the model. Where the model cannot tell (see ModelResult::cut) nothing is
// compared unless `force`.
void expectModel(const Scene& scene, ModelCall call, uint64_t seed, bool force = false) {
  const auto bits = static_cast<uint16_t>(scene.channels * 8);
  TestImage source(scene.width, scene.sourceTopDown ? -scene.height : scene.height, bits,
                   scene.guard);
  TestImage destination(scene.newWidth,
                        scene.destinationTopDown ? -scene.newHeight : scene.newHeight, bits,
                        scene.guard);
  source.fillRandom(seed);
  destination.fillRandom(seed + 1);
  const std::vector<uint8_t> sourceBefore = source.bytes();
  WarpHost host(WarpHost::Failure::none, scene.imageTopDown, seed % 16);
  call.weights = weightsOfLevel();
  const ModelResult expected =
      warpModel(pixelsOf(destination, scene.channels), pixelsOf(source, scene.channels), call);
  const std::vector<uint8_t> expectedBytes = bytesWith(destination, expected.picture);
  warp(destination, call.destinationRect, source, call.sourceRect, call.matrix, host, call.level,
       call.automatic ? 1 : 0);
  EXPECT_EQ(host.created, host.released);
  EXPECT_EQ(source.bytes(), sourceBefore);
  if (expected.cut && !force) return;
  const std::string what = std::to_string(scene.width) + " x " + std::to_string(scene.height) +
                           " to " + std::to_string(scene.newWidth) + " x " +
                           std::to_string(scene.newHeight) + ", " + std::to_string(scene.channels) +
                           " channels, level " + std::to_string(expected.level) + ", seed " +
                           std::to_string(seed);
  ASSERT_EQ(firstDifference(expectedBytes, destination.bytes(), destination.stride(),
                            static_cast<size_t>(scene.channels)),
            "")
      << what;
  ASSERT_EQ(host.created, expected.level > 0) << what;
}

ModelCall wholeCall(const Scene& s, const Matrix& matrix, int level = 0, bool automatic = false) {
  return {rect(0, 0, s.newWidth, s.newHeight), rect(0, 0, s.width, s.height), matrix, level,
          automatic};
}

// (1 - 0.75) * 256 / 0.75 = 85.3 and (1 - 0.5625) * 256 / 0.5625 = 199.1.
uint8_t blended(int value, int own, int keep) {
  const int total = 256 + keep;
  return static_cast<uint8_t>((256 * value + keep * own + total / 2) / total);
}

TEST(Warp, ReproducesThePictureByTheIdentityExceptAtItsRim) {
  test::forEachLevelAndTeam([] {
    TestImage source(100, 100), destination(100, 100);
    source.fillRandom(1);
    destination.fillRandom(2);
    const Pixels before = pixelsOf(destination, 3), wanted = pixelsOf(source, 3);
    WarpHost host;
    const RECT all = rect(0, 0, 100, 100);
    warp(destination, all, source, all, identity, host);
    const Pixels after = pixelsOf(destination, 3);
    for (int y = 0; y < 100; ++y) {
      for (int x = 0; x < 100; ++x) {
        for (int c = 0; c < 3; ++c) {
          const int value = wanted.at(x, y, c), own = before.at(x, y, c);
          const int rims = (x == 99) + (y == 99);
          const int expected = x == 0 || y == 0 ? own
                               : rims == 0      ? value
                               : rims == 1      ? blended(value, own, 85)
                                                : blended(value, own, 199);
          ASSERT_EQ(after.at(x, y, c), expected) << x << " " << y;
        }
      }
    }
    EXPECT_EQ(host.created, 0);
  });
}

// One sample half a pixel right of a pixel's centre: w = 0.75 for two pixels, 192 of 256.
TEST(Warp, WeighsOneSampleAsWorkedByHand) {
  test::forEachLevelAndTeam([] {
    TestImage source(3, 3, 8), destination(12, 12, 8);
    source.fill(200);
    destination.fill(100);
    WarpHost host;
    warp(destination, rect(0, 0, 12, 12), source, rect(1, 1, 2, 2), shift(4.5, 4), host);
    const Pixels after = pixelsOf(destination, 1);
    for (int y = 0; y < 12; ++y) {
      for (int x = 0; x < 12; ++x) {
        const bool reached = y == 5 && (x == 5 || x == 6);
        const int share = 4;  // the box is 1 of the 2 x 2 source pixels around either
        const int keep = (share - 1) * 192, total = share * 192;
        ASSERT_EQ(after.at(x, y, 0), reached ? (200 * 192 + 100 * keep + total / 2) / total : 100)
            << x << " " << y;
      }
    }
  });
}

std::vector<Matrix> someMatrices(double width, double height) {
  using test::product;
  const Matrix centre = shift(-width / 2, -height / 2), home = shift(width / 2 + 3, height / 2 + 2);
  const auto about = [&](const Matrix& m) { return product(product(centre, m), home); };
  return {
      shift(2.3, 3.7),
      about(turn(0.3)),
      about(turn(1.5707963267948966)),
      about(product(turn(2.5), scale(0.7, 1.1))),
      about(scale(-0.9, 0.9)),
      about(product(scale(0.8, 0.8), perspective(0.004, 0.002))),
      about(product(scale(0.9, 0.9), turnInSpace(0.7, 150))),
      product(scale(0.23, 0.31), shift(4.1, 4.2)),
  };
}

TEST(Warp, FollowsTheDefinitionForEverySmallSize) {
  initialise();
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] {
      uint64_t seed = 1;
      for (int width = 1; width <= 33; ++width) {
        for (int height = 1; height <= 33; height += 2 + width % 5) {
          Scene scene{width, height, width + 7, height + 6};
          scene.channels = std::array{1, 3, 4}[seed % 3];
          scene.guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
          scene.sourceTopDown = seed % 5 < 2;
          scene.destinationTopDown = seed % 7 < 3;
          scene.imageTopDown = seed % 11 < 5;
          const std::vector<Matrix> matrices = someMatrices(width, height);
          const Matrix& matrix = matrices[seed % matrices.size()];
          expectModel(scene, wholeCall(scene, matrix, static_cast<int>(seed / 8 % 4)), seed);
          ++seed;
        }
      }
    });
  }
}

TEST(Warp, FollowsTheDefinitionAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    for (const int channels : {1, 3, 4}) {
      Scene scene{83, 47, 90, 60, channels};
      for (const Matrix& matrix : someMatrices(83, 47)) {
        expectModel(scene, wholeCall(scene, matrix), 5);
        expectModel(scene, wholeCall(scene, matrix, 1), 6);
      }
    }
    Scene enlarged{14, 11, 200, 171, 3};
    const Matrix matrix =
        test::product(test::product(scale(12.5, 13.1), perspective(0.0004, 0)), shift(6, 8));
    expectModel(enlarged, wholeCall(enlarged, matrix, 0, true), 7);
    expectModel(enlarged, wholeCall(enlarged, matrix, 1, true), 8);
    Scene shrunk{1027, 311, 60, 40, 4};
    expectModel(shrunk, wholeCall(shrunk, test::product(scale(0.05, 0.11), shift(2, 2)), 0, true),
                9);
  });
}

// The definition as random hosts would use it: parts of bitmaps, any map, any level.
TEST(Warp, FollowsTheDefinitionForRandomMapsOfParts) {
  initialise();
  for (const InstructionSet level :
       {InstructionSet::scalar, InstructionSet::ssse3, InstructionSet::avx2}) {
    test::atLevel(level, [] {
      for (uint64_t seed = 1; seed <= 400; ++seed) {
        Random random(seed);
        const auto real = [&](double low, double high) {
          return low + (high - low) * random.range(0, 1 << 20) / double(1 << 20);
        };
        Scene scene{random.range(1, 60), random.range(1, 60), random.range(1, 70),
                    random.range(1, 70)};
        scene.channels = std::array{1, 3, 4}[random.next() % 3];
        scene.sourceTopDown = random.next() % 2 != 0;
        scene.destinationTopDown = random.next() % 2 != 0;
        scene.imageTopDown = random.next() % 2 != 0;
        scene.guard = random.next() % 2 != 0 ? GuardAt::end : GuardAt::start;
        const RECT part = [&] {
          const int left = random.range(0, scene.width - 1),
                    top = random.range(0, scene.height - 1);
          return rect(left, top, random.range(left + 1, scene.width),
                      random.range(top + 1, scene.height));
        }();
        Matrix m = identity;
        m = test::product(m, shift(real(-30, 0), real(-30, 0)));
        m = test::product(m, scale(real(-2, 2), real(-2, 2)));
        m = test::product(m, turn(real(0, 6.3)));
        m = test::product(m, turnInSpace(real(-1, 1), real(30, 300)));
        m = test::product(m, shift(real(-10, 60), real(-10, 60)));
        // Also maps whose w is negative, or changes its sign within the picture.
        const double sign = random.next() % 4 == 0 ? -3 : 1;
        for (double& v : m) v *= sign;
        if (random.next() % 8 == 0) m[3] += real(-0.1, 0.1);
        expectModel(scene,
                    {rect(0, 0, scene.newWidth, scene.newHeight), part, m, random.range(-2, 3),
                     random.next() % 4 == 0},
                    seed);
      }
    });
  }
}

// Where the destination shows a part of an affine picture, the same part comes out whatever the box.
TEST(Warp, DrawsTheSamePartWhereTheDestinationCutsAnAffinePicture) {
  test::forEachLevelAndTeam([] {
    Scene scene{90, 80, 40, 30};
    const Matrix centre = shift(-45, -40), home = shift(19.3, 15.6);
    for (const double angle : {0.0, 0.4, 1.9, 3.3, 5.0}) {
      for (const Matrix& size : {scale(1, 1), scale(-0.8, 0.9), scale(2.1, 1.9)}) {
        const Matrix m =
            test::product(test::product(centre, test::product(size, turn(angle))), home);
        expectModel(scene, wholeCall(scene, m), 31, true);
      }
    }
  });
}

TEST(Warp, KeepsThePictureUprightHoweverImagesAreStored) {
  initialise();
  const Scene base{23, 17, 31, 29};
  for (int bits = 0; bits < 8; ++bits) {
    Scene scene = base;
    scene.sourceTopDown = (bits & 1) != 0;
    scene.destinationTopDown = (bits & 2) != 0;
    scene.imageTopDown = (bits & 4) != 0;
    for (const int level : {0, 1, 3}) {
      expectModel(scene, wholeCall(scene, shift(3.25, 4.5), level), 12);
    }
  }
}

TEST(Warp, EnlargesIntoTheHostsImage) {
  initialise();
  TestImage source(2, 1, 8), destination(30, 30, 8);
  source.row(0)[0] = 0;
  source.row(0)[1] = 255;
  WarpHost host;
  warp(destination, rect(0, 0, 30, 30), source, rect(0, 0, 2, 1), shift(5, 5), host, 2);
  // 255 * (k + 0.5) / 4 and rounded; two copies at either end; one row becomes four.
  const std::vector<uint8_t> row = {0, 0, 32, 96, 159, 223, 255, 255};
  ASSERT_GE(host.rows.size(), 32u);
  for (size_t i = 0; i < 32; ++i) EXPECT_EQ(host.rows[i], row[i % 8]) << i;
  EXPECT_EQ(host.heightAfter, 4);
  EXPECT_EQ(host.flags, 8);
  EXPECT_EQ(host.line, 3553);
  EXPECT_EQ(host.file, "StretchAlgorithms");
  const KvlWarpImageRequest& r = host.request;
  EXPECT_EQ(r.size, 64u);
  EXPECT_EQ(r.subtype.Data1, 0xE436EB7Au);
  EXPECT_EQ(r.width, 8);
  EXPECT_EQ(r.height, 4 + 2 * KVL_GetNumOpenMPThreads() + 1);
  EXPECT_EQ(r.paddedWidth, 16);
  EXPECT_EQ(r.imageWidth, r.width);
  EXPECT_EQ(r.imageHeight, r.height);
  EXPECT_EQ(r.zero8 | r.zero48, 0u);

  WarpHost upsideDown(WarpHost::Failure::none, true);
  warp(destination, rect(0, 0, 30, 30), source, rect(0, 0, 2, 1), shift(5, 5), upsideDown, 2);
  EXPECT_EQ(upsideDown.heightAfter, -4);
}

// 70,000 samples of 255 on one pixel exceed 32 bits; the sums wrap, and nothing else happens.
TEST(Warp, WrapsItsSumsAtHugeMinification) {
  test::forEachLevelAndTeam([] {
    Scene scene{400, 400, 12, 12, 1};
    expectModel(scene, wholeCall(scene, test::product(scale(0.004, 0.004), shift(5.2, 5.3))), 21);
  });
}

TEST(Warp, SurvivesWildMatrices) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  test::forEachLevelAndTeam([] {
    for (uint64_t seed = 1; seed <= 150; ++seed) {
      Random random(seed);
      const double values[] = {0,   1,     -1,   1e-300,        1e300, infinity, -infinity,
                               NAN, 0.013, 1e-9, -2147483649.0, 7.5,   1e18,     -0.5};
      Matrix m = identity;
      const int changes = random.range(1, 5);
      for (int i = 0; i < changes; ++i) m[random.next() % 16] = values[random.next() % 14];
      TestImage source(37, 29), destination(41, 33);
      source.fillRandom(seed);
      WarpHost host;
      warp(destination, rect(0, 0, 41, 33), source, rect(3, 2, 17, 15), m, host,
           random.range(0, 5));
      EXPECT_EQ(host.created, host.released);
    }
  });
  // The horizon runs through the picture: model and library agree on which samples count.
  initialise();
  Scene scene{40, 30, 50, 40};
  Matrix horizon = perspective(-0.05, 0.01);
  expectModel(scene, wholeCall(scene, horizon), 3, true);
  horizon[11] = infinity;
  TestImage source(40, 30), destination(50, 40);
  const std::vector<uint8_t> before = destination.bytes();
  WarpHost host;
  warp(destination, rect(0, 0, 50, 40), source, rect(0, 0, 40, 30), horizon, host);
  EXPECT_EQ(destination.bytes(), before);
}

TEST(Warp, ReleasesTheHostsImageWhateverItLacks) {
  initialise();
  TestImage source(20, 20), destination(50, 50);
  source.fillRandom(1);
  const std::vector<uint8_t> before = destination.bytes();
  const auto drawsWith = [&](WarpHost& host, int level) {
    destination.assign(before);
    warp(destination, rect(0, 0, 50, 50), source, rect(0, 0, 20, 20), scale(2, 2), host, level);
    EXPECT_EQ(host.created, host.released);
    return destination.bytes() != before;
  };
  using Failure = WarpHost::Failure;
  for (const Failure failure :
       {Failure::status, Failure::statusWithImage, Failure::noImage, Failure::header, Failure::bits,
        Failure::shortRows, Failure::fewRows}) {
    WarpHost host(failure);
    EXPECT_FALSE(drawsWith(host, 1)) << static_cast<int>(failure);
    EXPECT_EQ(host.request.size, 64u);
    WarpHost unasked(failure);
    EXPECT_TRUE(drawsWith(unasked, 0));
  }
  WarpHost empty;
  empty.operations = nullptr;
  EXPECT_FALSE(drawsWith(empty, 1));
}

TEST(Warp, ChangesNothingForABadCall) {
  initialise();
  TestImage source(20, 20), destination(20, 20);
  source.fillRandom(1);
  destination.fillRandom(2);
  const std::vector<uint8_t> before = destination.bytes();
  WarpHost host;
  const RECT all = rect(0, 0, 20, 20);
  const auto expectUnchanged = [&](const std::string& what) {
    EXPECT_EQ(firstDifference(before, destination.bytes(), destination.stride()), "") << what;
  };
  BITMAPINFOHEADER *d = &destination.header, *s = &source.header;
  uint8_t *dBits = destination.bits(), *sBits = source.bits();
  const double* m = identity.data();
  KVL_CalcQvWarpPixel(nullptr, dBits, &all, s, sBits, &all, m, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, nullptr, &all, s, sBits, &all, m, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, dBits, nullptr, s, sBits, &all, m, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, dBits, &all, nullptr, sBits, &all, m, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, dBits, &all, s, nullptr, &all, m, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, dBits, &all, s, sBits, nullptr, m, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, dBits, &all, s, sBits, &all, nullptr, &host, 1, 0);
  KVL_CalcQvWarpPixel(d, dBits, &all, s, sBits, &all, m, nullptr, 0, 0);
  expectUnchanged("null");

  Matrix singular = identity;
  singular[10] = 0;
  warp(destination, all, source, all, singular, host);
  expectUnchanged("singular");
  for (const RECT& bad : {rect(-1, 0, 20, 20), rect(0, -1, 20, 20), rect(5, 0, 5, 20),
                          rect(0, 7, 20, 6), rect(INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX)}) {
    warp(destination, bad, source, all, identity, host);
    warp(destination, all, source, bad, identity, host);
    expectUnchanged("rectangle");
  }
  warp(destination, all, source, rect(20, 0, 40, 20), identity, host);
  warp(destination, all, source, rect(0, 20, 20, INT32_MAX), identity, host);
  expectUnchanged("rectangle outside");

  struct Change {
    int32_t width, height;
    uint16_t bits;
    uint32_t compression;
  };
  const auto expectUnchangedBy = [&](const Change& change) {
    for (BITMAPINFOHEADER* header : {d, s}) {
      const BITMAPINFOHEADER saved = *header;
      *header = test::makeHeader(change.width, change.height, change.bits, change.compression);
      warp(destination, all, source, all, identity, host);
      *header = saved;
      expectUnchanged(std::to_string(change.width) + " x " + std::to_string(change.height) + " x " +
                      std::to_string(change.bits));
    }
  };
  for (const Change& change : {Change{0, 20, 24, 0},
                               {-20, 20, 24, 0},
                               {20, 0, 24, 0},
                               {20, INT32_MIN, 24, 0},
                               {INT32_MIN, 20, 24, 0},
                               {INT32_MAX, INT32_MAX, 24, 0},
                               {INT32_MAX, INT32_MIN + 1, 24, 0},
                               {20, 20, 0, 0},
                               {20, 20, 7, 0},
                               {20, 20, 16, 0},
                               {20, 20, 24, 0x32595559},
                               {20, 20, 24, 3}}) {
    expectUnchangedBy(change);
  }
  // Only the destination's pixel size decides.
  for (const uint16_t bits : {uint16_t{40}, uint16_t{64}, uint16_t{65535}}) {
    destination.header.biBitCount = bits;
    warp(destination, all, source, all, identity, host);
    destination.header.biBitCount = 24;
    expectUnchanged("bit count");
  }
  EXPECT_EQ(host.created, host.released);
}

TEST(Warp, CutsTheSourceRectangleToTheBitmap) {
  initialise();
  TestImage source(20, 20), cut(30, 30), whole(30, 30);
  source.fillRandom(1);
  WarpHost host;
  const RECT all = rect(0, 0, 30, 30);
  warp(cut, all, source, rect(5, 6, INT32_MAX, 4000), shift(2, 3), host);
  warp(whole, all, source, rect(5, 6, 20, 20), shift(2, 3), host);
  EXPECT_EQ(cut.bytes(), whole.bytes());
}

TEST(WarpKernels, EachVectorLevelReplacesTheSplat) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  for (const int channels : {1, 3, 4}) {
    const auto splat = [&](InstructionSet level) { return warpKernels(level, channels).splatRow; };
    EXPECT_EQ(splat(InstructionSet::scalar), splat(InstructionSet::sse2));
    EXPECT_NE(splat(InstructionSet::sse2), splat(InstructionSet::ssse3));
    EXPECT_NE(splat(InstructionSet::sse41), splat(InstructionSet::avx2));
  }
}

}  // namespace
}  // namespace kvl
