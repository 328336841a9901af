// The filters that take bitmap headers.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "fuzz_frame.h"

namespace {

using namespace kvl::fuzz;

size_t bytes(int64_t count) {
  return static_cast<size_t>(count);
}

// Two headers of images of 24 bits that should have the same size, and their rows.
struct Pair {
  BITMAPINFOHEADER firstHeader;
  BITMAPINFOHEADER secondHeader;
  int64_t stride;
  Fit fit;
  bool accepted;
  bool shared = false;  // one header for both

  // With `anyRow` a row may have more than 2^31 bytes.
  explicit Pair(Case& test, bool anyRow = false) {
    const int32_t width = test.side(), height = test.side();
    firstHeader = test.header(width, height, 24);
    secondHeader = test.header(firstHeader.biWidth, firstHeader.biHeight, 24);
    stride = anyRow ? rowOf(firstHeader.biWidth, 24) : row24(firstHeader.biWidth);
    fit = fitOf(stride, std::max(0, firstHeader.biHeight));
    accepted = firstHeader.biWidth == secondHeader.biWidth &&
               firstHeader.biHeight == secondHeader.biHeight && stride > 0 &&
               firstHeader.biHeight > 0 && fit != Fit::beyondAddresses;
  }
  int64_t width() const { return firstHeader.biWidth; }
  int64_t height() const { return firstHeader.biHeight; }
  double pixels() const { return static_cast<double>(width()) * height(); }
  uint8_t* image(Case& test) const {
    return test.rows(bytes(stride), bytes(3 * width()), bytes(height()));
  }
  // The scratch image of filters that transpose into it.
  uint8_t* transposed(Case& test) const {
    return test.rows(bytes(stride * height() / width()), bytes(3 * height()), bytes(width()));
  }
};

using Filter = std::function<void(BITMAPINFOHEADER*, uint8_t*, BITMAPINFOHEADER*, uint8_t*)>;

enum class First { image, transposed, readOnly };

// The filter with whole images where the arguments are good, and otherwise with none.
void callPair(Case& test, Pair pair, bool accepted, double cost, First first,
              const Filter& filter) {
  BITMAPINFOHEADER* const firstHeader = test.orNull(&pair.firstHeader);
  BITMAPINFOHEADER* const secondHeader =
      pair.shared ? firstHeader : test.orNull(&pair.secondHeader);
  const bool noFirst = test.hostile() && test.oneIn(16);
  const bool noSecond = test.hostile() && test.oneIn(16);
  test.keep(&pair.firstHeader, sizeof pair.firstHeader);
  test.keep(&pair.secondHeader, sizeof pair.secondHeader);
  accepted = accepted && pair.accepted && firstHeader != nullptr && secondHeader != nullptr &&
             !noFirst && !noSecond;
  if (!accepted) {
    uint8_t* const one = noFirst ? nullptr : test.untouchable();
    uint8_t* const two = noSecond ? nullptr : test.untouchable();
    test.callInVain([&] { filter(firstHeader, one, secondHeader, two); });
    return;
  }
  if (pair.fit != Fit::inPool || cost > 1e6) return;
  uint8_t* const one =
      first == First::image ? pair.image(test)
      : first == First::transposed
          ? pair.transposed(test)
          : test.readOnly(bytes((pair.height() - 1) * pair.stride + 3 * pair.width()));
  uint8_t* const two = pair.image(test);
  test.call([&] { filter(firstHeader, one, secondHeader, two); });
}

void gaussian(Case& test) {
  const Pair pair(test);
  const int32_t radius = test.integer(1, 10);
  callPair(test, pair, radius >= 1, 4 * pair.pixels(), First::image,
           [&](auto* workHeader, uint8_t* work, auto* imageHeader, uint8_t* image) {
             KVL_GaussianBlur(workHeader, work, imageHeader, image, radius);
           });
}

void averaging(Case& test) {
  const Pair pair(test, true);
  const int32_t radius = test.oneIn(8) ? test.integer(100, 2100) : test.integer(1, 30);
  callPair(test, pair, radius >= 1, 4 * pair.pixels(), First::transposed,
           [&](auto* workHeader, uint8_t* work, auto* imageHeader, uint8_t* image) {
             KVL_AveragingBlur(workHeader, work, imageHeader, image, radius);
           });
}

void selectiveBlur(Case& test) {
  const Pair pair(test);
  const int32_t threshold = test.integer(1, 255), radius = test.integer(1, 9);
  const double side = 2.0 * radius + 1.0;
  const bool accepted = threshold >= 1 && radius >= 1 && (side * side - 1) * threshold <= INT32_MAX;
  const double taps = std::min(side, 2.0 * pair.width()) * std::min(side, 2.0 * pair.height());
  callPair(test, pair, accepted, pair.pixels() * taps, First::readOnly,
           [&](auto* sourceHeader, uint8_t* source, auto* resultHeader, uint8_t* result) {
             KVL_SelectiveBlur(sourceHeader, source, resultHeader, result, threshold, radius);
           });
}

void modifiedSelectiveBlur(Case& test) {
  Pair pair(test);
  pair.shared = pair.accepted && test.oneIn(4);
  const int32_t threshold = test.integer(1, 255), radius = test.integer(1, 20);
  const bool accepted = threshold >= 1 && radius >= 1 && 2.0 * threshold * radius <= INT32_MAX;
  const double taps = std::min(2.0 * radius, static_cast<double>(pair.width() + pair.height()));
  callPair(test, pair, accepted, pair.pixels() * taps, First::transposed,
           [&](auto* workHeader, uint8_t* work, auto* imageHeader, uint8_t* image) {
             KVL_ModifiedSelectiveBlur(workHeader, work, imageHeader, image, threshold, radius);
           });
}

void sharpen(Case& test) {
  const Pair pair(test);
  const int32_t threshold = test.integer(1, 300);
  const float gain = test.single(1, 12);
  const auto routine = test.byte() % 3;
  callPair(test, pair, threshold >= 1 && gain >= 1, pair.pixels() * 8, First::readOnly,
           [&](auto* sourceHeader, uint8_t* source, auto* resultHeader, uint8_t* result) {
             const auto function = routine == 0   ? KVL_SelectiveSharpenSimple
                                   : routine == 1 ? KVL_ModifiedSelectiveSharpenSimple
                                                  : KVL_SelectiveSharpen;
             function(sourceHeader, source, resultHeader, result, threshold, gain);
           });
}

// A rectangle of a bitmap, with a bitmap for its transposed rows.
void averagingRectangle(Case& test) {
  const auto bits = static_cast<uint16_t>(test.oneOf({8, 24, 32}));
  const uint32_t code = bits == 8 && test.oneIn(2)    ? 0xE436EB7A
                        : bits == 24 && test.oneIn(2) ? 0xE436EB7D
                                                      : 0;
  const auto sometimesNegated = [&](int32_t size) {
    return test.oneIn(16) ? static_cast<int32_t>(-int64_t{size}) : size;
  };
  int32_t width = test.side();
  const int32_t height = sometimesNegated(test.side());
  const BITMAPINFOHEADER header = test.header(width, height, bits, code);
  width = header.biWidth;
  const int64_t rows = std::abs(int64_t{header.biHeight});
  const int64_t columns = std::abs(int64_t{width});
  const BITMAPINFOHEADER transposedHeader =
      test.header(static_cast<int32_t>(std::min<int64_t>(rows, INT32_MAX)), sometimesNegated(width),
                  header.biBitCount, code);
  const int32_t x0 = test.integer(0, 20), y0 = test.integer(0, 20);
  const int32_t across = test.integer(1, 60), down = test.integer(1, 60);
  const bool fractional = test.byte() % 2 == 0;
  const int32_t horizontal = test.integer(1, 12), vertical = test.integer(1, 12);
  const float horizontalPart = test.single(0, 8), verticalPart = test.single(0, 8);

  const bool sizes = width > 0 && rows > 0 && transposedHeader.biWidth == rows &&
                     std::abs(int64_t{transposedHeader.biHeight}) == columns;
  const bool radii = fractional ? horizontalPart >= 0 && horizontalPart < 2147483648.0f &&
                                      verticalPart >= 0 && verticalPart < 2147483648.0f
                                : horizontal >= 1 && vertical >= 1;
  const bool pixels =
      header.biBitCount == transposedHeader.biBitCount &&
      (header.biBitCount == 8 || header.biBitCount == 24 || header.biBitCount == 32);
  const bool rectangle = x0 >= 0 && y0 >= 0 && x0 < width && y0 < rows && across >= 1 && down >= 1;
  const int64_t stride = rowOf(width, header.biBitCount);
  const int64_t transposedStride = rowOf(transposedHeader.biWidth, header.biBitCount);
  const Fit fit = std::max(fitOf(stride, rows), fitOf(transposedStride, columns));
  const bool accepted = sizes && radii && pixels && rectangle && fit != Fit::beyondAddresses;

  const auto filter = [&](uint8_t* source, uint8_t* transposed) {
    if (fractional) {
      KVL_AvgBlurUniFloat(&header, source, &transposedHeader, transposed, x0, y0, across, down,
                          horizontalPart, verticalPart);
    } else {
      KVL_AvgBlurUni(&header, source, &transposedHeader, transposed, x0, y0, across, down,
                     horizontal, vertical);
    }
  };
  test.keep(&header, sizeof header);
  test.keep(&transposedHeader, sizeof transposedHeader);
  if (!accepted) {
    uint8_t* const source = test.orNull(test.untouchable());
    uint8_t* const transposed = test.orNull(test.untouchable());
    test.callInVain([&] { filter(source, transposed); });
    return;
  }
  if (fit != Fit::inPool || stride * rows > 1'000'000) return;
  const int64_t pixelBytes = header.biBitCount / 8;
  uint8_t* const source = test.rows(bytes(stride), bytes(pixelBytes * width), bytes(rows));
  test.onlyWritten(bytes(y0 * stride + x0 * pixelBytes), bytes(stride),
                   bytes(std::min<int64_t>(across, width - x0) * pixelBytes),
                   bytes(std::min<int64_t>(down, rows - y0)));
  uint8_t* const transposed =
      test.rows(bytes(transposedStride), bytes(pixelBytes * rows), bytes(columns));
  test.onlyWritten(bytes(x0 * transposedStride + y0 * pixelBytes), bytes(transposedStride),
                   bytes(std::min<int64_t>(down, rows - y0) * pixelBytes),
                   bytes(std::min<int64_t>(across, width - x0)));
  test.call([&] { filter(source, transposed); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  switch (test.byte() % 8) {
    case 0:
      gaussian(test);
      break;
    case 1:
      averaging(test);
      break;
    case 2:
      selectiveBlur(test);
      break;
    case 3:
      modifiedSelectiveBlur(test);
      break;
    case 4:
    case 5:
      sharpen(test);
      break;
    default:
      averagingRectangle(test);
  }
  return 0;
}
