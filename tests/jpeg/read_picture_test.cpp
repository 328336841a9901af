#include "jpeg/decode_rows.h"
#include "raw_coder.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

// A picture as a decoder gives it: noise with runs, in every component.
struct Picture {
  RawCoder coder = {};
  std::vector<uint8_t> memory;

  Picture(int width, int height, int colorSpace, std::vector<std::pair<int, int>> factors,
          uint64_t seed = 1) {
    KVL_JpegGeometry& geometry = coder.geometry;
    geometry.size = sizeof geometry;
    geometry.width = width;
    geometry.height = height;
    geometry.colorSpace = colorSpace;
    geometry.componentCount = static_cast<int>(factors.size());
    for (size_t c = 0; c < factors.size(); ++c) {
      geometry.horizontal[c] = static_cast<uint8_t>(factors[c].first);
      geometry.vertical[c] = static_cast<uint8_t>(factors[c].second);
    }
    coder.size = raw_offset(&geometry, geometry.componentCount);
    GuardedMemory noise(coder.size);
    noise.fillRandom(seed);
    memory = noise.bytes();
    coder.memory = memory.data();
  }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
};

// The formulas of the header, pixel by pixel.
class Model {
 public:
  explicit Model(const Picture& picture) : picture_(picture), g_(picture.coder.geometry) {}

  // Blue, green and red, or for 8 bits the grey.
  void pixel(int x, int y, int bitCount, uint8_t* out) const {
    const int first = upsampled(0, x, y);
    if (g_.colorSpace == KVL_JPEG_GREY || (bitCount == 8 && g_.colorSpace == KVL_JPEG_YCBCR)) {
      std::fill_n(out, bitCount / 8, static_cast<uint8_t>(first));
      return;
    }
    const int second = upsampled(1, x, y), third = upsampled(2, x, y);
    if (g_.colorSpace == KVL_JPEG_RGB && bitCount == 8) {
      const double luma = (19595.0 * first + 38470.0 * second + 7471.0 * third + 32768) / 65536;
      *out = static_cast<uint8_t>(floorOf(luma));
      return;
    }
    const double u = second - 128, v = third - 128;
    const double sums[] = {116130 * u, -22554 * u - 46802 * v, 91881 * v};
    const int rgb[] = {third, second, first};
    for (int c = 0; c < 3; ++c) {
      const int value =
          g_.colorSpace == KVL_JPEG_RGB ? rgb[c] : first + floorOf((sums[c] + 32768) / 65536);
      out[c] = static_cast<uint8_t>(std::clamp(value, 0, 255));
    }
  }

 private:
  static int floorOf(double value) { return static_cast<int>(std::floor(value)); }

  int largest(const uint8_t* factors) const {
    return *std::max_element(factors, factors + g_.componentCount);
  }

  int sample(int c, int i, int j) const {
    const int across = largest(g_.horizontal), down = largest(g_.vertical);
    const int width = (g_.width * g_.horizontal[c] + across - 1) / across;
    const int height = (g_.height * g_.vertical[c] + down - 1) / down;
    i = std::clamp(i, 0, width - 1);
    j = std::clamp(j, 0, height - 1);
    return picture_.memory[raw_offset(&g_, c) + static_cast<size_t>(j) * raw_width(&g_, c) + i];
  }

  int upsampled(int c, int x, int y) const {
    const int h = g_.horizontal[c], v = g_.vertical[c];
    const int across = largest(g_.horizontal), down = largest(g_.vertical);
    const bool smooth = (across == h || across == 2 * h) && (down == v || down == 2 * v);
    if (!smooth) return sample(c, x * h / across, y * v / down);
    const int i = x * h / across, j = y * v / down;
    const int di = x % 2 == 0 ? -1 : 1, dj = y % 2 == 0 ? -1 : 1;
    const bool wide = across == 2 * h, tall = down == 2 * v;
    if (!wide && !tall) return sample(c, x, y);
    if (!tall) return (3 * sample(c, i, j) + sample(c, i + di, j) + 1 + x % 2) / 4;
    if (!wide) return (3 * sample(c, i, j) + sample(c, i, j + dj) + 1 + y % 2) / 4;
    const auto column = [&](int k) { return 3 * sample(c, k, j) + sample(c, k, j + dj); };
    return (3 * column(i) + column(i + di) + 8 - x % 2) / 16;
  }

