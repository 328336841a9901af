#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "convert/yuv_to_rgb_kernels.h"
#include "core/initialise.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::firstDifference;
using test::GuardAt;
using test::GuardedMemory;
using test::Random;

constexpr auto invalidArgument = static_cast<int32_t>(0x80070057);
constexpr auto notImplemented = static_cast<int32_t>(0x80004001);

// Where the samples of a pixel lie: its luma at y0 + x * yStep, its chroma at u0 and v0 and, for
// every `across` pixels, cStep further.
struct Layout {
  const char* name;
  const GUID* guid;
  bool packed;
  int64_t y0, yStep, u0, v0, cStep;  // packed
  int across, down;                  // pixels and rows that share a sample
  bool vFirst, pairs;                // planar
};

const Layout layouts[] = {
    {"YUY2", &KVL_SUBTYPE_YUY2, true, 0, 2, 1, 3, 4, 2, 1, false, false},
    {"UYVY", &KVL_SUBTYPE_UYVY, true, 1, 2, 0, 2, 4, 2, 1, false, false},
    {"YVYU", &KVL_SUBTYPE_YVYU, true, 0, 2, 3, 1, 4, 2, 1, false, false},
    {"YV12", &KVL_SUBTYPE_YV12, false, 0, 1, 0, 0, 1, 2, 2, true, false},
    {"IYUV", &KVL_SUBTYPE_IYUV, false, 0, 1, 0, 0, 1, 2, 2, false, false},
    {"I420", &KVL_SUBTYPE_I420, false, 0, 1, 0, 0, 1, 2, 2, false, false},
    {"NV12", &KVL_SUBTYPE_NV12, false, 0, 1, 0, 0, 2, 2, 2, false, true},
    {"YV16", &KVL_SUBTYPE_YV16, false, 0, 1, 0, 0, 1, 2, 1, true, false},
    {"YV24", &KVL_SUBTYPE_YV24, false, 0, 1, 0, 0, 1, 1, 1, true, false},
};

// A frame's strides and the offsets of its three first samples.
struct Frame {
  int64_t y, u, v, yStride, cStride, bytes;
};

Frame frameOf(const Layout& layout, SIZE size, int32_t stride) {
  const int64_t even = (int64_t{size.cx} + 1) / 2 * 2, rows = size.cy;
  if (layout.packed) {
    const int64_t distance = stride > 0 ? stride : 2 * even;
    return {layout.y0, layout.u0, layout.v0, distance, distance, distance * rows};
  }
  const int64_t chromaRows = (rows + layout.down - 1) / layout.down;
  const int64_t cStride = layout.pairs ? even : even / layout.across;
  const int64_t first = even * rows,
                second = layout.pairs ? first + 1 : first + cStride * chromaRows;
  const int64_t bytes = layout.pairs ? first + cStride * chromaRows : second + cStride * chromaRows;
  return layout.vFirst ? Frame{0, second, first, even, cStride, bytes}
                       : Frame{0, first, second, even, cStride, bytes};
}

int saturate(int sum) {
  return std::min(std::max(sum, -32768), 32767);
}

int product(int sample, int factor) {
  return static_cast<int>(std::floor((sample * std::max(factor, -32767) + 64) / 128.0));
}

int chroma(int sample, int centre) {
  const int difference = (sample - centre) & 255;
  return difference < 128 ? difference : difference - 256;
}

uint8_t clampByte(int sum) {
  return static_cast<uint8_t>(std::min(std::max(sum >> 6, 0), 255));
}

void modelPixel(const ColorConversionParams& p, int y, int u, int v, uint8_t* out) {
  const int luma = saturate(product(y - 128, p.lumaFactor) + p.lumaBias);
  u = chroma(u, p.uCentre);
  v = chroma(v, p.vCentre);
  out[0] = clampByte(saturate(luma + product(u, p.blueFromU)));
  out[1] =
      clampByte(saturate(luma + saturate(product(u, p.greenFromU) + product(v, p.greenFromV))));
  out[2] = clampByte(saturate(luma + product(v, p.redFromV)));
}

