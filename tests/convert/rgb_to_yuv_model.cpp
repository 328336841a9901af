#include "convert/rgb_to_yuv_model.h"

#include <algorithm>

namespace kvl::test {
namespace {

// The low 32 or 16 bits as a signed number.
int wrap32(int64_t value) {
  value &= 0xFFFFFFFF;
  return static_cast<int>(value >= 0x80000000 ? value - 0x100000000 : value);
}
int wrap16(int64_t value) {
  value &= 0xFFFF;
  return static_cast<int>(value >= 0x8000 ? value - 0x10000 : value);
}

int floorShift(int64_t value, int bits) {
  const int64_t divisor = int64_t{1} << bits;
  const int64_t remainder = ((value % divisor) + divisor) % divisor;
  return static_cast<int>((value - remainder) / divisor);
}

template <class Number>
int64_t weigh(const Number* row, Rgb p) {
  return int64_t{row[0]} * p.r + int64_t{row[1]} * p.g + int64_t{row[2]} * p.b;
}

uint8_t low8(int64_t value) {
  return static_cast<uint8_t>(value & 255);
}

}  // namespace

Yuv scalarYuv(const ColorConversionParams& p, Rgb pixel) {
  const int64_t chromaRounding = int64_t{p.chromaRounding} + p.rounding;
  const int shift = p.shift & 31;
  return {floorShift(wrap32(weigh(p.rgbToYuvInt, pixel) + p.rounding), shift),
          floorShift(wrap32(weigh(p.rgbToYuvInt + 3, pixel) + chromaRounding), shift),
          floorShift(wrap32(weigh(p.rgbToYuvInt + 6, pixel) + chromaRounding), shift)};
}

Yuv sums16(const ColorConversionParams& p, Rgb pixel) {
  return {wrap16(weigh(p.rgbToYuvShort, pixel)), wrap16(weigh(p.rgbToYuvShort + 3, pixel)),
          wrap16(weigh(p.rgbToYuvShort + 6, pixel))};
}

uint8_t vectorLuma(const ColorConversionParams& p, Rgb pixel) {
  const int sum = sums16(p, pixel).y & 0xFFFF;
  const int luma = std::min(65535, sum + 128) / 256;
  return static_cast<uint8_t>(std::min(255, luma + (p.yOffset & 255)));
}

std::array<uint8_t, 4> scalarPair(const ColorConversionParams& p, Rgb first, Rgb second,
                                  bool lumaFirst) {
  const Yuv a = scalarYuv(p, first), b = scalarYuv(p, second);
  const auto mean = [](int64_t c0, int64_t c1, int offset) {
    return wrap32(int64_t{wrap32(c0 + offset)} + wrap32(c1 + offset) + 1) / 2;
  };
  const uint8_t y0 = low8(int64_t{a.y} + p.yOffset), y1 = low8(int64_t{b.y} + p.yOffset);
  const uint8_t u = low8(mean(a.u, b.u, p.uOffset)), v = low8(mean(a.v, b.v, p.vOffset));
  if (lumaFirst) return {y0, u, y1, v};
  return {u, y0, v, y1};
}

std::array<uint8_t, 16> vectorPairs(const ColorConversionParams& p,
                                    const std::array<Rgb, 8>& pixels, bool lumaFirst) {
  std::array<int, 8> luma, chroma;
  for (size_t i = 0; i < 8; ++i) {
    luma[i] = wrap16(floorShift(wrap16(sums16(p, pixels[i]).y + 128), 8) + 16);
  }
  for (size_t i = 0; i < 8; i += 2) {
    const Yuv a = sums16(p, pixels[i]), b = sums16(p, pixels[i + 1]);
    const auto mean = [](int s0, int s1) {
      const int c0 = floorShift(wrap16(s0 + 128), 8), c1 = floorShift(wrap16(s1 + 128), 8);
      return floorShift(c0 + c1, 1) + 128;
    };
    chroma[i] = mean(a.u, b.u);
    chroma[i + 1] = mean(a.v, b.v);
  }
  const auto bytesOf = [](const std::array<int, 8>& words) {
    std::array<uint8_t, 16> bytes;
    for (size_t i = 0; i < 8; ++i) {
      bytes[2 * i] = low8(words[i]);
      bytes[2 * i + 1] = low8(floorShift(words[i], 8));
    }
    return bytes;
  };
  const std::array<uint8_t, 16> low = bytesOf(lumaFirst ? luma : chroma);
  const std::array<uint8_t, 16> raised = bytesOf(lumaFirst ? chroma : luma);
  std::array<uint8_t, 16> out;
  for (size_t i = 0; i < 16; i += 2) {
    // The second register, moved up by one byte as a whole.
    const int below = i == 0 ? 0 : raised[i - 1];
    const int sum = low[i] + 256 * low[i + 1] + below + 256 * raised[i];
    out[i] = low8(sum);
    out[i + 1] = low8(sum / 256);
  }
  return out;
}

ColorConversionParams builtInBlock(bool bt601) {
  static const int factors[2][9] = {{47, 157, 16, -25, -86, 112, 112, -101, -9},
                                    {66, 129, 25, -37, -73, 112, 112, -93, -17}};
  ColorConversionParams block{};
  for (size_t i = 0; i < 9; ++i) {
    block.rgbToYuvInt[i] = factors[bt601 ? 1 : 0][i];
    block.rgbToYuvShort[i] = static_cast<int16_t>(block.rgbToYuvInt[i]);
  }
  block.yOffset = 16;
  block.shift = 8;
  block.rounding = 128;
  return block;
}

ColorConversionParams randomBlock(Random& random, bool wild) {
  ColorConversionParams block{};
  const auto number = [&](int32_t limit) { return random.range(-limit, limit); };
  for (size_t i = 0; i < 9; ++i) {
    block.rgbToYuvShort[i] = static_cast<int16_t>(wild ? number(32767) : number(200));
    block.rgbToYuvInt[i] = wild ? number((1 << 30) - 1) : number(200);
  }
  if (!wild && random.range(0, 2) > 0) {
    // About as large as byte-wide products can hold.
    int16_t* f = block.rgbToYuvShort;
    f[0] = static_cast<int16_t>(random.range(0, 256));
    f[1] = static_cast<int16_t>(random.range(0, 255));
    f[2] = static_cast<int16_t>(random.range(254, 256) - f[1]);
    for (int row = 3; row < 9; row += 3) {
      const int sign = random.range(0, 1) == 0 ? -1 : 1;
      f[row] = static_cast<int16_t>(random.range(-129, 128));
      f[row + 1] = static_cast<int16_t>(sign * random.range(0, 128));
      f[row + 2] = static_cast<int16_t>(sign * random.range(126, 129) - f[row + 1]);
    }
  }
  block.shift = wild ? number(70) : 8;
  block.rounding = wild ? number((1 << 30) - 1) : random.range(0, 255);
  block.chromaRounding = wild ? number((1 << 30) - 1) : number(100);
  block.yOffset = static_cast<int16_t>(wild ? number(32767) : random.range(0, 64));
  block.uOffset = static_cast<int16_t>(wild ? number(32767) : random.range(0, 128));
  block.vOffset = static_cast<int16_t>(wild ? number(32767) : random.range(0, 128));
  return block;
}

}  // namespace kvl::test