  const Picture& picture_;
  const KVL_JpegGeometry& g_;
};

KVL_JpegReadOptions makeOptions(RECT crop = {0, 0, 0, 0}, int bitCount = 0, int topDown = 0) {
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.crop = crop;
  options.bitCount = bitCount;
  options.topDown = topDown;
  return options;
}

// What `image` must hold once the pixels of the crop were put at (left, top) of it.
std::vector<uint8_t> expectedBytes(const Picture& picture, const TestImage& image, RECT crop,
                                   int left, int top) {
  const Model model(picture);
  std::vector<uint8_t> bytes = image.bytes();
  const int rows = std::abs(image.height());
  for (int y = 0; y < crop.bottom - crop.top && top + y < rows; ++y) {
    const int row = image.height() > 0 ? rows - 1 - top - y : top + y;
    size_t at = static_cast<size_t>(row) * image.stride() +
                static_cast<size_t>(left * image.header.biBitCount / 8);
    for (int x = 0; x < crop.right - crop.left && left + x < image.width(); ++x) {
      model.pixel(crop.left + x, crop.top + y, image.header.biBitCount, &bytes[at]);
      at += image.header.biBitCount / 8u;
    }
  }
  return bytes;
}

void expectDib(Picture& picture, RECT crop, uint16_t bitCount, int topDown, GuardAt guard) {
  const KVL_JpegDecoder decoder = raw_decoder(&picture.coder);
  const KVL_JpegReadOptions options = makeOptions(crop, bitCount, topDown);
  if (crop.right == 0) crop = {0, 0, picture.coder.geometry.width, picture.coder.geometry.height};
  const int width = crop.right - crop.left, height = crop.bottom - crop.top;
  TestImage image(width, topDown != 0 ? -height : height, bitCount, guard);
  const std::vector<uint8_t> expected = expectedBytes(picture, image, crop, 0, 0);
  BITMAPINFOHEADER header;
  size_t size = image.stride() * static_cast<size_t>(height);
  int32_t rows = -1;
  ASSERT_EQ(KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, image.bits(), &size, &rows),
            0);
  ASSERT_EQ(rows, height);
  ASSERT_EQ(text(header.biWidth, " ", header.biHeight, " ", header.biBitCount),
            text(width, " ", image.height(), " ", bitCount));
  expectBytes(expected, image, text(width, " x ", height, " of ", picture.coder.geometry.width));
}

struct Kind {
  int colorSpace;
  std::vector<std::pair<int, int>> factors;
};

const std::vector<Kind> kinds = {
    {KVL_JPEG_YCBCR, {{2, 2}, {1, 1}, {1, 1}}},
    {KVL_JPEG_YCBCR, {{2, 1}, {1, 1}, {1, 1}}},
    {KVL_JPEG_YCBCR, {{1, 2}, {1, 1}, {1, 1}}},
    {KVL_JPEG_YCBCR, {{1, 1}, {1, 1}, {1, 1}}},
    {KVL_JPEG_YCBCR, {{2, 2}, {2, 1}, {1, 2}}},
    {KVL_JPEG_YCBCR, {{1, 1}, {2, 2}, {2, 2}}},
    {KVL_JPEG_YCBCR, {{1, 2}, {1, 2}, {1, 2}}},
    {KVL_JPEG_YCBCR, {{4, 1}, {1, 1}, {2, 1}}},
    {KVL_JPEG_YCBCR, {{3, 4}, {2, 3}, {1, 1}}},
    {KVL_JPEG_RGB, {{1, 1}, {1, 1}, {1, 1}}},
    {KVL_JPEG_RGB, {{2, 2}, {2, 2}, {1, 1}}},
    {KVL_JPEG_GREY, {{1, 1}}},
    {KVL_JPEG_GREY, {{2, 2}}},
};

