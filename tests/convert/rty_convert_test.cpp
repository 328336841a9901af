// KVL_RtyConvert.
#include <omp.h>

#include <array>

#include "convert/frames.h"
#include "convert/rgb_to_yuv_model.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

enum Mode { box420, even422, full444, vertical420 };
constexpr unsigned interlaced = 1, bottomUp = 8;

// Which rows of the source make a pair, and where it goes; b is -1 where the pair has one row.
struct Pair {
  int a, b, y, chroma;
};

std::vector<Pair> pairsOf(int height, unsigned flags) {
  std::vector<Pair> pairs;
  const bool fields = (flags & interlaced) != 0;
  const int start = (flags & bottomUp) != 0 ? height - 1 : 0;
  const int down = (flags & bottomUp) != 0 ? -1 : 1;
  for (int pass = 0; pass < 2; ++pass) {
    const int count = pass == 0 ? (height + 2) / 4 : height / 4;
    for (int k = 0; k < count; ++k) {
      const int y = 4 * k + pass * (fields ? 1 : 2);
      const int a = start + down * pass * (fields ? 1 : 2) + 4 * k;
      const int b = a + down * (fields ? 2 : 1);
      pairs.push_back({a, y + (fields ? 2 : 1) < height ? b : -1, y, 2 * k + pass});
    }
  }
  return pairs;
}

struct Call {
  int mode = 0;
  unsigned flags = 0;
  int width = 20, height = 8;
  int sourceStride = 60;
  int padding[3] = {};  // of the rows of Y, U, V
  int scratchPadding = 0;
  ColorConversionParams block{};
  uint64_t seed = 1;

  bool halved() const { return mode == box420 || mode == vertical420; }
  int chromaWidth() const { return mode == full444 ? width : (width + 1) / 2; }
  int chromaRows() const { return halved() ? (height + 2) / 4 + height / 4 : height; }
  int sourceRows() const {
    int rows = height;
    if (!halved()) return rows;
    for (const Pair& pair : pairsOf(height, flags)) rows = std::max({rows, pair.a + 1, pair.b + 1});
    return rows;
  }
  size_t strideOf(size_t plane) const {
    return static_cast<size_t>((plane == 0 ? width : chromaWidth()) + padding[plane]);
  }
  size_t planeAt(size_t plane) const {
    const auto rows = static_cast<size_t>(chromaRows());
    const size_t y = static_cast<size_t>(height) * strideOf(0);
    return plane == 0   ? 0
           : plane == 1 ? y
           : plane == 2 ? y + rows * strideOf(1)
                        : y + rows * (strideOf(1) + strideOf(2));
  }
};

// The buffers of a call, each with nothing behind or before it.
struct Buffers {
  explicit Buffers(const Call& c)
      : call(c),
        sourceMemory(
            static_cast<size_t>((c.sourceRows() - 1) * std::abs(c.sourceStride) + 3 * c.width),
            guardOf(c.seed)),
        planes(c.planeAt(3), guardOf(c.seed)),
        scratchA(static_cast<size_t>(omp_get_max_threads() * 2 * (c.width + c.scratchPadding)),
                 guardOf(c.seed)),
        scratchB(scratchA.size(), guardOf(c.seed)) {
    fillColours(sourceMemory, c.seed);
    record.flags = c.flags;
    record.mode = static_cast<uint32_t>(c.mode);
    record.width = static_cast<uint32_t>(c.width);
    record.height = static_cast<uint32_t>(c.height);
    record.srcStride = c.sourceStride;
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + 24, &c.block, 146);
    record.scratchA = scratchA.data();
    record.scratchB = scratchB.data();
    record.scratchRowSize = static_cast<uint32_t>(c.width + c.scratchPadding);
    record.uPlaneOffset = static_cast<uint32_t>(c.planeAt(1));
    record.vPlaneOffset = static_cast<uint32_t>(c.planeAt(2));
    record.yStride = static_cast<uint32_t>(c.strideOf(0));
    record.uStride = static_cast<uint32_t>(c.strideOf(1));
    record.vStride = static_cast<uint32_t>(c.strideOf(2));
  }

  const uint8_t* row(int r) const {
    const int stride = call.sourceStride;
    return sourceMemory.data() + (stride < 0 ? (call.sourceRows() - 1 - r) * -stride : r * stride);
  }

  const Call call;
  GuardedMemory sourceMemory, planes, scratchA, scratchB;
  RtyConvertRecord record{};
};

