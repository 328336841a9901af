#include "raw_coder.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

constexpr uint32_t fourCc(const char (&code)[5]) {
  return static_cast<uint32_t>(code[0]) | static_cast<uint32_t>(code[1]) << 8 |
         static_cast<uint32_t>(code[2]) << 16 | static_cast<uint32_t>(code[3]) << 24;
}

struct Sampling {
  int code, across, down;
};
constexpr Sampling samplings[] = {{KVL_JPEG_444, 1, 1}, {KVL_JPEG_422, 2, 1}, {KVL_JPEG_420, 2, 2}};

// The formulas of the header, in doubles that are exact, pixel by pixel.
class Model {
 public:
  Model(const TestImage& image, Sampling sampling, bool videoRange)
      : image_(image), sampling_(sampling), videoRange_(videoRange) {}

  bool grey() const { return image_.header.biBitCount == 8; }

  // Sample (i, j) of component c, padding included.
  int sample(int c, int i, int j) const {
    const int across = c == 0 ? 1 : sampling_.across, down = c == 0 ? 1 : sampling_.down;
    j = std::min(j, (height() + down - 1) / down - 1);
    if (image_.header.biBitCount == 16 && c > 0) return packedChroma(c, i, j);
    double sum = 0;
    for (int dy = 0; dy < down; ++dy) {
      for (int dx = 0; dx < across; ++dx) sum += pixel(c, across * i + dx, down * j + dy);
    }
    const int count = across * down, odd = i % 2;
    return floorOf((sum + (count == 1 ? 0 : count == 2 ? odd : 1 + odd)) / count);
  }

 private:
  static int floorOf(double value) { return static_cast<int>(std::floor(value)); }
  int width() const { return image_.width(); }
  int height() const { return std::abs(image_.height()); }

  const uint8_t* row(int y) const {
    const bool up = image_.height() > 0 && image_.header.biBitCount != 16;
    return image_.row(up ? height() - 1 - y : y);
  }

  int packedChroma(int c, int i, int j) const {
    if (sampling_.across == 1) return packed(c, std::min(i, width() - 1) / 2, j);
    if (sampling_.down == 1) return packed(c, i, j);
    return floorOf((packed(c, i, 2 * j) + packed(c, i, 2 * j + 1) + i % 2) / 2.0);
  }

  // Sample i of a row of packed 4:2:2, by the letters of its code.
  int packed(int c, int i, int y) const {
    y = std::min(y, height() - 1);
    if (c > 0) i = std::min(i, (width() + 1) / 2 - 1);
    const uint32_t code = image_.header.biCompression;
    std::string order = "YUYV";
    if (code == fourCc("YVYU")) order = "YVYU";
    if (code == fourCc("VYUY")) order = "VYUY";
    if (code == fourCc("UYVY") || code == fourCc("UYNV") || code == fourCc("Y422")) order = "UYVY";
    const size_t pair = static_cast<size_t>(c == 0 ? i / 2 : i);
    size_t at = order.find("YUV"[c]);
    if (c == 0 && i % 2 == 1) at = order.rfind('Y');
    const int value = row(y)[4 * pair + at];
    if (!videoRange_) return value;
    const double wide = c == 0 ? (value - 16) * 255.0 / 219 : 128 + (value - 128) * 255.0 / 224;
    return std::clamp(floorOf(wide + 0.5), 0, 255);
  }

  double pixel(int c, int x, int y) const {
    x = std::min(x, width() - 1);
    y = std::min(y, height() - 1);
    if (grey()) return row(y)[x];
    if (image_.header.biBitCount == 16) return packed(c, x, y);
    const uint8_t* p = row(y) + 3 * x;
    const double b = p[0], g = p[1], r = p[2];
    const double sums[] = {19595 * r + 38470 * g + 7471 * b + 32768,
                           -11059 * r - 21709 * g + 32768 * b + 8421375,
                           32768 * r - 27439 * g - 5329 * b + 8421375};
    return std::floor(sums[c] / 65536);
  }

  const TestImage& image_;
  Sampling sampling_;
  bool videoRange_;
};

