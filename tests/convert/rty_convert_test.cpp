// KVL_RtyConvert.
#include <omp.h>

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
  int width = 1, height = 1;
  int sourceStride = 3;
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
};

// The buffers of a call, each with nothing behind or before it.
struct Buffers {
  explicit Buffers(const Call& of)
      : call(of),
        yBytes(call.height * (call.width + call.padding[0])),
        uBytes(call.chromaRows() * (call.chromaWidth() + call.padding[1])),
        vBytes(call.chromaRows() * (call.chromaWidth() + call.padding[2])),
        sourceMemory(static_cast<size_t>((call.sourceRows() - 1) * std::abs(call.sourceStride) +
                                         3 * call.width),
                     guardOf(call.seed)),
        planes(static_cast<size_t>(yBytes + uBytes + vBytes), guardOf(call.seed)),
        scratchA(static_cast<size_t>(omp_get_max_threads() * 2 * scratchRow()), guardOf(call.seed)),
        scratchB(scratchA.size(), guardOf(call.seed)) {
    fillColours(sourceMemory, call.seed);
    record.flags = call.flags;
    record.mode = static_cast<uint32_t>(call.mode);
    record.width = static_cast<uint32_t>(call.width);
    record.height = static_cast<uint32_t>(call.height);
    record.srcStride = call.sourceStride;
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + 24, &call.block, 146);
    record.scratchA = scratchA.data();
    record.scratchB = scratchB.data();
    record.scratchRowSize = static_cast<uint32_t>(scratchRow());
    record.uPlaneOffset = static_cast<uint32_t>(yBytes);
    record.vPlaneOffset = static_cast<uint32_t>(yBytes + uBytes);
    record.yStride = static_cast<uint32_t>(call.width + call.padding[0]);
    record.uStride = static_cast<uint32_t>(call.chromaWidth() + call.padding[1]);
    record.vStride = static_cast<uint32_t>(call.chromaWidth() + call.padding[2]);
  }

  int scratchRow() const { return call.width + call.scratchPadding; }
  const uint8_t* source() const { return row(0); }
  const uint8_t* row(int r) const {
    const int stride = call.sourceStride;
    return sourceMemory.data() + (stride < 0 ? (call.sourceRows() - 1 - r) * -stride : r * stride);
  }
  std::vector<uint8_t> scratchBytes() const {
    std::vector<uint8_t> both = scratchA.bytes(), b = scratchB.bytes();
    both.insert(both.end(), b.begin(), b.end());
    return both;
  }

  const Call call;
  const int yBytes, uBytes, vBytes;
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
      : planes(buffers.planes.bytes()),
        scratch_(buffers.scratchBytes()),
        call_(buffers.call),
        buffers_(buffers) {
    const Call& call = call_;
    if (call.halved()) {
      for (const Pair& pair : pairsOf(call.height, call.flags)) convertPair(pair);
      return;
    }
    for (int r = 0; r < call.height; ++r) {
      const int from = (call.flags & bottomUp) != 0 ? call.height - 1 - r : r;
      if (call.mode == full444) {
        convertRow(from, y(r), chroma(0, r), chroma(1, r));
      } else {
        convertRow(from, y(r), scratchRow(0, 0), scratchRow(0, 1));
        for (int i = 0; i < call.chromaWidth(); ++i) {
          for (int c = 0; c < 2; ++c) chroma(c, r)[i] = scratchRow(0, c)[2 * i];
        }
      }
    }
  }

  std::vector<uint8_t> planes;

 private:
  uint8_t* y(int r) { return &planes[static_cast<size_t>(r) * buffers_.record.yStride]; }
  uint8_t* chroma(int plane, int r) {
    const RtyConvertRecord& record = buffers_.record;
    const size_t at = plane == 0 ? record.uPlaneOffset + static_cast<size_t>(r) * record.uStride
                                 : record.vPlaneOffset + static_cast<size_t>(r) * record.vStride;
    return planes.data() + at;
  }
  uint8_t* scratchRow(int area, int plane) {
    return &scratch_[static_cast<size_t>((area * 2 + plane) * buffers_.scratchRow())];
  }

  void convertRow(int from, uint8_t* yRow, uint8_t* uRow, uint8_t* vRow) {
    const ColorConversionParams& p = call_.block;
    for (int x = 0; x < call_.width; ++x) {
      const uint8_t* in = buffers_.row(from) + 3 * x;
      const Rgb pixel = {in[2], in[1], in[0]};
      if (vectors_ && x < call_.width / 16 * 16) {
        const Yuv sums = sums16(p, pixel);
        yRow[x] = vectorLuma(p, pixel);
        uRow[x] = vectorChroma(sums.u, p.uOffset);
        vRow[x] = vectorChroma(sums.v, p.vOffset);
      } else {
        const Yuv yuv = scalarYuv(p, pixel);
        yRow[x] = static_cast<uint8_t>((yuv.y & 255) + (p.yOffset & 255));
        uRow[x] = static_cast<uint8_t>((yuv.u & 255) + (p.uOffset & 255));
        vRow[x] = static_cast<uint8_t>((yuv.v & 255) + (p.vOffset & 255));
      }
    }
  }

  void convertPair(const Pair& pair) {
    convertRow(pair.a, y(pair.y), scratchRow(0, 0), scratchRow(0, 1));
    const int second = pair.b < 0 ? 0 : 1;
    if (pair.b >= 0) {
      const int step = (call_.flags & interlaced) != 0 ? 2 : 1;
      convertRow(pair.b, y(pair.y + step), scratchRow(1, 0), scratchRow(1, 1));
    }
    for (int c = 0; c < 2; ++c) {
      const uint8_t *a = scratchRow(0, c), *b = scratchRow(second, c);
      for (int i = 0; i < call_.chromaWidth(); ++i) {
        const bool box = call_.mode == box420 && vectors_ && i < call_.chromaWidth() / 16 * 16;
        const int odd = std::min(2 * i + 1, buffers_.scratchRow() - 1);
        chroma(c, pair.chroma)[i] = static_cast<uint8_t>(
            box ? (a[2 * i] + a[odd] + b[2 * i] + b[odd] + 2) / 4 : (a[2 * i] + b[2 * i] + 1) / 2);
      }
    }
  }

  // Both areas, of which one thread's slice is used.
  std::vector<uint8_t> scratch_;
  const Call& call_;
  const Buffers& buffers_;
  const bool vectors_ = instructionSet() >= InstructionSet::ssse3;
};