uint8_t vectorChroma(int sum, int offset) {
  const int rounded = std::clamp(sum + (sum < 0 ? -128 : 128), -32768, 32767);
  const int shifted = (rounded - (((rounded % 256) + 256) % 256)) / 256;
  return static_cast<uint8_t>(std::clamp(shifted + offset + 128, 0, 255));
}

class Model {
 public:
  explicit Model(const Buffers& buffers)
      : planes(buffers.planes.bytes()), buffers_(buffers), call_(buffers.call) {
    if (call_.halved()) {
      for (const Pair& pair : pairsOf(call_.height, call_.flags)) convertPair(pair);
      return;
    }
    for (int r = 0; r < call_.height; ++r) {
      const int from = (call_.flags & bottomUp) != 0 ? call_.height - 1 - r : r;
      convertLuma(from, r);
      for (int i = 0; i < call_.chromaWidth(); ++i) {
        for (size_t c : {1, 2}) at(c, r, i) = pixel(from, call_.mode == full444 ? i : 2 * i)[c];
      }
    }
  }

  std::vector<uint8_t> planes;

 private:
  uint8_t& at(size_t plane, int r, int i) {
    return planes[call_.planeAt(plane) + static_cast<size_t>(r) * call_.strideOf(plane) +
                  static_cast<size_t>(i)];
  }

  // Y, U and V of pixel x of a row. One past the row lies in the scratch row, as far as there is one.
  std::array<uint8_t, 3> pixel(int from, int x) const {
    if (x == call_.width && call_.scratchPadding > 0) return {0xCD, 0xCD, 0xCD};
    x = std::min(x, call_.width - 1);
    const ColorConversionParams& p = call_.block;
    const uint8_t* in = buffers_.row(from) + 3 * x;
    const Rgb rgb = {in[2], in[1], in[0]};
    if (vectors_ && x < call_.width / 16 * 16) {
      const Yuv sums = sums16(p, rgb);
      return {vectorLuma(p, rgb), vectorChroma(sums.u, p.uOffset), vectorChroma(sums.v, p.vOffset)};
    }
    const auto low8 = [](int a, int b) { return static_cast<uint8_t>((a & 255) + (b & 255)); };
    const Yuv yuv = scalarYuv(p, rgb);
    return {low8(yuv.y, p.yOffset), low8(yuv.u, p.uOffset), low8(yuv.v, p.vOffset)};
  }

  void convertLuma(int from, int row) {
    for (int x = 0; x < call_.width; ++x) at(0, row, x) = pixel(from, x)[0];
  }

  void convertPair(const Pair& pair) {
    convertLuma(pair.a, pair.y);
    if (pair.b >= 0) convertLuma(pair.b, pair.y + ((call_.flags & interlaced) != 0 ? 2 : 1));
    const int second = pair.b < 0 ? pair.a : pair.b;
    for (int i = 0; i < call_.chromaWidth(); ++i) {
      const bool box = call_.mode == box420 && vectors_ && i < call_.chromaWidth() / 16 * 16;
      for (size_t c : {1, 2}) {
        const int sum = pixel(pair.a, 2 * i)[c] + pixel(second, 2 * i)[c];
        const int odd = pixel(pair.a, 2 * i + 1)[c] + pixel(second, 2 * i + 1)[c];
        at(c, pair.chroma, i) = static_cast<uint8_t>(box ? (sum + odd + 2) / 4 : (sum + 1) / 2);
      }
    }
  }

  const Buffers& buffers_;
  const Call& call_;
  const bool vectors_ = instructionSet() >= InstructionSet::ssse3;
};

void expectModel(const Call& call) {
  const Buffers buffers(call);
  const Model model(buffers);
  ASSERT_EQ(KVL_RtyConvert(&buffers.record, buffers.row(0), buffers.planes.data()), 0);
  expectBytes(model.planes, buffers.planes.bytes(), buffers.record.yStride, 1,
              text("mode ", call.mode, ", flags ", call.flags, ", ", call.width, " x ", call.height,
                   ", source stride ", call.sourceStride));
}

ColorConversionParams centredBlock() {
  ColorConversionParams block = builtInBlock(true);
  block.uOffset = block.vOffset = 128;
  return block;
}

