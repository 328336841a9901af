// KVL_ConvertRgb24ToYUY2 and KVL_CopyRgbBmpToYUYVFrame.
#include <gtest/gtest.h>

#include <cstring>

#include "convert/frames.h"
#include "convert/rgb_to_yuv.h"
#include "convert/rgb_to_yuv_model.h"
#include "core/bitmap.h"
#include "core/initialise.h"
#include "support/level_and_team.h"

namespace kvl {
namespace {

using test::Bitmap;
using test::describe;
using test::firstDifference;
using test::Frame;
using test::GuardAt;
using test::Placement;
using test::Random;
using test::Rgb;

// What a call must leave in a frame. A frame whose rows walk backwards has its first row last.
class FrameModel {
 public:
  FrameModel(std::vector<uint8_t> bytes, int stride, int height, bool lumaFirst, int columns)
      : bytes_(std::move(bytes)),
        stride_(stride),
        height_(height),
        lumaFirst_(lumaFirst),
        columns_(columns) {}

  void place(const Bitmap& bitmap, int bytesPerPixel, const ColorConversionParams& block,
             bool vectors, const Placement& at) {
    if (at.frame.y > 0) {
      blackRows(0, std::min<int>(at.frame.y, height_));
      blackRows(std::max<int>(0, at.frame.y + at.area.cy), height_);
    }
    for (int r = 0; r < at.area.cy; ++r) {
      const int y = at.frame.y + r;
      if (y >= 0 && y < height_) placeRow(bitmap, bytesPerPixel, block, vectors, at, r);
    }
  }

  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  void blackRows(int first, int last) {
    if (first >= last) return;
    if (stride_ > 0) {
      black(&bytes_[static_cast<size_t>(first * stride_)], (last - first) * stride_);
    } else {
      for (int y = first; y < last; ++y) black(row(y), -stride_);
    }
  }

  void black(uint8_t* at, int count) const {
    const uint8_t word[4] = {0x0F, 0x80, 0x0F, 0x80};
    for (int i = 0; i < count / 4 * 4; ++i) at[i] = word[(i + (lumaFirst_ ? 0 : 1)) % 4];
  }

  uint8_t* row(int y) {
    const int index = stride_ > 0 ? y : height_ - 1 - y;
    return bytes_.data() + index * std::abs(stride_);
  }

  void placeRow(const Bitmap& bitmap, int bytesPerPixel, const ColorConversionParams& block,
                bool vectors, const Placement& at, int r) {
    uint8_t* out = row(at.frame.y + r);
    const int rowBytes = std::abs(stride_);
    const int left = at.frame.x, right = left + at.area.cx;
    const int evenLeft = left & ~1, evenRight = (right + 1) & ~1;
    if (evenLeft > 0) {
      black(out, std::min(2 * evenLeft, rowBytes));
      const int end = std::min(std::max(2 * evenRight, 0), rowBytes);
      black(out + end, rowBytes - end);
    }
    const int sourceRow = at.source.y + r;
    if (sourceRow < 0 || sourceRow >= bitmap.rows()) return;

    const auto columnExists = [&](int i) {
      return at.source.x + i >= 0 && at.source.x + i < columns_;
    };
    const auto pixelAt = [&](int64_t byte) {
      return Rgb{bitmap.byte(sourceRow, byte + 2), bitmap.byte(sourceRow, byte + 1),
                 bitmap.byte(sourceRow, byte)};
    };
    const auto pixel = [&](int i) { return pixelAt(int64_t{at.source.x + i} * bytesPerPixel); };
    const auto fits = [&](int x) { return x >= 0 && 2 * x + 4 <= rowBytes; };
    const auto put = [&](int x, const uint8_t* bytes, size_t count) {
      std::memcpy(out + 2 * x, bytes, count);
    };

    int i = 0, x = evenLeft;
    if (left % 2 != 0) {
      if (columnExists(0) && fits(x)) {
        put(x, scalarPair(block, {0, 0, 0}, pixel(0), lumaFirst_).data(), 4);
      }
      i = 1;
      x += 2;
    }
    int pairs = std::max(0, ((right & ~1) - x) / 2);
    const int rightI = i + 2 * pairs, rightX = x + 2 * pairs;
    const auto usable = [&] { return fits(x) && columnExists(i) && columnExists(i + 1); };
    for (; pairs > 0 && !usable(); --pairs, i += 2, x += 2) {
    }
    int kept = 0;
    for (const int i0 = i, x0 = x; kept < pairs && usable(); ++kept) {
      i = i0 + 2 * (kept + 1);
      x = x0 + 2 * (kept + 1);
    }
    i -= 2 * kept;
    x -= 2 * kept;
    if (bytesPerPixel >= 3) {
      int64_t byte = int64_t{at.source.x + i} * bytesPerPixel;
      const int blockStep = std::min(bytesPerPixel, 4);
      for (; vectors && kept >= 8; kept -= 8) {
        for (int half = 0; half < 2; ++half, x += 8) {
          std::array<Rgb, 8> eight;
          for (Rgb& one : eight) {
            one = pixelAt(byte);
            byte += blockStep;
          }
          put(x, vectorPairs(block, eight, lumaFirst_).data(), 16);
        }
      }
      for (; kept > 0; --kept, x += 2, byte += 2 * bytesPerPixel) {
        put(x, scalarPair(block, pixelAt(byte), pixelAt(byte + bytesPerPixel), lumaFirst_).data(),
            4);
      }
    }
    if (right % 2 != 0 && columnExists(rightI) && fits(rightX)) {
      put(rightX, scalarPair(block, pixel(rightI), {0, 0, 0}, lumaFirst_).data(), 4);
    }
  }

