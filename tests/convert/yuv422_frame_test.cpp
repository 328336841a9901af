// KVL_ConvertRgb24ToYUY2 and KVL_CopyRgbBmpToYUYVFrame.
#include "convert/frames.h"
#include "convert/rgb_to_yuv_model.h"
#include "core/bitmap.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

bool vectorLevel() {
  return instructionSet() >= InstructionSet::ssse3;
}

// What a call must leave in a frame. A frame whose rows walk backwards has its first row last.
class FrameModel {
 public:
  FrameModel(const Frame& frame, bool lumaFirst, int columns, const Bitmap& bitmap,
             int bytesPerPixel, const ColorConversionParams& block, const Placement& at)
      : bytes_(frame.bytes()),
        stride_(frame.stride()),
        height_(frame.height()),
        lumaFirst_(lumaFirst),
        columns_(columns) {
    if (at.frame.y > 0) {
      blackRows(0, std::min<int>(at.frame.y, height_));
      blackRows(std::max<int>(0, at.frame.y + at.area.cy), height_);
    }
    for (int r = 0; r < at.area.cy; ++r) {
      const int y = at.frame.y + r;
      if (y >= 0 && y < height_) placeRow(bitmap, bytesPerPixel, block, at, r);
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
                const Placement& at, int r) {
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
    const auto put = [&](int x, const auto& bytes) {
      std::copy(bytes.begin(), bytes.end(), out + 2 * x);
    };

    int i = 0, x = evenLeft;
    if (left % 2 != 0) {
      if (columnExists(0) && fits(x)) put(x, scalarPair(block, {}, pixel(0), lumaFirst_));
      i = 1;
      x += 2;
    }
    const int pairs = std::max(0, ((right & ~1) - x) / 2);
    const int rightI = i + 2 * pairs, rightX = x + 2 * pairs;
    int first = 0, kept = 0;
    for (int k = 0; k < pairs; ++k) {
      if (!fits(x + 2 * k) || !columnExists(i + 2 * k) || !columnExists(i + 2 * k + 1)) continue;
      if (kept++ == 0) first = k;
    }
    i += 2 * first;
    x += 2 * first;
    if (bytesPerPixel >= 3) {
      int64_t byte = int64_t{at.source.x + i} * bytesPerPixel;
      const int blockStep = std::min(bytesPerPixel, 4);
      for (; vectorLevel() && kept >= 8; kept -= 8) {
        for (int half = 0; half < 2; ++half, x += 8) {
          std::array<Rgb, 8> eight;
          for (Rgb& one : eight) {
            one = pixelAt(byte);
            byte += blockStep;
          }
          put(x, vectorPairs(block, eight, lumaFirst_));
        }
      }
      for (; kept > 0; --kept, x += 2, byte += 2 * bytesPerPixel) {
        put(x, scalarPair(block, pixelAt(byte), pixelAt(byte + bytesPerPixel), lumaFirst_));
      }
    }
    if (right % 2 != 0 && columnExists(rightI) && fits(rightX)) {
      put(rightX, scalarPair(block, pixel(rightI), {}, lumaFirst_));
    }
  }

  std::vector<uint8_t> bytes_;
  int stride_, height_;
  bool lumaFirst_;
  int columns_;
};

void expectYuy2(const Bitmap& bitmap, const Frame& frame, const ColorConversionParams& block,
                const Placement& at, bool backwards) {
  // Rows without a header go as far as their stride.
  const auto stride = static_cast<int>(bitmap.stride());
  const FrameModel model(frame, true, stride / 3, bitmap, 3, block, at);
  // A bottom-up bitmap has a positive stride; the same rows are reached top-down from the last one.
  const uint8_t* first = backwards ? bitmap.bits() + (bitmap.rows() - 1) * stride : bitmap.bits();
  KVL_ConvertRgb24ToYUY2(first, backwards ? -stride : stride, {-1, bitmap.rows()}, frame.top(),
                         frame.stride(), {-1, frame.height()}, at.source, at.frame, at.area,
                         &block);
  expectFrame(model.bytes(), frame, bitmap, at);
}

void expectUyvy(const Bitmap& bitmap, const Frame& frame, bool bt601, const Placement& at) {
  const BITMAPINFOHEADER& header = *bitmap.header();
  const FrameModel model(frame, false, header.biWidth, bitmap, header.biBitCount / 8,
                         builtInBlock(bt601), at);
  KVL_CopyRgbBmpToYUYVFrame(bitmap.header(), at.source, frame.top(), {-1, frame.height()},
                            frame.stride(), at.frame, at.area, bt601 ? 2 : 0);
  expectFrame(model.bytes(), frame, bitmap, at);
}

// Bright pixels carry out of their luma: 220 * 255 + 128 = 56228 is -9308 in 16 bits, and
// (-9308 >> 8) + 16 = -21 = 0xFFEB. Chroma is (2 * 255 + 128 >> 8) + 128 = 130.
TEST(Yuv422Frame, WhiteIsAsWorkedByHand) {
  std::vector<uint8_t> white(34 * 3, 255);
  white.resize(104);
  const ColorConversionParams block = builtInBlock(true);
  forEachLevel([&] {
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
    std::memset(bitmap.bits(), 255, bitmap.stride());
    KVL_CopyRgbBmpToYUYVFrame(bitmap.header(), {0, 0}, out.data(), {34, 1}, 68, {0, 0}, {34, 1}, 1);
    for (size_t word = 0; word < 34; ++word) {
      const bool vector = vectorLevel() && word < 32, first = word % 8 == 0;
      ASSERT_EQ(out[2 * word], !vector ? 2 : first ? 130 : 129) << word;
      ASSERT_EQ(out[2 * word + 1], !vector || first ? 235 : 236) << word;
    }
  });
}

// Narrow rectangles that fit; ones that hang over the frame or the bitmap, empty ones, strides both
// ways, any block and depth.
TEST(Yuv422Frame, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(5);
    const int depths[] = {24, 24, 24, 32, 32, 16, 8, 4, 1, 27, 48, 64};
    for (int n = 0; n < 900; ++n) {
      const bool loose = n % 3 == 0;
      const int width = n < 300 ? n % 36 + 1 : random.range(1, n % 50 == 0 ? 300 : 50);
      const int height = random.range(1, 9), sign = random.range(0, 3) == 0 ? -1 : 1;
      Placement at = {{random.range(0, 3), random.range(0, 2)},
                      {random.range(0, 20), random.range(0, 6)},
                      {random.range(0, width), random.range(0, height)}};
      if (n < 300) at = {{0, 0}, {random.range(0, 8), random.range(0, 2)}, {width, height}};
      if (loose) at = loosePlacement(random, width, height);
      int stride = 2 * ((static_cast<int>(at.frame.x + at.area.cx) + 1) & ~1) + random.range(0, 9);
      if (loose) stride = random.range(1, 150);
      if (random.range(0, 5) == 0) stride = -stride;
      if (stride == 0) continue;
      const Frame yuy2(stride, random.range(1, 14), guardOf(n));
      const Frame uyvy(stride, random.range(1, 14), guardOf(n));
      const Bitmap rgb24(width, height, 24, guardOf(n), n);
      expectYuy2(rgb24, yuy2, n % 7 == 0 ? builtInBlock(true) : randomBlock(random, n % 4 == 0), at,
                 sign < 0);
      const int depth = depths[random.range(0, n < 300 ? 4 : 11)];
      const uint32_t compression = depth == 32 && n % 2 == 0 ? 3 : 0;
      const Bitmap bitmap(width, sign * height, depth, guardOf(n), n, compression,
                          depth <= 8 ? 3 : 0);
      expectUyvy(bitmap, uyvy, n % 5 < 2, at);
    }
  });
}

