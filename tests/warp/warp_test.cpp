#include <cstdlib>

#include "support/testing.h"
#include "warp/warp_host.h"
#include "warp/warp_model.h"

namespace kvl::test {
namespace {

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
  return product(rotation, view);
}

RECT rect(int32_t left, int32_t top, int32_t right, int32_t bottom) {
  return {left, top, right, bottom};
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
void expectModel(const Scene& s, ModelCall call, uint64_t seed, bool force = false) {
  const auto bits = static_cast<uint16_t>(s.channels * 8);
  TestImage source(s.width, s.sourceTopDown ? -s.height : s.height, bits, s.guard);
  TestImage destination(s.newWidth, s.destinationTopDown ? -s.newHeight : s.newHeight, bits,
                        s.guard);
  source.fillRandom(seed);
  destination.fillRandom(seed + 1);
  const std::vector<uint8_t> sourceBefore = source.bytes();
  WarpHost host(WarpHost::Failure::none, s.imageTopDown, seed % 16);
  call.weights = weightsOfLevel();
  const ModelResult expected =
      warpModel(pixelsOf(destination, s.channels), pixelsOf(source, s.channels), call);
  const std::vector<uint8_t> expectedBytes = bytesWith(destination, expected.picture);
  warp(destination, call.destinationRect, source, call.sourceRect, call.matrix, host, call.level,
       call.automatic ? 1 : 0);
  EXPECT_EQ(host.created, host.released);
  expectBytes(sourceBefore, source);
  if (expected.cut && !force) return;
  const std::string what =
      text(s.width, " x ", s.height, " to ", s.newWidth, " x ", s.newHeight, ", ", s.channels,
           " channels, level ", expected.level, ", seed ", seed);
  expectBytes(expectedBytes, destination, what);
  EXPECT_EQ(host.created, expected.level > 0) << what;
}

ModelCall wholeCall(const Scene& s, const Matrix& matrix, int level = 0, bool automatic = false) {
  return {rect(0, 0, s.newWidth, s.newHeight), rect(0, 0, s.width, s.height), matrix, level,
          automatic};
}

// One sample half a pixel right of a pixel's centre: w = 0.75 for two pixels, 192 of 256.
TEST(Warp, WeighsOneSampleAsWorkedByHand) {
  forEachLevel([] {
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
  const Matrix centre = shift(-width / 2, -height / 2), home = shift(width / 2 + 3, height / 2 + 2);
  const auto about = [&](const Matrix& m) { return product(product(centre, m), home); };
  return {
      identity,
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
  forEverySmallSize(2, [](const SmallSize& s) {
    Scene scene{s.width, s.height, s.width + 7, s.height + 6};
    scene.channels = std::array{1, 3, 4}[s.seed % 3];
    scene.guard = s.guard;
    scene.sourceTopDown = s.seed % 5 < 2;
    scene.destinationTopDown = s.seed % 7 < 3;
    scene.imageTopDown = s.seed % 11 < 5;
    const std::vector<Matrix> matrices = someMatrices(s.width, s.height);
    const Matrix& matrix = matrices[s.seed % matrices.size()];
    expectModel(scene, wholeCall(scene, matrix, static_cast<int>(s.seed / 8 % 4)), s.seed);
  });
}

TEST(Warp, FollowsTheDefinitionAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    for (const int channels : {1, 3, 4}) {
      Scene scene{83, 47, 90, 60, channels};
      for (const Matrix& matrix : someMatrices(83, 47)) {
        expectModel(scene, wholeCall(scene, matrix), 5);
        expectModel(scene, wholeCall(scene, matrix, 1), 6);
      }
    }
    Scene enlarged{14, 11, 200, 171, 3};
    const Matrix matrix = product(product(scale(12.5, 13.1), perspective(0.0004, 0)), shift(6, 8));
    expectModel(enlarged, wholeCall(enlarged, matrix, 0, true), 7);
    expectModel(enlarged, wholeCall(enlarged, matrix, 1, true), 8);
    Scene shrunk{1027, 311, 60, 40, 4};
    expectModel(shrunk, wholeCall(shrunk, product(scale(0.05, 0.11), shift(2, 2)), 0, true), 9);
    // 70,000 samples of 255 on one pixel exceed 32 bits; the sums wrap, and nothing else happens.
    Scene wrapped{400, 400, 12, 12, 1};
    expectModel(wrapped, wholeCall(wrapped, product(scale(0.004, 0.004), shift(5.2, 5.3))), 21);
  });
}

// The definition as random hosts would use it: parts of bitmaps, any map, any level.
TEST(Warp, FollowsTheDefinitionForRandomMapsOfParts) {
  forEachLevel([] {
    for (uint64_t seed = 1; seed <= 400; ++seed) {
      Random random(seed);
      const auto real = [&](double low, double high) {
        return low + (high - low) * random.range(0, 1 << 20) / double(1 << 20);
      };
      Scene scene{random.range(1, 60), random.range(1, 60), random.range(1, 70),
                  random.range(1, 70)};
      scene.channels = std::array{1, 3, 4}[random.next() % 3];
      for (bool* topDown : {&scene.sourceTopDown, &scene.destinationTopDown, &scene.imageTopDown}) {
        *topDown = random.next() % 2 != 0;
      }
      scene.guard = guardOf(seed);
      const int left = random.range(0, scene.width - 1), top = random.range(0, scene.height - 1);
      const RECT part =
          rect(left, top, random.range(left + 1, scene.width), random.range(top + 1, scene.height));
      Matrix m = shift(real(-30, 0), real(-30, 0));
      for (const Matrix& next :
           {scale(real(-2, 2), real(-2, 2)), turn(real(0, 6.3)),
            turnInSpace(real(-1, 1), real(30, 300)), shift(real(-10, 60), real(-10, 60))}) {
        m = product(m, next);
      }
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

// Where the destination shows a part of an affine picture, the same part comes out whatever the box.
TEST(Warp, DrawsTheSamePartWhereTheDestinationCutsAnAffinePicture) {
  forEachLevelAndTeam([] {
    Scene scene{90, 80, 40, 30};
    const Matrix centre = shift(-45, -40), home = shift(19.3, 15.6);
    for (const double angle : {0.0, 0.4, 1.9, 3.3, 5.0}) {
      for (const Matrix& size : {scale(1, 1), scale(-0.8, 0.9), scale(2.1, 1.9)}) {
        const Matrix m = product(product(centre, product(size, turn(angle))), home);
        expectModel(scene, wholeCall(scene, m), 31, true);
      }
    }
  });
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
  EXPECT_EQ(text(host.flags, " ", host.file, " ", host.line), "8 StretchAlgorithms 3553");
  const KvlWarpImageRequest& r = host.request;
  EXPECT_EQ(r.subtype.Data1, 0xE436EB7Au);
  EXPECT_EQ(r.height, 4 + 2 * KVL_GetNumOpenMPThreads() + 1);
  EXPECT_EQ(text(r.size, " ", r.width, " ", r.imageWidth, " ", r.paddedWidth), "64 8 8 16");
  EXPECT_EQ(r.imageHeight, r.height);
  EXPECT_EQ(r.zero8 | r.zero48, 0u);

  WarpHost upsideDown(WarpHost::Failure::none, true);
  warp(destination, rect(0, 0, 30, 30), source, rect(0, 0, 2, 1), shift(5, 5), upsideDown, 2);
  EXPECT_EQ(upsideDown.heightAfter, -4);
}

TEST(Warp, SurvivesWildMatrices) {
  forEachLevelAndTeam([] {
    const double values[] = {0,   1,     -1,   1e-300,        1e300, infinity, -infinity,
                             NAN, 0.013, 1e-9, -2147483649.0, 7.5,   1e18,     -0.5};
    for (uint64_t seed = 1; seed <= 150; ++seed) {
      Random random(seed);
      Matrix m = identity;
      for (int i = random.range(1, 5); i > 0; --i)
        m[random.next() % 16] = values[random.next() % 14];
      TestImage source(37, 29), destination(41, 33);
      WarpHost host;
      warp(destination, rect(0, 0, 41, 33), source, rect(3, 2, 17, 15), m, host,
           random.range(0, 5));
      EXPECT_EQ(host.created, host.released);
    }
    // The horizon runs through the picture: model and library agree on which samples count.
    Scene scene{40, 30, 50, 40};
    expectModel(scene, wholeCall(scene, perspective(-0.05, 0.01)), 3, true);
  });
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
  using enum WarpHost::Failure;
  for (const auto failure : {status, statusWithImage, noImage, header, bits, shortRows, fewRows}) {
    WarpHost host(failure), unasked(failure);
    EXPECT_FALSE(drawsWith(host, 1)) << static_cast<int>(failure);
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
  WarpHost host;
  const RECT all = rect(0, 0, 20, 20);
  BadCalls bad(KVL_CalcQvWarpPixel, &destination.header, destination.bits(), &all, &source.header,
               source.bits(), &all, identity.data(), &host, 1, 0);
  bad.watch(destination).eachNull();
  Matrix singular = identity;
  singular[10] = 0;
  bad.with<6>({singular.data()});
  const std::initializer_list<RECT> badRects = {rect(-1, 0, 20, 20), rect(0, -1, 20, 20),
                                                rect(5, 0, 5, 20), rect(0, 7, 20, 6),
                                                rect(INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX)};
  bad.with<2>(badRects);
  bad.with<5>(badRects);
  bad.with<5>({rect(20, 0, 40, 20), rect(0, 20, 20, INT32_MAX)});
  const std::initializer_list<BITMAPINFOHEADER> badHeaders = {
      makeHeader(0, 20),         makeHeader(-20, 20),
      makeHeader(20, 0),         makeHeader(20, INT32_MIN),
      makeHeader(INT32_MIN, 20), makeHeader(INT32_MAX, INT32_MAX),
      makeHeader(20, 20, 0),     makeHeader(INT32_MAX, INT32_MIN + 1),
      makeHeader(20, 20, 7),     makeHeader(20, 20, 16),
      makeHeader(20, 20, 24, 3), makeHeader(20, 20, 24, 0x32595559)};
  bad.with<0>(badHeaders);
  bad.with<3>(badHeaders);
  // Only the destination's pixel size decides.
  bad.with<0>({makeHeader(20, 20, 40), makeHeader(20, 20, 64), makeHeader(20, 20, 65535)});
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

}  // namespace
}  // namespace kvl::test
