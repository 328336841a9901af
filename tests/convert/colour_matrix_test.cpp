// What the filled matrix blocks are worth: all colours there and back, and all codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/initialise.h"
#include "core/parallel.h"
#include "kvl/kvl.h"

namespace kvl {
namespace {

constexpr auto invalidArgument = static_cast<int32_t>(0x80070057);

struct Standard {
  double kr, kb;
};
const Standard standards[] = {{0.299, 0.114}, {0.2126, 0.0722}, {0.2627, 0.0593}};

ColorConversionParams filled(int32_t matrix, int32_t range) {
  ColorConversionParams params;
  std::memset(&params, 0xCD, sizeof params);
  EXPECT_EQ(KVL_FillColorConversionParams(&params, matrix, range), 0);
  return params;
}

// The largest of row(a) for the 256 values of the first of three bytes, on the team.
template <class Row>
double largestOfRows(const Row& row) {
  double largest = 0;
  std::mutex lock;
  parallelBands(256, [&](RowRange band) {
    double own = 0;
    for (int32_t a = band.start; a < band.end; ++a) own = std::max(own, row(a));
    const std::lock_guard<std::mutex> guard(lock);
    largest = std::max(largest, own);
  });
  return largest;
}

// One row of 256 * 256 pixels.
struct Codes {
  std::vector<uint8_t> frame = std::vector<uint8_t>(3 * 65536);  // YV24: Y, V, U
  std::vector<uint8_t> bgr = std::vector<uint8_t>(3 * 65536);