struct Written {
  RawCoder coder = {};
  std::vector<uint8_t> memory;
  int32_t status = -1;
  int32_t rows = -1;
};

void write(const TestImage& image, int sampling, int videoRange, int bandRows, Written& to) {
  to.memory.assign(3u * (static_cast<size_t>(image.width()) + 16) *
                       (static_cast<size_t>(std::abs(image.height())) + 16),
                   0xEE);
  to.coder.memory = to.memory.data();
  to.coder.size = to.memory.size();
  const KVL_JpegEncoder encoder = raw_encoder(&to.coder);
  to.status = KVL_JpegWriteRawImage(&encoder, &image.header, image.bits(), sampling, videoRange,
                                    bandRows, &to.rows);
}

void expectModel(const TestImage& image, Sampling sampling, int videoRange, int bandRows) {
  const std::vector<uint8_t> before = image.bytes();
  Written written;
  write(image, sampling.code, videoRange, bandRows, written);
  const Model model(image, sampling, videoRange != 0);
  const KVL_JpegGeometry& geometry = written.coder.geometry;
  SCOPED_TRACE(text(image.width(), " x ", image.height(), ", ", image.header.biBitCount,
                    " bits, sampling ", sampling.code));
  ASSERT_EQ(written.status, KVL_JPEG_OK);
  ASSERT_EQ(written.rows, std::abs(image.height()));
  ASSERT_EQ(geometry.componentCount, model.grey() ? 1 : 3);
  ASSERT_EQ(geometry.colorSpace, model.grey() ? KVL_JPEG_GREY : KVL_JPEG_YCBCR);
  expectBytes(before, image);
  for (int c = 0; c < geometry.componentCount; ++c) {
    ASSERT_EQ(geometry.horizontal[c], c == 0 && !model.grey() ? sampling.across : 1);
    ASSERT_EQ(geometry.vertical[c], c == 0 && !model.grey() ? sampling.down : 1);
    const int columns = raw_width(&geometry, c);
    const uint8_t* sample = written.memory.data() + raw_offset(&geometry, c);
    for (int j = 0; j < raw_height(&geometry, c); ++j) {
      for (int i = 0; i < columns; ++i, ++sample) {
        ASSERT_EQ(*sample, model.sample(c, i, j)) << "component " << c << " at " << i << ", " << j;
      }
    }
  }
}

struct PackedImage : TestImage {
  PackedImage(int width, int height, uint32_t code, GuardAt guard = GuardAt::end)
      : TestImage(width, height, 16, guard) {
    header.biCompression = code;
  }
};

TEST(JpegWriteRawImage, WritesPrimariesAsWorkedByHand) {
  // Blue, green; red, white: 0.114, 0.587, 0.299 and 1 of 255, bottom-up.
  TestImage image(2, 2);
  image.assign({0, 0, 255, 255, 255, 255, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0});
  Written written;
  write(image, KVL_JPEG_444, 0, 0, written);
  ASSERT_EQ(written.status, KVL_JPEG_OK);
  const auto at = [&](size_t c, size_t x, size_t y) { return written.memory[c * 64 + y * 8 + x]; };
  EXPECT_EQ(at(0, 0, 0), 29);   // blue: 29.07
  EXPECT_EQ(at(1, 0, 0), 255);  // 128 + 127.5, short of 256
  EXPECT_EQ(at(2, 0, 0), 107);  // 128 - 20.7
  EXPECT_EQ(at(0, 1, 0), 150);  // green: 149.7
  EXPECT_EQ(at(1, 1, 0), 44);   // 128 - 84.5
  EXPECT_EQ(at(2, 1, 0), 21);   // 128 - 106.8
  EXPECT_EQ(at(0, 0, 1), 76);   // red: 76.2
  EXPECT_EQ(at(1, 0, 1), 85);
  EXPECT_EQ(at(2, 0, 1), 255);
  EXPECT_EQ(at(0, 1, 1), 255);  // white
  EXPECT_EQ(at(1, 1, 1), 128);
  EXPECT_EQ(at(2, 1, 1), 128);
  EXPECT_EQ(at(0, 7, 7), 255);  // padding repeats the last pixel
  // The chroma of the four, averaged once: (255 + 44 + 85 + 128 + 1) >> 2.
  write(image, KVL_JPEG_420, 0, 0, written);
  EXPECT_EQ(written.memory[8 * 16], 128);
}