TEST(JpegRead, ReadsPixelsAsWorkedByHand) {
  Picture picture(4, 1, KVL_JPEG_YCBCR, {{2, 1}, {1, 1}, {1, 1}});
  std::fill(picture.memory.begin(), picture.memory.end(), uint8_t{128});
  picture.memory[0] = 100;
  const size_t cr = raw_offset(&picture.coder.geometry, 2);
  picture.memory[cr] = 228;      // v = 100 at the left half,
  picture.memory[cr + 1] = 128;  // 0 at the right one: 228, 203, 153, 128 along the row
  const KVL_JpegDecoder decoder = raw_decoder(&picture.coder);
  BITMAPINFOHEADER header;
  uint8_t bits[12];
  size_t size = sizeof bits;
  ASSERT_EQ(KVL_QvjJpegToDib(&decoder, nullptr, 0, nullptr, &header, bits, &size, nullptr), 0);
  // R = 100 + 140.2 and G = 100 - 71.4; R = 128 + 105.2 and G = 128 - 53.6; ...
  const uint8_t expected[12] = {100, 29, 240, 128, 74, 233, 128, 110, 163, 128, 128, 128};
  EXPECT_EQ(std::vector<uint8_t>(bits, bits + 12), std::vector<uint8_t>(expected, expected + 12));
  EXPECT_EQ(text(header.biSize, " ", header.biPlanes, " ", header.biSizeImage), "40 1 12");
}

TEST(JpegRead, FollowsTheFormulasAtEveryLevelAndTeamSize) {
  forEverySmallSize(3, [](const SmallSize& s) {
    const Kind& kind = kinds[s.seed % kinds.size()];
    Picture picture(s.width, s.height, kind.colorSpace, kind.factors, s.seed);
    expectDib(picture, {0, 0, 0, 0}, s.seed % 3 == 0 ? 8 : 24, s.seed % 4 < 2, s.guard);
  });
  forEachLevelAndTeam([] {
    for (const Kind& kind : kinds) {
      Picture picture(201, 155, kind.colorSpace, kind.factors, 3);
      expectDib(picture, {0, 0, 0, 0}, 24, 0, GuardAt::end);
      expectDib(picture, {37, 62, 118, 131}, 24, 1, GuardAt::start);
      expectDib(picture, {36, 31, 37, 32}, 8, 0, GuardAt::end);
    }
  });
}

TEST(JpegRead, TellsTheNeededSize) {
  initialise();
  Picture picture(21, 10, KVL_JPEG_GREY, {{1, 1}});
  // Reading a row would fail.
  picture.coder.hook = [](RawCoder*, RawCall call, int32_t) { return call == raw_rows ? 9 : 0; };
  const KVL_JpegDecoder decoder = raw_decoder(&picture.coder);
  uint8_t bits[240];
  for (uint8_t* into : {static_cast<uint8_t*>(nullptr), bits}) {
    BITMAPINFOHEADER header;
    size_t size = 239;
    int32_t rows = 5;
    EXPECT_EQ(KVL_QvjJpegToDib(&decoder, nullptr, 0, nullptr, &header, into, &size, &rows),
              KVL_JPEG_NEEDS_BUFFER);
    EXPECT_EQ(text(size, " ", rows, " ", header.biWidth, " ", header.biHeight), "240 0 21 10");
    EXPECT_EQ(header.biBitCount, 8);
  }
}

