// Premultiplication, its reverse, colour shift and colour key.
#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

// A share of 1 of the inputs in which a pointer is null.
bool missing(Case& test) {
  return test.hostile() && test.oneIn(16);
}

void premultiplyBitmap(Case& test) {
  const PixelFormat format = pixelFormat(test);
  const int32_t width = test.side(), height = test.side();
  const BITMAPINFOHEADER colour =
      test.header(width, test.oneIn(4) ? -height : height, format.bitCount, format.compression);
  const BITMAPINFOHEADER alpha =
      test.header(width, height, static_cast<uint16_t>(test.oneIn(16) ? 24 : 8));
  const BITMAPINFOHEADER* const colourHeader = test.orNull(&colour);
  const BITMAPINFOHEADER* const alphaHeader = test.orNull(&alpha);
  test.keep(&colour, sizeof colour);
  test.keep(&alpha, sizeof alpha);
  const bool reverse = test.oneIn(2), noColour = missing(test), noAlpha = missing(test);
  const int64_t lines = std::abs(int64_t{colour.biHeight});
  const StridedRows colourRows = {bitmapRow(colour), 3 * int64_t{colour.biWidth}, lines};
  const StridedRows alphaRows = {bitmapRow(alpha), colour.biWidth, lines};
  const auto multiply = [&](uint8_t* colourBits, const uint8_t* alphaBits) {
    const auto routine = reverse ? KVL_ReverseAlphaPremul : KVL_PremultiplyAlpha;
    routine(colourHeader, colourBits, alphaHeader, alphaBits);
  };
  if (colourHeader == nullptr || alphaHeader == nullptr || noColour || noAlpha ||
      colour.biWidth < 1 || lines < 1 || colour.biHeight == INT32_MIN || colourRows.stride == 0 ||
      alphaRows.stride == 0 || colourRows.fit() == Fit::beyondAddresses ||
      alphaRows.fit() == Fit::beyondAddresses) {
    uint8_t* const colourBits = noColour ? nullptr : test.untouchable();
    const uint8_t* const alphaBits = noAlpha ? nullptr : test.untouchable();
    test.callInVain([&] { multiply(colourBits, alphaBits); });
    return;
  }
  if (!colourRows.possible() || !alphaRows.possible()) return;
  uint8_t* const colourBits = colourRows.writable(test);
  const uint8_t* const alphaBits = alphaRows.readOnly(test);
  test.call([&] { multiply(colourBits, alphaBits); }, Results::byLevel);
}

void premultiplyLines(Case& test) {
  const int32_t width = test.side(), lines = test.side();
  const int32_t colourStride = strideFor(test, 3 * int64_t{width});
  const int32_t alphaStride = strideFor(test, width);
  const bool reverse = test.oneIn(2), noColour = missing(test), noAlpha = missing(test);
  const StridedRows colourRows = {colourStride, 3 * int64_t{width}, lines};
  const StridedRows alphaRows = {alphaStride, width, lines};
  const auto multiply = [&](uint8_t* colour, const uint8_t* alpha) {
    const auto routine = reverse ? KVL_ReverseAlphaPremulLines : KVL_PremultiplyAlphaLines;
    routine(colour, colourStride, alpha, alphaStride, width, lines);
  };
  if (noColour || noAlpha || width < 1 || lines < 1 || colourRows.fit() == Fit::beyondAddresses ||
      alphaRows.fit() == Fit::beyondAddresses) {
    uint8_t* const colour = noColour ? nullptr : test.untouchable();
    const uint8_t* const alpha = noAlpha ? nullptr : test.untouchable();
    test.callInVain([&] { multiply(colour, alpha); });
    return;
  }
  if (!colourRows.possible() || !alphaRows.possible()) return;
  uint8_t* const colour = colourRows.writable(test);
  const uint8_t* const alpha = alphaRows.readOnly(test);
  test.call([&] { multiply(colour, alpha); }, Results::byLevel);
}

void colourShift(Case& test) {
  const PixelFormat format = pixelFormat(test);
  const BITMAPINFOHEADER header =
      test.header(test.side(), test.side(), format.bitCount, format.compression);
  const BITMAPINFOHEADER* const given = test.orNull(&header);
  test.keep(&header, sizeof header);
  const float red = test.oneIn(4) ? 0 : test.single(-1.5f, 1.5f);
  const float green = test.oneIn(4) ? 0 : test.single(-1.5f, 1.5f);
  const float blue = test.oneIn(4) ? 0 : test.single(-1.5f, 1.5f);
  const int32_t byRatio = test.integer(0, 1);
  const bool noBits = missing(test);
  const StridedRows rows = {bitmapRow(header), 3 * int64_t{header.biWidth}, header.biHeight};
  const auto shift = [&](uint8_t* bits) {
    KVL_ApplyRGBColorShift(given, bits, red, green, blue, byRatio);
  };
  if (given == nullptr || noBits || (red == 0 && green == 0 && blue == 0) || header.biHeight < 1 ||
      rows.stride == 0 || rows.fit() == Fit::beyondAddresses) {
    uint8_t* const bits = noBits ? nullptr : test.untouchable();
    test.callInVain([&] { shift(bits); });
    return;
  }
  if (!rows.possible()) return;
  uint8_t* const bits = rows.writable(test);
  test.call([&] { shift(bits); }, Results::byLevel);
}

void colourKey(Case& test) {
  const int32_t width = test.side(), height = test.side();
  const int32_t maskStride = strideFor(test, width);
  const int32_t imageStride = strideFor(test, 3 * int64_t{width});
  const int32_t red = test.integer(0, 255), green = test.integer(0, 255);
  const int32_t blue = test.integer(0, 255);
  const int32_t low = test.integer(0, 60), high = test.integer(0, 110);
  const auto strength = static_cast<uint32_t>(test.integer(-10, 210));
  const bool noMask = missing(test), noImage = missing(test);
  const StridedRows maskRows = {maskStride, width, height};
  const StridedRows imageRows = {imageStride, 3 * int64_t{width}, height};
  const auto key = [&](uint8_t* mask, uint8_t* image) {
    KVL_CalcAlphaBmpForMix_ColorBox(mask, maskStride, image, imageStride, width, height, red, green,
                                    blue, low, high, strength);
  };
  if (noMask || noImage || width < 1 || height < 1 || maskRows.fit() == Fit::beyondAddresses ||
      imageRows.fit() == Fit::beyondAddresses) {
    uint8_t* const mask = noMask ? nullptr : test.untouchable();
    uint8_t* const image = noImage ? nullptr : test.untouchable();
    test.callInVain([&] { key(mask, image); });
    return;
  }
  if (!maskRows.possible() || !imageRows.possible()) return;
  uint8_t* const mask = maskRows.writable(test);
  uint8_t* const image = imageRows.writable(test);
  test.call([&] { key(mask, image); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  switch (test.byte() % 4) {
    case 0:
      premultiplyBitmap(test);
      break;
    case 1:
      premultiplyLines(test);
      break;
    case 2:
      colourShift(test);
      break;
    default:
      colourKey(test);
  }
  return 0;
}
