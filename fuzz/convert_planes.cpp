// RGB into planes of YUV, and YUV frames into RGB.
#include <cstring>

#include "colour_blocks.h"
#include "media_layouts.h"
#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

// One of the planes of a record: `rows` rows of `width` samples.
struct Plane {
  int64_t offset;
  int64_t stride;
  int64_t width;
  int64_t rows;

  bool possible() const {
    return (rows <= 1 || stride >= width) && fitOf(stride, rows) != Fit::beyondAddresses;
  }
  int64_t end() const {
    if (rows <= 0) return 0;
    return fitOf(stride, rows) == Fit::inPool ? offset + (rows - 1) * stride + width : 1 << 30;
  }
  bool small() const { return fitOf(end(), 1) == Fit::inPool; }
};

// What KVL_RtyConvert has to do, by its record.
class RtyCase {
 public:
  explicit RtyCase(Case& test) {
    record = {};
    fillWithNoise(test, &record, sizeof record);
    const ColorConversionParams colours = colourBlock(test);
    KVL_SetRtyConvertColors(&record, &colours);
    record.flags = test.oneOf({0, 1, 8, 9, 0xFFFFFFF6});
    record.mode = test.oneOf({0, 1, 2, 3, 0, 3});
    record.width = static_cast<uint32_t>(test.side());
    record.height = static_cast<uint32_t>(test.side());
    record.srcStride = strideFor(test, 3 * int64_t{record.width});
    const int64_t samples = record.mode == KVL_RTY_444 ? record.width : (record.width + 1) / 2;
    record.yStride = strideOf(test, record.width);
    record.uStride = strideOf(test, samples);
    record.vStride = strideOf(test, samples);
    record.scratchRowSize = record.width + static_cast<uint32_t>(test.oneIn(2) ? test.byte() : 0);
    if (test.oneIn(16)) {
      record.scratchRowSize = static_cast<uint32_t>(test.integer(0, 60));
    }
    const int64_t yEnd = y().end(), uRows = uvRows();
    int64_t uOffset = yEnd + test.byte() % 4;
    int64_t vOffset = uOffset + Plane{0, record.uStride, samples, uRows}.end() + test.byte() % 4;
    if (test.oneIn(8)) {
      uOffset += Plane{0, record.vStride, samples, uRows}.end();
      vOffset = yEnd;
    }
    overlapping = test.hostile() && test.oneIn(16);
    if (overlapping) uOffset = test.integer(0, 2000);
    record.uPlaneOffset = static_cast<uint32_t>(uOffset);
    record.vPlaneOffset = static_cast<uint32_t>(vOffset);
  }

  bool halved() const {
    return record.mode == KVL_RTY_420_BOX || record.mode == KVL_RTY_420_VERTICAL;
  }
  bool interlaced() const { return (record.flags & KVL_RTY_INTERLACED) != 0; }
  int64_t uvWidth() const {
    return record.mode == KVL_RTY_444 ? int64_t{record.width} : (int64_t{record.width} + 1) / 2;
  }
  int64_t uvRows() const {
    const int64_t height = record.height;
    return halved() ? (height + 2) / 4 + height / 4 : height;
  }
  Plane y() const { return {0, record.yStride, record.width, record.height}; }
  Plane u() const { return {record.uPlaneOffset, record.uStride, uvWidth(), uvRows()}; }
  Plane v() const { return {record.vPlaneOffset, record.vStride, uvWidth(), uvRows()}; }
  // Rows from src on that the caller owns.
  StridedRows source() const {
    int64_t rows = record.height;
    if (halved() && (record.flags & KVL_RTY_BOTTOM_UP) != 0) {
      rows = std::max(rows, rows + 4 * ((rows + 2) / 4 - 1));
    }
    return {record.srcStride, 3 * int64_t{record.width}, rows};
  }
  bool possible() const {
    if (record.mode > KVL_RTY_420_VERTICAL || record.width > INT32_MAX ||
        record.height > INT32_MAX) {
      return false;
    }
    const bool scratch = record.mode == KVL_RTY_444 || record.scratchRowSize >= record.width;
    return scratch && y().possible() && u().possible() && v().possible() &&
           source().fit() != Fit::beyondAddresses;
  }
  bool small() const {
    return y().small() && u().small() && v().small() && source().possible() &&
           fitOf(int64_t{14} * record.scratchRowSize, 1) == Fit::inPool;
  }
  // Rows of luma that no pair of rows has.
  bool leftOut(int64_t row) const {
    if (!halved()) return false;
    const int64_t height = record.height;
    if (!interlaced()) return row == height - 1 && height % 2 == 1;
    switch (height % 4) {
      case 1:
      case 2:
        return row == height - 1;
      case 3:
        return row == height - 2;
      default:
        return false;
    }
  }
  // The last output of a row then takes a byte that the call may not have written.
  bool readsStaleScratch() const { return record.mode == KVL_RTY_420_BOX && record.width % 2 == 1; }

  RtyConvertRecord record;
  bool overlapping;