void expectModel(const Call& call) {
  const Buffers buffers(call);
  const Model model(buffers);
  ASSERT_EQ(KVL_RtyConvert(&buffers.record, buffers.source(), buffers.planes.data()), 0);
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
  forEachLevel([] {
    Call call;
    call.width = 20;
    call.height = 8;
    call.sourceStride = 60;
    call.block = centredBlock();
    for (const int mode : {box420, even422, full444, vertical420}) {
      call.mode = mode;
      const Buffers buffers(call);
      Watch watch;
      watch.add(buffers.planes.data(), buffers.planes.size());
      watch.add(buffers.scratchA.data(), buffers.scratchA.size());
      watch.add(buffers.scratchB.data(), buffers.scratchB.size());
      const auto expectNothing = [&](const char* what, int status, auto change) {
        RtyConvertRecord record = buffers.record;
        change(record);
        EXPECT_EQ(KVL_RtyConvert(&record, buffers.source(), buffers.planes.data()), status) << what;
        watch.expectUnchanged(text(what, ", mode ", mode));
      };
      using Record = RtyConvertRecord;
      EXPECT_EQ(KVL_RtyConvert(nullptr, buffers.source(), buffers.planes.data()), 1);
      EXPECT_EQ(KVL_RtyConvert(&buffers.record, nullptr, buffers.planes.data()), 0);
      EXPECT_EQ(KVL_RtyConvert(&buffers.record, buffers.source(), nullptr), 0);
      expectNothing("height 0", 1, [](Record& r) { r.height = 0; });
      expectNothing("width 0", 0, [](Record& r) { r.width = 0; });
      expectNothing("mode", 0, [](Record& r) { r.mode = 4; });
      expectNothing("Y stride", 0, [](Record& r) { r.yStride = 19; });
      expectNothing("U stride", 0, [](Record& r) { r.uStride = 9; });
      expectNothing("V stride", 0, [](Record& r) { r.vStride = 9; });
      expectNothing("height", 0, [](Record& r) { r.height = UINT32_MAX; });
      expectNothing("width", 0, [](Record& r) {
        r.width = r.yStride = r.uStride = r.vStride = r.scratchRowSize = UINT32_MAX;
      });
      expectNothing("rows below address 0", 0, [](Record& r) {
        r.height = INT32_MAX;
        r.srcStride = INT32_MIN;
      });
      if (mode == full444) continue;
      expectNothing("scratch", 0, [](Record& r) { r.scratchA = nullptr; });
      expectNothing("scratch row", 0, [](Record& r) { r.scratchRowSize = 19; });
      if (mode != even422) expectNothing("scratch B", 0, [](Record& r) { r.scratchB = nullptr; });
    }
  });
}

}  // namespace
}  // namespace kvl::test
