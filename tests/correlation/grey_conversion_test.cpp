#include "support/testing.h"

namespace kvl::test {
namespace {

uint8_t grey(const uint8_t* pixel) {
  return static_cast<uint8_t>((77 * pixel[0] + 151 * pixel[1] + 28 * pixel[2]) / 256);
}

// A packed bitmap: its pixels begin `offset` bytes after the header's first.
struct Packed {
  Packed(size_t offset, size_t pixelBytes, GuardAt guard, uint64_t seed)
      : memory(offset + pixelBytes, guard), pixels(memory.data() + offset) {
    memory.fillRandom(seed);
    const uint32_t size = 0xABCD0000u | static_cast<uint32_t>(offset);
    std::memcpy(memory.data(), &size, sizeof size);
  }

  const BITMAPINFOHEADER* header() const {
    return reinterpret_cast<const BITMAPINFOHEADER*>(memory.data());
  }

  GuardedMemory memory;
  uint8_t* pixels;
};

CorrelationOptions optionsOf(int width, int height) {
  CorrelationOptions options;
  std::memset(&options, 0xEE, sizeof options);
  options.width = width;
  options.height = height;
  options.fieldRepair = options.fieldRepairMode = options.fieldParity = 0;
  options.source16Bit = options.channel = 0;
  return options;
}

using Rows = std::vector<Bytes>;

// What Convert2Gray must leave, row by row and with the repair after all conversion.
Rows model(const uint8_t* pixels, const CorrelationOptions& o) {
  const auto width = static_cast<size_t>(o.width);
  Rows rows(static_cast<size_t>(o.height), Bytes(width));
  const bool repair = o.fieldRepair != 0;
  if (o.source16Bit != 0) {
    for (size_t r = 0; r < rows.size(); ++r) {
      if (repair && r % 2 == 1 && o.fieldRepairMode == 1) continue;
      if (repair && r % 2 == 1 && o.fieldRepairMode == 2) {
        rows[r] = rows[r - 1];
        continue;
      }
      for (size_t i = 0; i < width; ++i) rows[r][i] = pixels[2 * i];
      pixels += 2 * width;
    }
    return rows;
  }
  const size_t stride = (width + 1) * 3 / 4 * 4;
  for (size_t r = 0; r < rows.size(); ++r) {
    for (size_t i = 0; i < width; ++i) {
      const uint8_t* pixel = pixels + r * stride + 3 * i;
      rows[r][i] = o.channel >= 1 && o.channel <= 3 ? pixel[o.channel - 1] : grey(pixel);
    }
  }
  const Rows converted = rows;
  for (size_t r = 2; repair && r < rows.size(); ++r) {
    const bool odd = (rows.size() - r - 1) % 2 == 1;
    if (odd != (o.fieldParity != 0)) continue;
    if (o.fieldRepairMode == 1) std::fill(rows[r].begin(), rows[r].end(), uint8_t{0});
    if (o.fieldRepairMode == 2 || o.fieldRepairMode == 4) rows[r] = converted[r - 1];
  }
  if (repair && o.fieldRepairMode == 4) {
    const bool heightIsEven = rows.size() % 2 == 0;
    for (size_t r = heightIsEven == (o.fieldParity == 0) ? 1 : 0; r + 2 <= rows.size(); r += 2) {
      for (size_t i = 0; i < width; ++i) {
        rows[r][i] = static_cast<uint8_t>((rows[r][i] + rows[r + 1][i]) / 2);
      }
    }
  }
  return rows;
}

void expectModel(const CorrelationOptions& o, uint64_t seed) {
  const size_t width = static_cast<size_t>(o.width), height = static_cast<size_t>(o.height);
  const size_t stride = (width + 1) * 3 / 4 * 4;
  size_t sourceRows = height;
  const bool skipping = o.fieldRepair != 0 && (o.fieldRepairMode == 1 || o.fieldRepairMode == 2);
  if (o.source16Bit != 0 && skipping) sourceRows = (height + 1) / 2;
  // Of 24-bit rows the last one's padding is not there.
  const size_t bytes =
      o.source16Bit != 0 ? sourceRows * 2 * width : (height - 1) * stride + 3 * width;
  const Packed source(40 + seed % 3, bytes, guardOf(seed), seed);
  TestImage result(o.width, o.height, 8, guardOf(seed), width);
  Bytes expected;
  for (const auto& row : model(source.pixels, o)) {
    expected.insert(expected.end(), row.begin(), row.end());
  }
  KVL_Convert2Gray(source.header(), result.bits(), &o);
  expectBytes(expected, result,
              text(o.width, " x ", o.height, " repair ", o.fieldRepair, " mode ", o.fieldRepairMode,
                   " 16 bit ", o.source16Bit, " channel ", o.channel, " parity ", o.fieldParity));
}

TEST(ConvertFrameToGray, WeighsBlueMostAndRedLeast) {
  const uint8_t pixels[] = {255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30};
  uint8_t out[5] = {};
  KVL_ConvertFrameToGray(pixels, 15, out, 5, 5, 1);
  const uint8_t expected[5] = {255, 76, 150, 27, 18};  // 255 * 77 / 256 = 76.7; 4630 / 256 = 18.1
  for (int i = 0; i < 5; ++i) EXPECT_EQ(out[i], expected[i]) << i;
}

TEST(ConvertFrameToGray, FollowsTheFormulaWithAnyStrideAndLeavesPadding) {
  forEachLevelAndTeam([] {
    for (int width = 1; width <= 80; ++width) {
      // The widest holds each value of a byte in each component, beside many of the others.
      const int columns = width < 80 ? width : 4096, height = 1 + width * 7 % 9;
      const size_t padding = static_cast<size_t>(width % 4), w = static_cast<size_t>(columns);
      TestImage source(columns, height, 24, guardOf(w), 3 * w + padding);
      const TestImage result(columns, height, 8, guardOf(w), w + padding);
      source.fillRandom(w);
      // Every other case reads the rows from the last to the first.
      const bool upwards = width % 3 == 0;
      Bytes expected = result.bytes();
      for (int y = 0; y < height; ++y) {
        const uint8_t* row = source.row(upwards ? height - 1 - y : y);
        uint8_t* out = &expected[static_cast<size_t>(y) * result.stride()];
        for (int x = 0; x < columns; ++x) out[x] = grey(row + 3 * x);
      }
      const auto stride = static_cast<int32_t>(source.stride());
      KVL_ConvertFrameToGray(source.row(upwards ? height - 1 : 0), upwards ? -stride : stride,
                             result.bits(), static_cast<int32_t>(result.stride()), columns, height);
      expectBytes(expected, result, text(columns));
    }
  });
}

TEST(Convert2Gray, BlanksTheRowsOfAFieldAsWorkedByHand) {
  const Packed source(40, 6 * 4, GuardAt::end, 1);
  CorrelationOptions options = optionsOf(1, 6);
  options.fieldRepair = 1;
  options.channel = 2;
  for (int r = 0; r < 6; ++r) source.pixels[r * 4 + 1] = static_cast<uint8_t>(r + 1);
  const auto repaired = [&](uint32_t mode, uint32_t parity) {
    options.fieldRepairMode = mode;
    options.fieldParity = parity;
    Bytes out(6);
    KVL_Convert2Gray(source.header(), out.data(), &options);
    return out;
  };
  EXPECT_EQ(repaired(1, 0), (Bytes{1, 2, 3, 0, 5, 0}));
  EXPECT_EQ(repaired(1, 7), (Bytes{1, 2, 0, 4, 0, 6}));
  EXPECT_EQ(repaired(4, 7), (Bytes{1, 2, 3, 4, 5, 6}));  // (1 + 2) / 2, (2 + 4) / 2, (4 + 6) / 2
}

TEST(Convert2Gray, FollowsTheModelInEveryModeAtEveryLevelAndTeamSize) {
  forEachLevelAndTeam([] {
    Random random(5);
    for (uint64_t seed = 0; seed < 600; ++seed) {
      CorrelationOptions options = optionsOf(random.range(1, 41), random.range(1, 23));
      if (seed == 0) options = optionsOf(1919, 271);
      options.fieldRepair = static_cast<uint32_t>(random.range(0, 2));
      options.fieldRepairMode = static_cast<uint32_t>(random.range(0, 5));
      options.source16Bit = static_cast<uint32_t>(random.range(0, 3) == 0);
      options.channel = static_cast<uint32_t>(random.range(-1, 4));
      options.fieldParity = static_cast<uint32_t>(random.range(0, 2));
      expectModel(options, seed);
    }
  });
}

TEST(GreyConversions, ChangeNothingForInvalidArguments) {
  const Packed source(40, 64, GuardAt::end, 1);
  const TestImage result(4, 4, 8);
  const CorrelationOptions good = optionsOf(4, 4);
  BadCalls packed(KVL_Convert2Gray, source.header(), result.bits(), &good);
  packed.watch(result).eachNull();
  packed.with<2>({optionsOf(0, 4), optionsOf(4, 0), optionsOf(-4, 4), optionsOf(4, INT32_MIN),
                  optionsOf(INT32_MAX, 4), optionsOf(715827883, 1),
                  optionsOf(INT32_MAX, INT32_MAX)});
  uint8_t* const out = result.bits();
  BadCalls frame(KVL_ConvertFrameToGray, source.pixels, 12, out, 4, 4, 4);
  frame.watch(result).eachNull();
  frame.with<4>({0, -4});
  frame.with<5>({0, INT32_MIN});
  frame.call({source.pixels, INT32_MAX, out, INT32_MAX, 4, INT32_MAX}, "beyond the address space");
  frame.call({source.pixels, INT32_MIN, out, INT32_MIN, 4, INT32_MAX}, "below address 0");
}

}  // namespace
}  // namespace kvl::test