// Two pixels of one colour a row, 66 * 200 + 129 * 100 + 25 * 50 = 27350:
//   Y  (27350 + 128 >> 8) + 16 = 123
//   Cb (-37 * 200 - 73 * 100 + 112 * 50 + 128 >> 8) + 128 = (-8972 >> 8) + 128 = 92
//   Cr (112 * 200 - 93 * 100 - 17 * 50 + 128 >> 8) + 128 = (12378 >> 8) + 128 = 176
// and a second row of black, with 16, 128, 128.
TEST(RtyConvert, AveragesTwoRowsAsWorkedByHand) {
  const uint8_t source[12] = {50, 100, 200, 50, 100, 200};
  uint8_t planes[6] = {}, scratch[2][4 * 64];
  RtyConvertRecord record{};
  const ColorConversionParams block = centredBlock();
  std::memcpy(reinterpret_cast<uint8_t*>(&record) + 24, &block, 146);
  record.width = record.height = record.yStride = record.scratchRowSize = 2;
  record.srcStride = 6;
  record.uPlaneOffset = 4;
  record.vPlaneOffset = 5;
  record.uStride = record.vStride = 1;
  record.scratchA = scratch[0];
  record.scratchB = scratch[1];
  initialise();
  for (const uint32_t mode : {box420, vertical420}) {
    record.mode = mode;
    EXPECT_EQ(KVL_RtyConvert(&record, source, planes), 0);
    const std::vector<uint8_t> expected = {
        123, 123, 16, 16, (92 + 128 + 1) / 2, (176 + 128 + 1) / 2};
    EXPECT_EQ(std::vector(planes, planes + 6), expected) << mode;
  }
}

TEST(RtyConvert, FollowsTheModelAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(21);
    for (uint64_t n = 0; n < 600; ++n) {
      Call call;
      call.mode = random.range(0, 3);
      call.flags = static_cast<unsigned>(random.range(0, 15));
      call.width = n < 264 ? static_cast<int>(n / 4) + 1 : random.range(1, n % 20 == 0 ? 500 : 80);
      call.height = random.range(1, n < 264 ? 11 : 40);
      call.sourceStride = (3 * call.width + random.range(0, 5)) * (n % 4 == 0 ? -1 : 1);
      for (int& padding : call.padding) padding = random.range(0, 4);
      call.scratchPadding = n % 3 == 0 ? 0 : random.range(0, 20);
      call.block = n % 3 == 0 ? centredBlock() : randomBlock(random, n % 3 == 1);
      call.seed = n;
      expectModel(call);
    }
  });
}

TEST(RtyConvert, BadCallsChangeNoByte) {
  for (const int mode : {box420, even422, full444, vertical420}) {
    Call call;
    call.mode = mode;
    call.block = centredBlock();
    const Buffers buffers(call);
    BadCalls calls(KVL_RtyConvert, &buffers.record, buffers.row(0), buffers.planes.data());
    calls.watch(buffers.planes.data(), buffers.planes.size());
    calls.watch(buffers.scratchA.data(), buffers.scratchA.size());
    calls.watch(buffers.scratchB.data(), buffers.scratchB.size());
    calls.expect(1).eachNull(0, 1);
    calls.withChanged<0>([](auto& r) { r.height = 0; });
    calls.expect(0).eachNull(1, 3);
    calls.withChanged<0>([](auto& r) { r.width = 0; }, [](auto& r) { r.mode = 4; },
                         [](auto& r) { r.yStride = 19; }, [](auto& r) { r.uStride = 9; },
                         [](auto& r) { r.vStride = 9; }, [](auto& r) { r.height = UINT32_MAX; },
                         [](auto& r) {
                           r.width = r.yStride = r.uStride = r.vStride = UINT32_MAX;
                           r.scratchRowSize = UINT32_MAX;
                         },
                         [](auto& r) {
                           r.height = INT32_MAX;
                           r.srcStride = INT32_MIN;
                         });
    if (mode == full444) continue;
    calls.withChanged<0>([](auto& r) { r.scratchA = nullptr; },
                         [](auto& r) { r.scratchRowSize = 19; });
    if (mode != even422) calls.withChanged<0>([](auto& r) { r.scratchB = nullptr; });
  }
}

}  // namespace
}  // namespace kvl::test