 private:
  static uint32_t strideOf(Case& test, int64_t samples) {
    const uint8_t kind = test.byte() % 8;
    if (kind < 5) return static_cast<uint32_t>(samples) + kind;
    if (kind < 7) return static_cast<uint32_t>(samples + 15) & ~15u;
    return static_cast<uint32_t>(test.integer(0, 80));
  }
};

void rtyConvert(Case& test) {
  RtyCase rty(test);
  RtyConvertRecord& record = rty.record;
  const RtyConvertRecord* const given = test.orNull(&record);
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noPlanes = test.hostile() && test.oneIn(16);
  const bool noScratch = test.hostile() && test.oneIn(16);
  const int32_t expected = given == nullptr || record.height == 0 ? 1 : 0;
  const bool scratchMatters = record.mode != KVL_RTY_444;
  const bool inVain = given == nullptr || record.height == 0 || noSource || noPlanes ||
                      (noScratch && scratchMatters) || !rty.possible();
  if (inVain) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const planes = noPlanes ? nullptr : test.untouchable();
    record.scratchA = noScratch ? nullptr : test.untouchable();
    record.scratchB = noScratch ? nullptr : test.untouchable();
    test.keep(&record, sizeof record);
    test.callInVain(
        [&] { require(KVL_RtyConvert(given, source, planes) == expected, "status in vain"); });
    return;
  }
  if (!rty.small()) return;
  const Plane y = rty.y(), u = rty.u(), v = rty.v();
  const int64_t size = std::max({y.end(), u.end(), v.end()});
  const uint8_t* const source = rty.source().readOnly(test);
  uint8_t* const planes = rty.overlapping ? test.scratch(bytes(size)) : test.writable(bytes(size));
  const auto team = static_cast<size_t>(test.largestTeam());
  const size_t slices = 2 * size_t{record.scratchRowSize};
  const size_t sliceA = rty.halved() ? slices * team : scratchMatters ? slices : 0;
  const size_t sliceB = rty.halved() ? slices * team : 0;
  record.scratchA = noScratch ? nullptr : test.scratch(sliceA);
  record.scratchB = noScratch ? nullptr : test.scratch(sliceB);
  if (rty.readsStaleScratch()) {
    std::memset(record.scratchA, 0x55, sliceA);
    std::memset(record.scratchB, 0x55, sliceB);
  }
  test.keep(&record, sizeof record);
  test.call(
      [&] {
        Untouched rest(planes, size);
        for (int64_t row = 0; row < y.rows; ++row) {
          if (!rty.leftOut(row)) rest.allow(row * y.stride, y.width);
        }
        rest.allowRows(u.offset, u.stride, u.width, u.rows);
        rest.allowRows(v.offset, v.stride, v.width, v.rows);
        require(KVL_RtyConvert(given, source, planes) == 0, "status of a conversion");
        rest.check("beside the planes");
      },
      Results::byLevel);
}

void yuvToRgb24(Case& test) {
  const Layout layout = layoutOf(test);
  const SIZE size = {test.side(), test.side()};
  const int64_t width = size.cx;
  const int32_t sourceStride = strideFor(test, layout.packedRow(width));
  const int32_t stride = strideFor(test, 3 * width);
  const ColorConversionParams colours = colourBlock(test);
  const ColorConversionParams* const params = test.orNull(&colours);
  const GUID* const subtype = test.orNull(&layout.guid);
  test.keep(&colours, sizeof colours);
  test.keep(&layout.guid, sizeof layout.guid);

  const bool known = layout.isYuv();
  const int64_t packedStride = sourceStride > 0 ? sourceStride : (2 * width + 3) & ~int64_t{3};
  const StridedRows packed = {packedStride, layout.packedRow(width), size.cy};
  const int64_t distance = stride == 0 ? (3 * width + 3) & ~int64_t{3} : std::abs(int64_t{stride});
  const StridedRows result = {distance, 3 * width, size.cy};
  const bool sizes = size.cx > 0 && size.cy > 0;
  const Fit fit = std::max(layout.isPacked() ? packed.fit()
                           : sizes           ? layout.planarFit(size)
                                             : Fit::inPool,
                           result.fit());
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noResult = test.hostile() && test.oneIn(16);
  const auto convert = [&](const uint8_t* source, uint8_t* destination) {
    return KVL_ConvertYUVToRgb24(subtype, source, sourceStride, size, destination, stride, params);
  };
  if (noSource || noResult || params == nullptr || subtype == nullptr || !known || !sizes ||
      colours.lumaFactor == 0 || (layout.isPacked() && packedStride < packed.rowBytes) ||
      distance < 3 * width || fit == Fit::beyondAddresses) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const destination = noResult ? nullptr : test.untouchable();
    test.callInVain([&] {
      const int32_t status = convert(source, destination);
      require(status == invalidArgument || (status == notImplemented && !known), "status in vain");
    });
    return;
  }
  if (fit > Fit::apart) return;
  const uint8_t* const source =
      layout.isPacked() ? packed.readOnly(test) : test.readOnly(bytes(layout.planarBytes(size)));
  uint8_t* const destination = result.writable(test);
  test.call([&] { require(convert(source, destination) == 0, "status of a conversion"); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  if (test.byte() % 2 == 0) {
    rtyConvert(test);
  } else {
    yuvToRgb24(test);
  }
  return 0;
}
