// KVL_CopyRgbBmpToRGBFrame.
#include <numeric>

#include "convert/frames.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

void model(std::vector<uint8_t>& bytes, const Frame& frame, const Bitmap& bitmap,
           const Placement& at) {
  const int rowBytes = std::abs(frame.stride()), depth = bitmap.header()->biBitCount;
  const auto row = [&](int y) {
    return bytes.data() + (frame.stride() > 0 ? y : frame.height() - 1 - y) * rowBytes;
  };
  for (int y = 0; y < frame.height(); ++y) {
    const int r = y - at.frame.y;
    uint8_t* out = row(y);
    const bool below = r >= at.area.cy, above = r < 0;
    if (at.frame.y > 0 && (above || below)) std::fill(out, out + rowBytes, uint8_t{0});
    if (above || below) continue;
    const int left = 4 * at.frame.x, right = left + 4 * at.area.cx;
    if (left > 0) {
      for (int i = 0; i < rowBytes; ++i) {
        if (i < left || i >= right) out[i] = 0;
      }
    }
    const int sourceRow = at.source.y + r;
    if ((depth != 24 && depth != 32) || sourceRow < 0 || sourceRow >= bitmap.rows()) continue;
    for (int i = 0; i < at.area.cx; ++i) {
      const int to = left + 4 * i, from = 3 * at.source.x + depth / 8 * i;
      if (to < 0 || to + 4 > rowBytes || from < 0) continue;
      if (from + depth / 8 > depth / 8 * bitmap.header()->biWidth) continue;
      for (int c = 0; c < 4; ++c) {
        out[to + c] = c == 3 && depth == 24 ? 0 : bitmap.byte(sourceRow, from + c);
      }
    }
  }
}

TEST(RgbFrame, PlacesTwoPixelsAsWorkedByHand) {
  const Bitmap bitmap(2, 1, 24, GuardAt::end, 1);
  std::iota(bitmap.bits(), bitmap.bits() + 6, uint8_t{1});
  const Frame frame(17, 3);
  KVL_CopyRgbBmpToRGBFrame(bitmap.header(), {0, 0}, frame.top(), {1, 1}, 17, 3, {2, 1});
  std::vector<uint8_t> expected(3 * 17);
  const uint8_t middle[] = {0, 0, 0, 0, 1, 2, 3, 0, 4, 5, 6, 0};
  std::copy(middle, middle + 12, &expected[17]);
  EXPECT_EQ(frame.bytes(), expected);
}

TEST(RgbFrame, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(3);
    const int depths[] = {24, 24, 24, 32, 32, 16, 8};
    for (int n = 0; n < 700; ++n) {
      const int width = n < 200 ? n / 6 + 1 : random.range(1, 90), height = random.range(1, 9);
      const int sign = random.range(0, 3) == 0 ? -1 : 1;
      const int depth = depths[random.range(0, 6)];
      const Bitmap bitmap(width, sign * height, depth, guardOf(n), 7,
                          depth == 32 && n % 2 == 0 ? 3 : 0, depth == 8 ? 5 : 0);
      Placement at = {{0, 0}, {random.range(0, 3), random.range(0, 2)}, {width, height}};
      int stride = 4 * static_cast<int>(at.frame.x + width) + random.range(0, 9);
      if (n % 3 == 0) {
        at = loosePlacement(random, width, height);
        stride = random.range(1, 200);
      }
      if (random.range(0, 5) == 0) stride = -stride;
      const Frame frame(stride, random.range(1, 14), guardOf(n));
      std::vector<uint8_t> expected = frame.bytes();
      model(expected, frame, bitmap, at);
      KVL_CopyRgbBmpToRGBFrame(bitmap.header(), at.source, frame.top(), at.frame, frame.stride(),
                               frame.height(), at.area);
      expectFrame(expected, frame, bitmap, at);
    }
  });
}

// As in the bytes of a file. The sanitizers tell if the header is read as if it were aligned.
TEST(RgbFrame, ABitmapMayLieAtAnyAddress) {
  initialise();
  const Bitmap bitmap(20, 3, 24, GuardAt::end, 3);
  const auto* bytes = reinterpret_cast<const uint8_t*>(bitmap.header());
  const size_t size = 40 + 3 * bitmap.stride();
  const auto convert = [](const void* at, Frame& rgb, Frame& yuv) {
    const auto* header = static_cast<const BITMAPINFOHEADER*>(at);
    KVL_CopyRgbBmpToRGBFrame(header, {0, 0}, rgb.top(), {1, 1}, 100, 5, {20, 3});
    KVL_CopyRgbBmpToYUYVFrame(header, {0, 0}, yuv.top(), {24, 5}, 48, {1, 1}, {20, 3}, 1);
  };
  Frame rgb(100, 5, GuardAt::end), yuv(48, 5, GuardAt::end);
  convert(bytes, rgb, yuv);
  for (size_t offset = 1; offset < 4; ++offset) {
    std::vector<uint8_t> shifted(offset + size);
    std::copy(bytes, bytes + size, &shifted[offset]);
    Frame shiftedRgb(100, 5, GuardAt::end), shiftedYuv(48, 5, GuardAt::end);
    convert(&shifted[offset], shiftedRgb, shiftedYuv);
    EXPECT_EQ(rgb.bytes(), shiftedRgb.bytes()) << offset;
    EXPECT_EQ(yuv.bytes(), shiftedYuv.bytes()) << offset;
  }
}

TEST(RgbFrame, BadCallsChangeNoByte) {
  initialise();
  const Bitmap bitmap(20, 10, 24, GuardAt::end, 3);
  const Frame frame(100, 12);
  BadCalls calls(KVL_CopyRgbBmpToRGBFrame, bitmap.header(), {0, 0}, frame.top(), {1, 1}, 100, 12,
                 {20, 10});
  calls.watch(frame.top(), 1200);
  calls.eachNull();
  calls.with<4>({0});
  calls.with<5>({0, INT32_MIN});
  calls.with<0>(badPackedHeaders);
  calls.call({bitmap.header(), {0, 0}, frame.top(), {1, 1}, INT32_MIN, INT32_MAX, {20, 10}},
             "rows below address 0");
}

}  // namespace
}  // namespace kvl::test
