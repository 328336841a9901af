#include "core/bitmap.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/test_image.h"

namespace kvl {
namespace {

using test::makeHeader;

uint32_t code(const char* text) {
  uint32_t value;
  std::memcpy(&value, text, sizeof value);
  return value;
}

// The one set of bit counts out of those that hosts use for which a compression is accepted.
std::vector<int> acceptedBits(uint32_t compression) {
  std::vector<int> accepted;
  for (const int bits : {0, 1, 7, 8, 16, 24, 32, 64}) {
    const BITMAPINFOHEADER h = makeHeader(10, 1, static_cast<uint16_t>(bits), compression);
    if (IsSupportedBitmapFormat(&h)) accepted.push_back(bits);
  }
  return accepted;
}

TEST(BitmapFormat, AcceptsExactlyTheListedPairs) {
  using Bits = std::vector<int>;
  EXPECT_EQ(acceptedBits(0), (Bits{0, 1, 7, 8, 16, 24, 32, 64}));
  EXPECT_EQ(acceptedBits(3), (Bits{16, 32}));
  EXPECT_EQ(acceptedBits(0xE436EB7D), Bits{24});
  EXPECT_EQ(acceptedBits(0xE436EB7A), Bits{8});
  EXPECT_EQ(acceptedBits(code("RGBA")), Bits{32});
  for (const char* packed :
       {"V422", "YUY2", "YUNV", "YUYV", "YVYU", "VYUY", "Y422", "UYNV", "UYVY"}) {
    EXPECT_EQ(acceptedBits(code(packed)), Bits{16}) << packed;
  }
  for (const uint32_t other : {1u, 2u, code("YV12"), code("2YUY"), code("ABGR"), 0xE436EB7Bu}) {
    EXPECT_EQ(acceptedBits(other), Bits{}) << other;
  }
  EXPECT_FALSE(IsSupportedBitmapFormat(nullptr));
}

TEST(DibStride, RoundsRowsUpToWholeWords) {
  EXPECT_EQ(CalcStrideFromBitCount(0, 24), 0);
  EXPECT_EQ(CalcStrideFromBitCount(1, 24), 4);
  EXPECT_EQ(CalcStrideFromBitCount(3, 8), 4);
  EXPECT_EQ(CalcStrideFromBitCount(5, 24), 16);
  EXPECT_EQ(CalcStrideFromBitCount(33, 1), 8);
  EXPECT_EQ(CalcStrideFromBitCount(10, 7), ((7 * 10 + 31) >> 3) & ~3);
  EXPECT_EQ(CalcStrideFromBitCount(-1, 24), 0);
  EXPECT_EQ(CalcStrideFromBitCount(10, 0), 0);
  EXPECT_EQ(CalcStrideFromBitCount(INT32_MAX, 65535), 17591917600772);

  BITMAPINFOHEADER h = makeHeader(5, -7, 24);
  EXPECT_EQ(CalcDibStride(&h), 16u);
  h.biCompression = code("YUY2");
  EXPECT_EQ(CalcDibStride(&h), 0u);
  EXPECT_EQ(CalcDibStride(nullptr), 0u);
  EXPECT_EQ(g_strideOverflow, 0) << "no 32-bit width overflows 64 bits";
}

TEST(Rgb24Stride, IsZeroWhereTheRowDoesNotFitInASignedInteger) {
  for (int32_t width = 1; width < 100; ++width) {
    EXPECT_EQ(rgb24Stride(width), CalcStrideFromBitCount(width, 24)) << width;
  }
  EXPECT_EQ(rgb24Stride(715827881), 2147483644);
  for (const int32_t width : {0, -1, INT32_MIN, 715827882, INT32_MAX}) {
    EXPECT_EQ(rgb24Stride(width), 0) << width;
  }
}

TEST(Addressable, RejectsWhatLeavesTheUserAddressSpace) {
  uint8_t byte = 0;
  EXPECT_TRUE(isAddressable(&byte, 4, 1));
  EXPECT_TRUE(isAddressable(&byte, 0, INT32_MAX));
  EXPECT_FALSE(isAddressable(&byte, INT32_MAX, INT32_MAX));
  EXPECT_FALSE(isAddressable(&byte, INT64_MAX, 2));
  EXPECT_FALSE(isAddressable(&byte, -4, 1));
  EXPECT_FALSE(isAddressable(reinterpret_cast<uint8_t*>(0x7FFFFFFFF000), 4096, 2));
}

}  // namespace
}  // namespace kvl