TEST(JpegRead, DecompressesIntoARectangleOfEitherOrientation) {
  forEachLevelAndTeam([] {
    Picture picture(90, 70, KVL_JPEG_YCBCR, {{2, 2}, {1, 1}, {1, 1}}, 4);
    const KVL_JpegDecoder decoder = raw_decoder(&picture.coder);
    const RECT crop = {11, 5, 74, 66};
    const KVL_JpegReadOptions options = makeOptions(crop);
    // Larger than the crop, smaller, and of one pixel in a corner.
    const RECT rects[] = {{3, 7, 97, 79}, {10, 10, 40, 30}, {99, 79, 100, 80}, {0, 0, 1, 1}};
    for (const int height : {80, -80}) {
      for (const uint16_t bitCount : {uint16_t{8}, uint16_t{24}}) {
        for (const RECT& rect : rects) {
          const size_t stride = 311;
          TestImage image(100, height, bitCount, guardOf(height > 0), stride);
          const RECT cut = {crop.left, crop.top,
                            crop.left + std::min(crop.right - crop.left, rect.right - rect.left),
                            crop.top + std::min(crop.bottom - crop.top, rect.bottom - rect.top)};
          const std::vector<uint8_t> expected =
              expectedBytes(picture, image, cut, rect.left, rect.top);
          int32_t rows = 0;
          ASSERT_EQ(KVL_QvjDecompress(&decoder, nullptr, 0, &options, &image.header, image.bits(),
                                      stride, &rect, &rows),
                    KVL_JPEG_OK);
          ASSERT_EQ(rows, cut.bottom - cut.top);
          expectBytes(expected, image);
        }
      }
    }
    TestImage whole(90, 70);
    const std::vector<uint8_t> expected = expectedBytes(picture, whole, {0, 0, 90, 70}, 0, 0);
    KVL_QvjDecompress(&decoder, nullptr, 0, nullptr, &whole.header, whole.bits(), 0, nullptr,
                      nullptr);
    expectBytes(expected, whole);
  });
}

TEST(JpegRead, CutsACropAndStopsReadingBelowIt) {
  initialise();
  Picture picture(100, 100, KVL_JPEG_GREY, {{1, 1}});
  int lastRow = 0;
  picture.coder.context = &lastRow;
  picture.coder.hook = [](RawCoder* coder, RawCall call, int32_t row) {
    if (call == raw_rows) *static_cast<int*>(coder->context) = row;
    return 0;
  };
  const KVL_JpegDecoder decoder = raw_decoder(&picture.coder);
  BITMAPINFOHEADER header;
  uint8_t bits[3 * 12];
  size_t size = sizeof bits;
  const auto statusOf = [&](const RECT& crop) {
    const KVL_JpegReadOptions options = makeOptions(crop);
    return KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, bits, &size, nullptr);
  };
  EXPECT_EQ(statusOf({90, 20, 200, 23}), 0);
  EXPECT_EQ(header.biWidth, 10);
  EXPECT_EQ(lastRow, 2);
  for (const RECT& crop : {RECT{100, 0, 101, 1}, {5, 5, 5, 9}, {9, 9, 5, 20}, {-9, 0, 0, 5}}) {
    EXPECT_EQ(statusOf(crop), KVL_JPEG_INVALID_ARGUMENT);
  }
}

// Every pair of chroma values at several lumas: the vector body splits its factors.
TEST(DecodeRowKernels, ConvertEveryChromaAlike) {
  initialise();
  const InstructionSet best = availableLevels().back();
  constexpr size_t margin = 64;
  std::vector<uint8_t> y(256 + 2 * margin), cb = y, cr = y, expected(768), actual(768);
  for (size_t v = 0; v < 256; ++v) cr[margin + v] = static_cast<uint8_t>(v);
  for (const int luma : {0, 1, 127, 254, 255}) {
    std::fill(y.begin(), y.end(), static_cast<uint8_t>(luma));
    for (size_t u = 0; u < 256; ++u) {
      std::fill(cb.begin(), cb.end(), static_cast<uint8_t>(u));
      const auto run = [&](InstructionSet level, std::vector<uint8_t>& out) {
        decodeRowKernels(level).toRgb(y.data() + margin, cb.data() + margin, cr.data() + margin,
                                      out.data(), 256);
      };
      run(InstructionSet::scalar, expected);
      run(best, actual);
      ASSERT_EQ(expected, actual) << luma << " " << u;
    }
  }
}

}  // namespace
}  // namespace kvl::test