ColorConversionParams filled(int32_t matrix, int32_t range) {
  ColorConversionParams params;
  std::memset(&params, 0xCD, sizeof params);
  EXPECT_EQ(KVL_FillColorConversionParams(&params, matrix, range), 0);
  return params;
}

struct Case {
  const Layout& layout;
  SIZE size;
  int32_t fromStride, toStride;
};

void expectModel(const Case& c, const ColorConversionParams& params, uint64_t seed) {
  const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
  const Frame frame = frameOf(c.layout, c.size, c.fromStride);
  const int64_t distance =
      c.toStride == 0 ? (3 * c.size.cx + 3) / 4 * 4 : std::abs(int64_t{c.toStride});
  GuardedMemory source(static_cast<size_t>(frame.bytes), guard);
  GuardedMemory result(static_cast<size_t>(distance * c.size.cy), guard);
  Random random(seed);
  for (size_t i = 0; i < source.size(); ++i) {
    const uint32_t kind = random.next() % 8;
    source.data()[i] = kind == 0 ? 0 : kind == 1 ? 255 : static_cast<uint8_t>(random.next());
  }
  std::vector<uint8_t> expected(result.size(), 0xCD);
  std::copy(expected.begin(), expected.end(), result.data());
  const uint8_t* from = source.data();
  for (int64_t y = 0; y < c.size.cy; ++y) {
    for (int64_t x = 0; x < c.size.cx; ++x) {
      const int64_t at = y / c.layout.down * frame.cStride + x / c.layout.across * c.layout.cStep;
      const int64_t row = c.toStride < 0 ? y : c.size.cy - 1 - y;
      modelPixel(params, from[frame.y + y * frame.yStride + x * c.layout.yStep], from[frame.u + at],
                 from[frame.v + at], &expected[static_cast<size_t>(row * distance + 3 * x)]);
    }
  }
  ASSERT_EQ(KVL_ConvertYUVToRgb24(c.layout.guid, source.data(), c.fromStride, c.size, result.data(),
                                  c.toStride, &params),
            0);
  const std::vector<uint8_t> actual(result.data(), result.data() + result.size());
  ASSERT_EQ(firstDifference(expected, actual, static_cast<size_t>(distance)), "")
      << c.layout.name << " " << c.size.cx << " x " << c.size.cy << ", strides " << c.fromStride
      << " and " << c.toStride;
}

TEST(ConvertYuvToRgb24, FollowsTheModelForSmallSizesOfEveryLayout) {
  test::forEachLevelAndTeam([] {
    Random random(11);
    for (const Layout& layout : layouts) {
      for (int32_t width = 1; width <= 70; ++width) {
        const SIZE size = {width, random.range(1, 9)};
        const int32_t packed = (width + 1) / 2 * 4;
        const int32_t fromStride =
            random.range(0, 1) == 0 ? random.range(-3, 0) : packed + random.range(0, 9);
        const int32_t toStride = random.range(-1, 1) * (3 * width + random.range(0, 9));
        ASSERT_NO_FATAL_FAILURE(expectModel({layout, size, fromStride, toStride},
                                            filled(random.range(0, 2), random.range(0, 1)),
                                            random.next()));
      }
      ASSERT_NO_FATAL_FAILURE(expectModel({layout, {1283, 37}, 0, 0}, filled(1, 0), 3));
      ASSERT_NO_FATAL_FAILURE(expectModel({layout, {768, 64}, 0, -2304}, filled(0, 1), 4));
    }
  });
}