  std::vector<uint8_t> bytes_;
  int stride_, height_;
  bool lumaFirst_;
  int columns_;
};

bool vectorLevel() {
  return instructionSet() >= InstructionSet::ssse3;
}

void expectYuy2(const Bitmap& bitmap, Frame& frame, const ColorConversionParams& block,
                const Placement& at, bool backwards) {
  // Rows without a header go as far as their stride.
  const auto columns = static_cast<int>(bitmap.stride() / 3);
  FrameModel model(frame.bytes(), frame.stride(), frame.height(), true, columns);
  model.place(bitmap, 3, block, vectorLevel(), at);
  // A bottom-up bitmap has a positive stride; the same rows are reached top-down from the last one.
  const auto stride = static_cast<int>(bitmap.stride());
  const uint8_t* first = backwards ? bitmap.bits() + (bitmap.rows() - 1) * stride : bitmap.bits();
  KVL_ConvertRgb24ToYUY2(first, backwards ? -stride : stride, {-1, bitmap.rows()}, frame.top(),
                         frame.stride(), {-1, frame.height()}, at.source, at.frame, at.area,
                         &block);
  ASSERT_EQ(firstDifference(model.bytes(), frame.bytes(),
                            static_cast<size_t>(std::abs(frame.stride())), 2),
            "")
      << describe(at, frame, bitmap);
}

void expectUyvy(const Bitmap& bitmap, Frame& frame, bool bt601, const Placement& at) {
  FrameModel model(frame.bytes(), frame.stride(), frame.height(), false, bitmap.header()->biWidth);
  model.place(bitmap, bitmap.header()->biBitCount / 8, test::builtInBlock(bt601), vectorLevel(),
              at);
  KVL_CopyRgbBmpToYUYVFrame(bitmap.header(), at.source, frame.top(), {-1, frame.height()},
                            frame.stride(), at.frame, at.area, bt601 ? 2 : 0);
  ASSERT_EQ(firstDifference(model.bytes(), frame.bytes(),
                            static_cast<size_t>(std::abs(frame.stride())), 2),
            "")
      << describe(at, frame, bitmap);
}

TEST(Yuv422Frame, BuiltInBlocksHoldThePublishedFactors) {
  for (const bool bt601 : {false, true}) {
    const ColorConversionParams expected = test::builtInBlock(bt601);
    const ColorConversionParams& block = bt601 ? bt601Studio : bt709Studio;
    for (size_t i = 0; i < 9; ++i) {
      EXPECT_EQ(block.rgbToYuvInt[i], expected.rgbToYuvInt[i]) << i;
      EXPECT_EQ(block.rgbToYuvShort[i], expected.rgbToYuvShort[i]) << i;
    }
    EXPECT_EQ(std::memcmp(&block.yOffset, &expected.yOffset, 92 - 72), 0);
    const uint8_t zeros[288 - 146] = {};
    EXPECT_EQ(std::memcmp(block.reserved1, zeros, sizeof zeros), 0);
  }
}

// Bright pixels carry out of their luma: 220 * 255 + 128 = 56228 is -9308 in 16 bits, and
// (-9308 >> 8) + 16 = -21 = 0xFFEB. Chroma is (2 * 255 + 128 >> 8) + 128 = 130.
TEST(Yuv422Frame, WhiteIsAsWorkedByHand) {
  std::vector<uint8_t> white(34 * 3, 255);
  white.resize(104);
  const ColorConversionParams block = test::builtInBlock(true);
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [&] {
      std::vector<uint8_t> out(68);
      KVL_ConvertRgb24ToYUY2(white.data(), 104, {34, 1}, out.data(), 68, {34, 1}, {0, 0}, {0, 0},
                             {34, 1}, &block);
      for (size_t pair = 0; pair < 17; ++pair) {
        const int chroma = vectorLevel() && pair < 16 ? 129 : 2;
        const std::vector<int> expected = {235, chroma, 235, chroma};
        for (size_t i = 0; i < 4; ++i) ASSERT_EQ(out[4 * pair + i], expected[i]) << pair;
      }
      // In the other order the carry goes to the next chroma, and from it on to its luma.
      Bitmap bitmap(34, 1, 24, GuardAt::end, 1);
      std::memset(const_cast<uint8_t*>(bitmap.bits()), 255, bitmap.stride());
      KVL_CopyRgbBmpToYUYVFrame(bitmap.header(), {0, 0}, out.data(), {34, 1}, 68, {0, 0}, {34, 1},
                                1);
      for (size_t word = 0; word < 34; ++word) {
        const bool vector = vectorLevel() && word < 32, first = word % 8 == 0;
        ASSERT_EQ(out[2 * word], !vector ? 2 : first ? 130 : 129) << word;
        ASSERT_EQ(out[2 * word + 1], !vector || first ? 235 : 236) << word;
      }
    });
  }
}