  void convert(const ColorConversionParams& params) {
    ASSERT_EQ(KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_YV24, frame.data(), 0, {65536, 1}, bgr.data(), 0,
                                    &params),
              0);
  }
};

double clampLevel(double v) {
  return std::min(std::max(v, 0.0), 255.0);
}

// Largest distance of a result from the exact value of its code, in levels.
double errorOfAllCodes(int32_t matrix, int32_t range) {
  const ColorConversionParams params = filled(matrix, range);
  const auto [kr, kb] = standards[matrix];
  const bool full = range == KVL_RANGE_FULL;
  const double luma = full ? 1 : 255.0 / 219, colour = full ? 1 : 255.0 / 224,
               black = full ? 0 : 16;
  const double rv = 2 * (1 - kr) * colour, bu = 2 * (1 - kb) * colour;
  const double gu = -bu * kb / (1 - kr - kb), gv = -rv * kr / (1 - kr - kb);
  return largestOfRows([&, black = black](int32_t y) {
    Codes codes;
    for (size_t i = 0; i < 65536; ++i) {
      codes.frame[i] = static_cast<uint8_t>(y);
      codes.frame[65536 + i] = static_cast<uint8_t>(i);
      codes.frame[2 * 65536 + i] = static_cast<uint8_t>(i >> 8);
    }
    codes.convert(params);
    const double level = luma * (y - black);
    double largest = 0;
    for (int u = 0; u < 256; ++u) {
      for (int v = 0; v < 256; ++v) {
        const uint8_t* bgr = &codes.bgr[3 * static_cast<size_t>(u * 256 + v)];
        const double b = clampLevel(level + bu * (u - 128));
        const double g = clampLevel(level + gu * (u - 128) + gv * (v - 128));
        const double r = clampLevel(level + rv * (v - 128));
        largest =
            std::max({largest, std::abs(bgr[0] - b), std::abs(bgr[1] - g), std::abs(bgr[2] - r)});
      }
    }
    return largest;
  });
}

// A row of the planar conversion to 4:4:4: the scalar arithmetic and that of the vector path.
int scalarSample(const ColorConversionParams& p, int row, int b, int g, int r) {
  const int32_t* f = &p.rgbToYuvInt[3 * row];
  const int offset = row == 0 ? p.yOffset : row == 1 ? p.uOffset : p.vOffset;
  const int chroma = row == 0 ? 0 : p.chromaRounding;
  const int sum = f[0] * r + f[1] * g + f[2] * b + chroma + p.rounding;
  return (((sum >> p.shift) & 255) + (offset & 255)) & 255;
}

int vectorSample(const ColorConversionParams& p, int row, int b, int g, int r) {
  const int16_t* f = &p.rgbToYuvShort[3 * row];
  const int sum = f[0] * r + f[1] * g + f[2] * b;
  if (row == 0) {
    const int rounded = std::min((sum & 65535) + 128, 65535) >> 8;
    return std::min(std::min(rounded, 255) + (p.yOffset & 255), 255);
  }
  const int wrapped = static_cast<int16_t>(sum);
  const int away = wrapped >= 0 ? std::min(wrapped + 128, 32767) : std::max(wrapped - 128, -32768);
  const int offset = (row == 1 ? p.uOffset : p.vOffset) + 128;
  return std::min(std::max((away >> 8) + offset, 0), 255);
}

using Sample = int(const ColorConversionParams&, int row, int b, int g, int r);

// Largest difference of a component after the way to YUV and back.
double errorThereAndBack(int32_t matrix, int32_t range, Sample sample) {
  const ColorConversionParams params = filled(matrix, range);
  return largestOfRows([&](int32_t red) {
    Codes codes;
    for (int i = 0; i < 65536; ++i) {
      const int g = i >> 8, b = i & 255;
      const auto at = static_cast<size_t>(i);
      codes.frame[at] = static_cast<uint8_t>(sample(params, 0, b, g, red));
      codes.frame[65536 + at] = static_cast<uint8_t>(sample(params, 2, b, g, red));
      codes.frame[2 * 65536 + at] = static_cast<uint8_t>(sample(params, 1, b, g, red));
    }
    codes.convert(params);
    int largest = 0;
    for (int i = 0; i < 65536; ++i) {
      const uint8_t* bgr = &codes.bgr[3 * static_cast<size_t>(i)];
      largest = std::max({largest, std::abs(bgr[0] - (i & 255)), std::abs(bgr[1] - (i >> 8)),
                          std::abs(bgr[2] - red)});
    }
    return double(largest);
  });
}

// The table of the header: matrix, range, error of a code, of a colour by the scalar and by the
// vector arithmetic.
struct Published {
  int32_t matrix, range;
  double ofCode;
  int scalar, vector;
};
const Published table[] = {
    {KVL_MATRIX_BT601, KVL_RANGE_STUDIO, 0.527, 3, 4},
    {KVL_MATRIX_BT601, KVL_RANGE_FULL, 0.519, 2, 4},
    {KVL_MATRIX_BT709, KVL_RANGE_STUDIO, 0.526, 3, 4},
    {KVL_MATRIX_BT709, KVL_RANGE_FULL, 0.519, 2, 4},
    {KVL_MATRIX_BT2020, KVL_RANGE_STUDIO, 0.529, 3, 4},
    {KVL_MATRIX_BT2020, KVL_RANGE_FULL, 0.519, 2, 4},
};

TEST(ColourMatrix, ErrsByNoMoreThanTheHeaderSays) {
  initialise();
  for (const Published& row : table) {
    SCOPED_TRACE(testing::Message() << "matrix " << row.matrix << ", range " << row.range);
    EXPECT_NEAR(errorOfAllCodes(row.matrix, row.range), row.ofCode, 0.0005);
    EXPECT_EQ(errorThereAndBack(row.matrix, row.range, scalarSample), row.scalar);
    EXPECT_EQ(errorThereAndBack(row.matrix, row.range, vectorSample), row.vector);
  }
}

// What the header says of the factors' sums, and of where they come from.
TEST(ColourMatrix, IsFilledFromTheStandards) {
  for (int32_t matrix = 0; matrix < 3; ++matrix) {
    for (int32_t range = 0; range < 2; ++range) {
      const ColorConversionParams p = filled(matrix, range);
      const auto [kr, kb] = standards[matrix];
      EXPECT_NEAR(p.rgbToYuv[0] / p.rgbToYuv[2], kr / kb, 1e-9);
      EXPECT_NEAR(p.rgbToYuv[5], p.rgbToYuv[6], 1e-9);
      const int sums[3] = {range == KVL_RANGE_FULL ? 256 : 220, 0, 0};
      for (int row = 0; row < 3; ++row) {
        int sum = 0;
        for (int i = 3 * row; i < 3 * row + 3; ++i) {
          sum += p.rgbToYuvInt[i];
          EXPECT_NEAR(p.rgbToYuvInt[i], p.rgbToYuv[i] * 256, 0.8) << i;
          EXPECT_EQ(p.rgbToYuvInt[i], p.rgbToYuvShort[i]);
        }
        EXPECT_EQ(sum, sums[row]);
      }
      // Grey has no colour, on either path.
      for (int grey = 0; grey < 256; ++grey) {
        for (int row = 1; row < 3; ++row) {
          EXPECT_EQ(scalarSample(p, row, grey, grey, grey), 128);
          EXPECT_EQ(vectorSample(p, row, grey, grey, grey), 128);
        }
      }
    }
  }
}

TEST(ColourMatrix, IsLeftAloneForAnUnknownStandard) {
  ColorConversionParams params;
  std::memset(&params, 0xCD, sizeof params);
  const ColorConversionParams before = params;
  for (const auto& [matrix, range] :
       {std::pair{-1, 0}, {3, 0}, {0, -1}, {0, 2}, {INT32_MAX, INT32_MIN}}) {
    EXPECT_EQ(KVL_FillColorConversionParams(&params, matrix, range), invalidArgument);
  }
  EXPECT_EQ(KVL_FillColorConversionParams(nullptr, 0, 0), invalidArgument);
  EXPECT_EQ(std::memcmp(&before, &params, sizeof params), 0);
  // Reserved bytes are cleared.
  params = filled(0, 0);
  for (const uint8_t byte : params.reserved1) EXPECT_EQ(byte, 0);
  for (const uint8_t byte : params.reserved2) EXPECT_EQ(byte, 0);
}

}  // namespace
}  // namespace kvl