TEST(ConvertYuvToRgb24, FollowsTheFormulaForAnyBlock) {
  test::forEachLevelAndTeam([] {
    Random random(13);
    for (int round = 0; round < 200; ++round) {
      ColorConversionParams params = filled(0, 0);
      for (int16_t* field : {&params.lumaFactor, &params.redFromV, &params.greenFromU,
                             &params.greenFromV, &params.blueFromU, &params.lumaBias}) {
        const int kind = random.range(0, 9);
        *field = static_cast<int16_t>(kind == 0   ? INT16_MIN
                                      : kind == 1 ? INT16_MAX
                                                  : random.range(INT16_MIN, INT16_MAX));
      }
      if (params.lumaFactor == 0) params.lumaFactor = 1;
      params.uCentre = static_cast<uint8_t>(random.range(0, 255));
      params.vCentre = static_cast<uint8_t>(random.range(0, 255));
      const Layout& layout = layouts[round % std::size(layouts)];
      ASSERT_NO_FATAL_FAILURE(
          expectModel({layout, {random.range(1, 150), 2}, 0, 0}, params, random.next()));
    }
  });
}

TEST(ConvertYuvToRgb24, GivesTheColoursWorkedByHand) {
  initialise();
  struct Colour {
    std::vector<uint8_t> yuv, bgr;
  };
  const auto check = [](int32_t matrix, int32_t range, const std::vector<Colour>& colours) {
    const ColorConversionParams params = filled(matrix, range);
    for (const Colour& c : colours) {
      std::vector<uint8_t> result(4, 0xCD);
      // YV24 of 1 x 1 has planes of two bytes: Y, V, U.
      const std::vector<uint8_t> frame = {c.yuv[0], 0, c.yuv[2], 0, c.yuv[1], 0};
      ASSERT_EQ(KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_YV24, frame.data(), 0, {1, 1}, result.data(), 0,
                                      &params),
                0);
      EXPECT_EQ(result, (std::vector<uint8_t>{c.bgr[0], c.bgr[1], c.bgr[2], 0xCD}))
          << matrix << range << int{c.yuv[0]};
    }
  };
  // Black, white, mid grey; the colour bars' red and blue, whose components are 0 and 255 within 1.
  check(KVL_MATRIX_BT601, KVL_RANGE_STUDIO,
        {{{16, 128, 128}, {0, 0, 0}},
         {{235, 128, 128}, {255, 255, 255}},
         {{126, 128, 128}, {128, 128, 128}},
         {{81, 90, 240}, {0, 0, 254}},
         {{41, 240, 110}, {255, 0, 0}}});
  check(KVL_MATRIX_BT709, KVL_RANGE_FULL,
        {{{0, 128, 128}, {0, 0, 0}},
         {{255, 128, 128}, {255, 255, 255}},
         {{77, 128, 128}, {77, 77, 77}},
         {{54, 99, 255}, {0, 0, 254}},
         {{18, 255, 116}, {254, 0, 0}}});
}

TEST(ConvertYuvToRgb24, StoresRowsBottomUpAndTopDown) {
  initialise();
  const ColorConversionParams params = filled(KVL_MATRIX_BT601, KVL_RANGE_FULL);
  // YUY2, two rows of two grey pixels.
  const std::vector<uint8_t> frame = {10, 128, 20, 128, 30, 128, 40, 128};
  const auto convert = [&](int32_t stride) {
    std::vector<uint8_t> result(16, 0xCD);
    EXPECT_EQ(KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_YUY2, frame.data(), 0, {2, 2}, result.data(),
                                    stride, &params),
              0);
    return result;
  };
  EXPECT_EQ(convert(0), (std::vector<uint8_t>{30, 30, 30, 40, 40, 40, 0xCD, 0xCD,  //
                                              10, 10, 10, 20, 20, 20, 0xCD, 0xCD}));
  EXPECT_EQ(convert(8), convert(0));
  EXPECT_EQ(convert(-6), (std::vector<uint8_t>{10, 10, 10, 20, 20, 20, 30, 30, 30, 40, 40, 40,  //
                                               0xCD, 0xCD, 0xCD, 0xCD}));
}

