// What the filled matrix blocks are worth: all colours there and back, and all codes.
#include <mutex>

#include "core/parallel.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

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

// A row of pixels to the planes of 4:4:4.
void toPlanes(const ColorConversionParams& params, const std::vector<uint8_t>& bgr,
              std::vector<uint8_t>& frame) {
  RtyConvertRecord record = {};
  KVL_SetRtyConvertColors(&record, &params);
  record.mode = KVL_RTY_444;
  record.width = static_cast<uint32_t>(bgr.size() / 3);
  record.height = 1;
  record.vPlaneOffset = record.width;
  record.uPlaneOffset = 2 * record.width;
  record.yStride = record.uStride = record.vStride = record.width;
  EXPECT_EQ(KVL_RtyConvert(&record, bgr.data(), frame.data()), 0);
}

// Largest difference of a component after the way to YUV, at the level, and back.
double errorThereAndBack(int32_t matrix, int32_t range, InstructionSet level) {
  const ColorConversionParams params = filled(matrix, range);
  limitInstructionSet(level);
  const double error = largestOfRows([&](int32_t red) {
    Codes codes;
    std::vector<uint8_t> bgr(codes.bgr.size());
    for (size_t i = 0; i < 65536; ++i) {
      bgr[3 * i] = static_cast<uint8_t>(i);
      bgr[3 * i + 1] = static_cast<uint8_t>(i >> 8);
      bgr[3 * i + 2] = static_cast<uint8_t>(red);
    }
    toPlanes(params, bgr, codes.frame);
    codes.convert(params);
    int largest = 0;
    for (size_t i = 0; i < bgr.size(); ++i) {
      largest = std::max(largest, std::abs(int{codes.bgr[i]} - int{bgr[i]}));
    }
    return double(largest);
  });
  limitInstructionSet(InstructionSet::avx2);
  return error;
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
  const bool hasVectors = test::hasLevel(InstructionSet::ssse3);
  for (const Published& row : table) {
    SCOPED_TRACE(testing::Message() << "matrix " << row.matrix << ", range " << row.range);
    EXPECT_NEAR(errorOfAllCodes(row.matrix, row.range), row.ofCode, 0.0005);
    EXPECT_EQ(errorThereAndBack(row.matrix, row.range, InstructionSet::scalar), row.scalar);
    EXPECT_EQ(errorThereAndBack(row.matrix, row.range, InstructionSet::avx2),
              hasVectors ? row.vector : row.scalar);
  }
}

// Of 254 pixels some are left to scalar code.
TEST(ColourMatrix, LeavesGreyWithoutColourInEveryPath) {
  forEachLevel([] {
    for (int code = 0; code < 6; ++code) {
      std::vector<uint8_t> bgr(3 * 254), planes(3 * 254);
      for (size_t i = 0; i < bgr.size(); ++i) bgr[i] = static_cast<uint8_t>(i / 3);
      toPlanes(filled(code / 2, code % 2), bgr, planes);
      EXPECT_EQ(std::count(planes.begin() + 254, planes.end(), 128), 2 * 254) << code;
    }
  });
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
}  // namespace kvl::test
