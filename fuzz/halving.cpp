// Frames of half the size, and frames woven of two fields.
#include "media_layouts.h"
#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

void shrinkToHalf(Case& test) {
  const Layout layout = layoutOf(test);
  const SIZE from = {test.side(), test.side()};
  // Mostly the half, but any size is taken.
  SIZE to = {std::max(1, from.cx / 2), std::max(1, from.cy / 2)};
  if (test.oneIn(3)) to = {test.side(), test.side()};
  const int32_t fromStride = strideFor(test, layout.packedRow(from.cx));
  const int32_t toStride = strideFor(test, layout.packedRow(to.cx));
  const auto flags = test.oneOf({0, 1, 2, 3, 0xFFFFFFFF});
  const GUID* const subtype = test.orNull(&layout.guid);
  test.keep(&layout.guid, sizeof layout.guid);

  const bool planar = layout.isPlanar();
  const bool known = layout.canBeHalved();
  const bool sizes = from.cx > 0 && from.cy > 0 && to.cx > 0 && to.cy > 0;
  const int64_t sourceStride = fromStride > 0 ? fromStride : layout.packedStride(from.cx);
  const int64_t stride = toStride > 0 ? toStride : layout.packedStride(to.cx);
  const Fit fit = !sizes   ? Fit::inPool
                  : planar ? std::max(layout.planarFit(from), layout.planarFit(to))
                           : std::max(fitOf(sourceStride, from.cy), fitOf(stride, to.cy));
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noResult = test.hostile() && test.oneIn(16);
  const auto shrink = [&](const uint8_t* source, uint8_t* destination) {
    return KVL_ShrinkToHalf(subtype, source, fromStride, from, destination, toStride, to, flags);
  };
  if (noSource || noResult || subtype == nullptr || !known || !sizes ||
      fit == Fit::beyondAddresses) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const destination = noResult ? nullptr : test.untouchable();
    test.callInVain([&] {
      const int32_t status = shrink(source, destination);
      require(status == invalidArgument || (status == notImplemented && !known), "status in vain");
    });
    return;
  }
  if (fit != Fit::inPool) return;
  // RGB8 reads on to the end of the last row's padding.
  const int64_t lastRow = layout.format == Format::rgb8
                              ? sourceStride
                              : std::min(sourceStride, layout.packedRow(from.cx));
  const int64_t sourceBytes =
      planar ? layout.planarBytes(from) : (from.cy - 1) * sourceStride + lastRow;
  const int64_t resultBytes = planar ? layout.planarBytes(to) : stride * to.cy;
  const uint8_t* const source = test.readOnly(bytes(sourceBytes));
  uint8_t* const destination = test.writable(bytes(resultBytes));
  const int64_t rows = std::min(to.cy, from.cy / 2);
  const bool leftOut = (flags & 1) != 0 && rows % 2 == 1;
  const int64_t firstRow = planar ? layout.lumaBytes(to) / to.cy : stride;
  test.call(
      [&] {
        Untouched rest(destination, resultBytes);
        rest.allow(0, leftOut ? (rows - 1) * firstRow : resultBytes);
        rest.allow(rows * firstRow, resultBytes);
        require(shrink(source, destination) == 0, "status of a halving");
        rest.check("a row of one field");
      },
      Results::byLevel);
}

void combineHalfFrames(Case& test) {
  const PixelFormat format = pixelFormat(test);
  const BITMAPINFOHEADER header =
      test.header(test.side(), test.side(), format.bitCount, format.compression);
  const BITMAPINFOHEADER* const given = test.orNull(&header);
  const int32_t secondField = test.integer(0, 1);
  test.keep(&header, sizeof header);
  const int64_t row = bitmapRow(header);
  const int64_t height = header.biHeight;
  const Fit fit = fitOf(row, std::max<int64_t>(0, height));
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noResult = test.hostile() && test.oneIn(16);
  if (given == nullptr || noSource || noResult || height <= 1 || row == 0 ||
      fit == Fit::beyondAddresses) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const destination = noResult ? nullptr : test.untouchable();
    test.callInVain([&] { KVL_VoeCombineHalfFramesLpbi(given, destination, source, secondField); });
    return;
  }
  if (fit != Fit::inPool) return;
  const uint8_t* const source = test.readOnly(bytes(row * height));
  uint8_t* const destination = test.writable(bytes(row * height));
  test.onlyWritten(secondField != 0 ? bytes(row) : 0, bytes(2 * row), bytes(row),
                   bytes(height / 2));
  test.call([&] {
    KVL_VoeCombineHalfFramesLpbi(given, destination, source, secondField);
    for (int64_t y = secondField != 0 ? 1 : 0; y < height / 2 * 2; y += 2) {
      require(std::equal(source + y * row, source + (y + 1) * row, destination + y * row),
              "a row was not copied");
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  if (test.byte() % 4 != 0) {
    shrinkToHalf(test);
  } else {
    combineHalfFrames(test);
  }
  return 0;
}