TEST(ConvertYuvToRgb24, ReadsChromaCentredOnZero) {
  initialise();
  ColorConversionParams params = filled(KVL_MATRIX_BT601, KVL_RANGE_STUDIO);
  std::vector<uint8_t> centred = {90, 40, 200, 250}, onZero = centred, expected(8), actual(8);
  onZero[1] = static_cast<uint8_t>(onZero[1] - 128);
  onZero[3] = static_cast<uint8_t>(onZero[3] - 128);
  const SIZE size = {2, 1};
  KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_YUY2, centred.data(), 0, size, expected.data(), 0, &params);
  params.uCentre = params.vCentre = 0;
  KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_YUY2, onZero.data(), 0, size, actual.data(), 0, &params);
  EXPECT_EQ(expected, actual);
}

TEST(ConvertYuvToRgb24, RefusesBadCallsAndChangesNothing) {
  initialise();
  const std::vector<uint8_t> source(1024, 200), before(1024, 0xCD);
  std::vector<uint8_t> result = before;
  const ColorConversionParams params = filled(0, 0);
  const SIZE size = {5, 4};
  const uint8_t* from = source.data();
  uint8_t* to = result.data();
  const GUID* yuy2 = &KVL_SUBTYPE_YUY2;
  const auto convert = KVL_ConvertYUVToRgb24;
  EXPECT_EQ(convert(nullptr, from, 0, size, to, 0, &params), invalidArgument);
  EXPECT_EQ(convert(yuy2, nullptr, 0, size, to, 0, &params), invalidArgument);
  EXPECT_EQ(convert(yuy2, from, 0, size, nullptr, 0, &params), invalidArgument);
  EXPECT_EQ(convert(yuy2, from, 0, size, to, 0, nullptr), invalidArgument);
  EXPECT_EQ(convert(yuy2, from, 11, size, to, 0, &params), invalidArgument);
  EXPECT_EQ(convert(yuy2, from, 0, size, to, 14, &params), invalidArgument);
  EXPECT_EQ(convert(yuy2, from, 0, size, to, -14, &params), invalidArgument);
  ColorConversionParams oneWay = params;
  oneWay.lumaFactor = 0;
  EXPECT_EQ(convert(yuy2, from, 0, size, to, 0, &oneWay), invalidArgument);
  for (const Layout& layout : layouts) {
    for (const SIZE bad :
         {SIZE{0, 4}, SIZE{4, 0}, SIZE{-4, 4}, SIZE{4, INT32_MIN}, SIZE{INT32_MAX, INT32_MAX}}) {
      EXPECT_EQ(convert(layout.guid, from, 0, bad, to, 0, &params), invalidArgument);
    }
    EXPECT_EQ(convert(layout.guid, from, 0, {1, INT32_MAX}, to, INT32_MIN, &params),
              invalidArgument);
  }
  GUID other = *yuy2;
  other.Data2 = 1;
  for (const GUID* unknown :
       std::initializer_list<const GUID*>{&other, &KVL_SUBTYPE_RGB24, &KVL_SUBTYPE_RGB8}) {
    EXPECT_EQ(convert(unknown, from, 0, size, to, 0, &params), notImplemented);
  }
  EXPECT_EQ(result, before);
}

TEST(YuvToRgbKernels, EachVectorLevelReplacesEveryKernel) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  const auto all = [](InstructionSet level) {
    const YuvToRgbKernels k = yuvToRgbKernels(level);
    return std::vector{k.full, k.half, k.nv12, k.yuy2, k.uyvy, k.yvyu};
  };
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(all(InstructionSet::scalar)[i], all(InstructionSet::sse2)[i]) << i;
    EXPECT_NE(all(InstructionSet::sse2)[i], all(InstructionSet::sse41)[i]) << i;
    EXPECT_NE(all(InstructionSet::sse41)[i], all(InstructionSet::avx2)[i]) << i;
  }
}

}  // namespace
}  // namespace kvl