TEST(Yuv422Frame, RowsWithoutLengthAllShowTheOneRow) {
  initialise();
  std::vector<uint8_t> row(3 * 33);
  for (size_t i = 0; i < row.size(); ++i) row[i] = static_cast<uint8_t>(i * 7);
  const ColorConversionParams block = builtInBlock(true);
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
  const ColorConversionParams block = builtInBlock(true);
  const Bitmap bitmap(20, 10, 24, GuardAt::end, 3);
  const Frame frame(64, 12);
  const POINT at = {4, 1};
  const SIZE area = {20, 10};
  BadCalls yuy2(KVL_ConvertRgb24ToYUY2, bitmap.bits(), 60, {20, 10}, frame.top(), 64, {32, 12},
                {0, 0}, at, area, &block);
  yuy2.watch(frame.top(), 64 * 12);
  yuy2.eachNull();
  yuy2.with<2>({SIZE{20, 0}, SIZE{20, -1}});
  yuy2.with<4>({0});
  yuy2.with<5>({SIZE{32, 0}});
  yuy2.call({bitmap.bits(),
             INT32_MIN,
             {20, INT32_MAX},
             frame.top(),
             64,
             {32, 12},
             {0, 0},
             at,
             area,
             &block},
            "source rows below address 0");
  yuy2.call({bitmap.bits(),
             60,
             {20, 10},
             frame.top(),
             INT32_MIN,
             {32, INT32_MAX},
             {0, 0},
             at,
             area,
             &block},
            "frame rows below address 0");
  BadCalls uyvy(KVL_CopyRgbBmpToYUYVFrame, bitmap.header(), {0, 0}, frame.top(), {32, 12}, 64, at,
                area, uint8_t{1});
  uyvy.watch(frame.top(), 64 * 12);
  uyvy.eachNull();
  uyvy.with<0>(badPackedHeaders);
  uyvy.with<3>({SIZE{32, -12}});
  uyvy.with<4>({0});
}

// A header size of 0 counts as 40.
TEST(Yuv422Frame, AHeaderWithoutSizeSetsTheOverflowFlagAndNothingElse) {
  initialise();
  const Bitmap bitmap(20, 10, 24, GuardAt::end, 3);
  for (const uint8_t flag : {0, 1}) {
    g_strideOverflow = 0;
    if (flag != 0) bitmap.header()->biSize = 0;
    expectUyvy(bitmap, Frame(40, 10), true, {{0, 0}, {0, 0}, {20, 10}});
    EXPECT_EQ(g_strideOverflow, flag);
  }
  g_strideOverflow = 0;
}

}  // namespace
}  // namespace kvl::test