TEST(JpegWriteRawImage, FollowsTheFormulasAtEveryLevelTeamAndBand) {
  forEverySmallSize(4, [](const SmallSize& s) {
    const Sampling sampling = samplings[s.seed % 3];
    const int height = s.seed % 4 < 2 ? s.height : -s.height;
    TestImage colour(s.width, height, 24, s.guard), grey(s.width, height, 8, s.guard);
    expectModel(colour.fillRandom(s.seed), sampling, 0, 0);
    expectModel(grey.fillRandom(s.seed), sampling, 0, 1);
    PackedImage packed(s.width, height, fourCc("YUY2"), s.guard);
    expectModel(packed.fillRandom(s.seed), sampling, static_cast<int>(s.seed % 2), 7);
  });
  TestImage image(211, 167);
  image.fillRandom(5);
  forEachLevelAndTeam([&] {
    for (const Sampling sampling : samplings) {
      for (const int bandRows : {0, 1, 17, 64, INT32_MAX}) {
        ASSERT_NO_FATAL_FAILURE(expectModel(image, sampling, 0, bandRows));
      }
    }
  });
}

TEST(JpegWriteRawImage, TakesEveryOrderOfPackedSamples) {
  initialise();
  for (const uint32_t code :
       {fourCc("V422"), fourCc("YUY2"), fourCc("YUNV"), fourCc("YUYV"), fourCc("YVYU"),
        fourCc("VYUY"), fourCc("Y422"), fourCc("UYNV"), fourCc("UYVY")}) {
    for (const Sampling sampling : samplings) {
      PackedImage image(21, 19, code);
      expectModel(image.fillRandom(code), sampling, 1, 0);
    }
  }
  TestImage subtype(9, 9);
  subtype.header.biCompression = 0xE436EB7D;
  expectModel(subtype.fillRandom(1), samplings[2], 0, 0);
}

TEST(JpegWriteRawImage, CallsNothingForABadCall) {
  initialise();
  const TestImage image(20, 20);
  RawCoder coder = {};
  int calls = 0;
  coder.context = &calls;
  coder.hook = [](RawCoder* c, RawCall, int32_t) { return ++*static_cast<int*>(c->context), 5; };
  const KVL_JpegEncoder good = raw_encoder(&coder);
  int32_t rows = 0;
  BadCalls bad(KVL_JpegWriteRawImage, &good, &image.header, image.bits(), 0, 0, 0, &rows);
  bad.watch(&calls, sizeof calls).watch(&rows, sizeof rows).expect(KVL_JPEG_INVALID_ARGUMENT);
  bad.eachNull(0, 3);
  bad.withChanged<0>([](auto& e) { e.size -= 1; }, [](auto& e) { e.open = nullptr; },
                     [](auto& e) { e.writeRows = nullptr; }, [](auto& e) { e.finish = nullptr; });
  bad.with<1>({makeHeader(0, 20), makeHeader(-20, 20), makeHeader(20, 0), makeHeader(65536, 1),
               makeHeader(1, -65536), makeHeader(20, INT32_MIN), makeHeader(INT32_MAX, INT32_MAX),
               makeHeader(20, 20, 32), makeHeader(20, 20, 16), makeHeader(20, 20, 4),
               makeHeader(20, 20, 16, 3), makeHeader(20, 20, 24, fourCc("YUY2")),
               makeHeader(20, 20, 24, fourCc("NV12"))});
  bad.with<3>({-1, 3});
  bad.with<4>({-1, 2});
  bad.with<5>({-1});
  rows = 9;
  KVL_JpegWriteRawImage(nullptr, &image.header, image.bits(), 0, 0, 0, &rows);
  EXPECT_EQ(rows, 0);
  // A larger table is a newer one.
  KVL_JpegEncoder newer = good;
  newer.size = sizeof newer + 8;
  EXPECT_EQ(KVL_JpegWriteRawImage(&newer, &image.header, image.bits(), 0, 0, 0, nullptr), 5);
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace kvl::test