// One grey pixel at an odd column: 128 * 220 + 128 >> 8 = 110, + 16; a black partner is 16; chroma
// (128 * 2 + 128 >> 8) = 1, and (1 + 0 + 1) / 2 = 1.
TEST(Yuv422Frame, ASinglePixelSharesItsPairWithBlack) {
  Bitmap bitmap(1, 1, 24, GuardAt::end, 1);
  std::memset(const_cast<uint8_t*>(bitmap.bits()), 128, 4);
  Frame frame(16, 3, GuardAt::end);
  KVL_CopyRgbBmpToYUYVFrame(bitmap.header(), {0, 0}, frame.top(), {8, 3}, 16, {3, 1}, {1, 1}, 1);
  const uint8_t black[4] = {0x80, 0x0F, 0x80, 0x0F}, pair[4] = {1, 16, 1, 126};
  for (int i = 0; i < 12; ++i) {
    const uint8_t* expected = i == 5 ? pair : black;
    EXPECT_EQ(std::memcmp(frame.top() + 4 * i, expected, 4), 0) << "pair " << i;
  }
}

TEST(Yuv422Frame, SmallRectanglesFollowTheModelAtEveryLevel) {
  initialise();
  for (const InstructionSet level : test::availableLevels()) {
    test::atLevel(level, [] {
      uint64_t seed = 1;
      for (int width = 1; width <= 35; ++width) {
        for (const int x : {0, 1, 2, 3, 7, 8}) {
          const GuardAt guard = ++seed % 2 != 0 ? GuardAt::end : GuardAt::start;
          Random random(seed);
          const int depth = seed % 3 == 0 ? 32 : 24;
          const Bitmap rgb24(width + random.range(0, 2), 3, 24, guard, seed);
          const Bitmap other(width + random.range(0, 2), seed % 5 == 0 ? -3 : 3, depth, guard,
                             seed);
          const Placement at = {{0, 0}, {x, random.range(0, 2)}, {width, 3}};
          const int stride = 2 * ((x + width + 1) & ~1) + random.range(0, 9);
          Frame yuy2(stride, 5, guard), uyvy(stride, 5, guard);
          expectYuy2(rgb24, yuy2, test::builtInBlock(seed % 2 == 0), at, seed % 4 == 0);
          expectUyvy(other, uyvy, seed % 2 != 0, at);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    });
  }
}

// Rectangles that hang over the frame or the bitmap, empty ones, strides both ways, any block.
TEST(Yuv422Frame, RandomCallsFollowTheModelAtEveryLevelAndTeamSize) {
  test::forEachLevelAndTeam([] {
    Random random(5);
    const int depths[] = {24, 24, 24, 32, 32, 16, 8, 4, 1, 27, 48, 64};
    for (int n = 0; n < 600; ++n) {
      const GuardAt guard = n % 2 != 0 ? GuardAt::end : GuardAt::start;
      const int width = random.range(1, n % 50 == 0 ? 300 : 50), height = random.range(1, 9);
      const int sign = random.range(0, 3) == 0 ? -1 : 1;
      const bool loose = n % 3 == 0;
      Placement at = {{random.range(0, 3), random.range(0, 2)},
                      {random.range(0, 20), random.range(0, 6)},
                      {random.range(0, width), random.range(0, height)}};
      if (loose) {
        at = {{random.range(-9, 9), random.range(-4, 4)},
              {random.range(-20, 60), random.range(-9, 12)},
              {random.range(-9, width + 9), random.range(-3, height + 4)}};
      }
      int stride = loose ? random.range(1, 150) : 2 * static_cast<int>(at.frame.x + at.area.cx) + 8;
      if (random.range(0, 5) == 0) stride = -stride;
      Frame yuy2(stride, random.range(1, 14), guard), uyvy(stride, random.range(1, 14), guard);
      const Bitmap rgb24(width, height, 24, guard, 9);
      expectYuy2(rgb24, yuy2, randomBlock(random, n % 4 == 0), at, sign < 0);
      const int depth = depths[random.range(0, 11)];
      const uint32_t compression = depth == 32 && n % 2 == 0 ? 3 : 0;
      const Bitmap bitmap(width, sign * height, depth, guard, 9, compression, depth <= 8 ? 3 : 0);
      expectUyvy(bitmap, uyvy, n % 5 < 2, at);
      if (testing::Test::HasFatalFailure()) return;
    }
  });
}

TEST(Yuv422Frame, RowsWithoutLengthAllShowTheOneRow) {
  initialise();
  std::vector<uint8_t> row(3 * 33);
  for (size_t i = 0; i < row.size(); ++i) row[i] = static_cast<uint8_t>(i * 7);
  const ColorConversionParams block = test::builtInBlock(true);
  std::vector<uint8_t> once(66), thrice(3 * 66);
  KVL_ConvertRgb24ToYUY2(row.data(), -99, {33, 1}, once.data(), 66, {33, 1}, {1, 0}, {0, 0},
                         {32, 1}, &block);
  KVL_ConvertRgb24ToYUY2(row.data(), 0, {33, 3}, thrice.data(), 66, {33, 3}, {1, 0}, {0, 0},
                         {32, 3}, &block);
  for (size_t y = 0; y < 3; ++y) {
    EXPECT_EQ(std::vector(&thrice[y * 66], &thrice[y * 66] + 66), once) << y;
  }
}

TEST(Yuv422Frame, BadCallsChangeNoByte) {
  initialise();
  const ColorConversionParams block = test::builtInBlock(true);
  Bitmap bitmap(20, 10, 24, GuardAt::end, 3);
  Frame frame(64, 12, GuardAt::end);
  const std::vector<uint8_t> before = frame.bytes();
  const POINT at = {4, 1};
  const SIZE area = {20, 10}, size = {32, 12};
  const auto expectUnchanged = [&](const char* what) {
    EXPECT_EQ(firstDifference(before, frame.bytes(), 64, 2), "") << what;
  };
  const auto yuy2 = [&](const uint8_t* src, int srcStride, int rows, uint8_t* dst, int dstStride,
                        int frameRows, const ColorConversionParams* params) {
    KVL_ConvertRgb24ToYUY2(src, srcStride, {20, rows}, dst, dstStride, {32, frameRows}, {0, 0}, at,
                           area, params);
  };
  yuy2(nullptr, 60, 10, frame.top(), 64, 12, &block);
  yuy2(bitmap.bits(), 60, 10, nullptr, 64, 12, &block);
  yuy2(bitmap.bits(), 60, 10, frame.top(), 64, 12, nullptr);
  yuy2(bitmap.bits(), 60, 0, frame.top(), 64, 12, &block);
  yuy2(bitmap.bits(), 60, -1, frame.top(), 64, 12, &block);
  yuy2(bitmap.bits(), 60, 10, frame.top(), 0, 12, &block);
  yuy2(bitmap.bits(), 60, 10, frame.top(), 64, 0, &block);
  yuy2(bitmap.bits(), INT32_MIN, INT32_MAX, frame.top(), 64, 12, &block);
  yuy2(bitmap.bits(), 60, 10, frame.top(), INT32_MIN, INT32_MAX, &block);
  expectUnchanged("YUY2");

  const auto uyvy = [&](const BITMAPINFOHEADER* header, uint8_t* dst, int stride, SIZE frameSize) {
    KVL_CopyRgbBmpToYUYVFrame(header, {0, 0}, dst, frameSize, stride, at, area, 1);
  };
  uyvy(nullptr, frame.top(), 64, size);
  uyvy(bitmap.header(), nullptr, 64, size);
  uyvy(bitmap.header(), frame.top(), 0, size);
  uyvy(bitmap.header(), frame.top(), 64, {32, -12});
  const BITMAPINFOHEADER good = *bitmap.header();
  const auto withHeader = [&](auto change) {
    *bitmap.header() = good;
    change(*bitmap.header());
    uyvy(bitmap.header(), frame.top(), 64, size);
  };
  withHeader([](BITMAPINFOHEADER& h) { h.biWidth = 0; });
  withHeader([](BITMAPINFOHEADER& h) { h.biWidth = -20; });
  withHeader([](BITMAPINFOHEADER& h) { h.biHeight = 0; });
  withHeader([](BITMAPINFOHEADER& h) { h.biBitCount = 0; });
  withHeader([](BITMAPINFOHEADER& h) { h.biCompression = 77; });
  withHeader([](BITMAPINFOHEADER& h) {
    h.biWidth = INT32_MAX;
    h.biHeight = INT32_MIN;
    h.biBitCount = 65535;
  });
  expectUnchanged("UYVY");
}

// A header size of 0 counts as 40.
TEST(Yuv422Frame, AHeaderWithoutSizeSetsTheOverflowFlagAndNothingElse) {
  initialise();
  Bitmap bitmap(20, 10, 24, GuardAt::end, 3);
  Frame sized(40, 10, GuardAt::end), unsized(40, 10, GuardAt::end);
  g_strideOverflow = 0;
  expectUyvy(bitmap, sized, true, {{0, 0}, {0, 0}, {20, 10}});
  EXPECT_EQ(g_strideOverflow, 0);
  bitmap.header()->biSize = 0;
  expectUyvy(bitmap, unsized, true, {{0, 0}, {0, 0}, {20, 10}});
  EXPECT_EQ(g_strideOverflow, 1);
  g_strideOverflow = 0;
  EXPECT_EQ(sized.bytes(), unsized.bytes());
}

}  // namespace
}  // namespace kvl
