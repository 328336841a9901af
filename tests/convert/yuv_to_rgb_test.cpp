#include "support/testing.h"

namespace kvl::test {
namespace {

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
  const Frame frame = frameOf(c.layout, c.size, c.fromStride);
  const int64_t distance =
      c.toStride == 0 ? (3 * c.size.cx + 3) / 4 * 4 : std::abs(int64_t{c.toStride});
  GuardedMemory source(static_cast<size_t>(frame.bytes), guardOf(seed));
  const GuardedMemory result(static_cast<size_t>(distance * c.size.cy), guardOf(seed));
  source.fillRandom(seed);
  std::vector<uint8_t> expected = result.bytes();
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
  expectBytes(expected, result.bytes(), static_cast<size_t>(distance), 3,
              text(c.layout.name, " ", c.size.cx, " x ", c.size.cy, ", strides ", c.fromStride,
                   " and ", c.toStride));
}

// Any numbers, often the extremes; chroma centred anywhere.
ColorConversionParams anyBlock(Random& random) {
  ColorConversionParams params = filled(0, 0);
  for (int16_t* field : {&params.lumaFactor, &params.redFromV, &params.greenFromU,
                         &params.greenFromV, &params.blueFromU, &params.lumaBias}) {
    const int extremes[] = {INT16_MIN, INT16_MAX};
    const int kind = random.range(0, 9);
    *field = static_cast<int16_t>(kind < 2 ? extremes[kind] : random.range(INT16_MIN, INT16_MAX));
  }
  if (params.lumaFactor == 0) params.lumaFactor = 1;
  params.uCentre = static_cast<uint8_t>(random.range(0, 255));
  params.vCentre = static_cast<uint8_t>(random.range(0, 255));
  return params;
}

TEST(ConvertYuvToRgb24, FollowsTheModelForEveryLayoutAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(11);
    for (const Layout& layout : layouts) {
      for (int32_t width = 1; width <= 70; ++width) {
        const SIZE size = {width, random.range(1, 9)};
        const int32_t packed = (width + 1) / 2 * 4;
        const int32_t fromStride =
            random.range(0, 1) == 0 ? random.range(-3, 0) : packed + random.range(0, 9);
        const int32_t toStride = random.range(-1, 1) * (3 * width + random.range(0, 9));
        expectModel({layout, size, fromStride, toStride},
                    filled(random.range(0, 2), random.range(0, 1)), random.next());
        expectModel({layout, {random.range(1, 150), 2}, 0, 0}, anyBlock(random), random.next());
      }
      expectModel({layout, {1283, 37}, 0, 0}, filled(1, 0), 3);
      expectModel({layout, {768, 64}, 0, -2304}, filled(0, 1), 4);
    }
  });
}

// Black, white, mid grey; the colour bars' red and blue, whose components are 0 and 255 within 1.
TEST(ConvertYuvToRgb24, GivesTheColoursWorkedByHand) {
  initialise();
  struct Colour {
    int matrix, range;
    uint8_t y, u, v, b, g, r;
  };
  for (const Colour& c : {Colour{KVL_MATRIX_BT601, KVL_RANGE_STUDIO, 16, 128, 128, 0, 0, 0},
                          {KVL_MATRIX_BT601, KVL_RANGE_STUDIO, 235, 128, 128, 255, 255, 255},
                          {KVL_MATRIX_BT601, KVL_RANGE_STUDIO, 126, 128, 128, 128, 128, 128},
                          {KVL_MATRIX_BT601, KVL_RANGE_STUDIO, 81, 90, 240, 0, 0, 254},
                          {KVL_MATRIX_BT709, KVL_RANGE_FULL, 255, 128, 128, 255, 255, 255},
                          {KVL_MATRIX_BT709, KVL_RANGE_FULL, 18, 255, 116, 254, 0, 0}}) {
    const ColorConversionParams params = filled(c.matrix, c.range);
    std::vector<uint8_t> result(4, 0xCD);
    // YV24 of 1 x 1 has planes of two bytes: Y, V, U.
    const uint8_t frame[] = {c.y, 0, c.v, 0, c.u, 0};
    ASSERT_EQ(KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_YV24, frame, 0, {1, 1}, result.data(), 0, &params),
              0);
    EXPECT_EQ(result, (std::vector<uint8_t>{c.b, c.g, c.r, 0xCD})) << int{c.y};
  }
}

TEST(ConvertYuvToRgb24, RefusesBadCallsAndChangesNothing) {
  initialise();
  const std::vector<uint8_t> source(1024, 200);
  std::vector<uint8_t> result(1024, 0xCD);
  const ColorConversionParams params = filled(0, 0);
  ColorConversionParams oneWay = params;
  oneWay.lumaFactor = 0;
  GUID other = KVL_SUBTYPE_YUY2;
  other.Data2 = 1;
  for (const Layout& layout : layouts) {
    BadCalls calls(KVL_ConvertYUVToRgb24, layout.guid, source.data(), 0, {5, 4}, result.data(), 0,
                   &params);
    calls.watch(result.data(), result.size()).expect(invalidArgument);
    calls.eachNull();
    if (layout.packed) calls.with<2>({11});
    calls.with<3>(
        {SIZE{0, 4}, SIZE{4, 0}, SIZE{-4, 4}, SIZE{4, INT32_MIN}, SIZE{INT32_MAX, INT32_MAX}});
    calls.with<5>({14, -14});
    calls.with<6>({oneWay});
    calls.call({layout.guid, source.data(), 0, {1, INT32_MAX}, result.data(), INT32_MIN, &params},
               "rows beyond the address space");
    calls.expect(notImplemented);
    calls.with<0>({other, KVL_SUBTYPE_RGB24, KVL_SUBTYPE_RGB8});
  }
}

}  // namespace
}  // namespace kvl::test
