// Rectangles of RGB into frames with black margins, and rows of luma.
#include <cstring>

#include "colour_blocks.h"
#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

// Where a rectangle goes in a frame, and from where in a source.
struct Placement {
  POINT from;
  POINT at;
  SIZE area;
};

int32_t position(Case& test) {
  const uint8_t kind = test.byte();
  return kind < 96 ? 0 : kind < 224 ? test.integer(0, 9) : test.integer(-40, 40);
}

Placement placement(Case& test) {
  Placement placed;
  placed.from = {position(test), position(test)};
  placed.at = {position(test), position(test)};
  placed.area = {test.oneIn(16) ? test.integer(-9, 1) : test.side(),
                 test.oneIn(16) ? test.integer(-9, 1) : test.side()};
  return placed;
}

struct Frame {
  int32_t stride;
  int32_t height;
  int64_t pixelBytes;  // of a pair in 4:2:2
  int64_t pixels;      // of which each takes so many bytes

  Frame(Case& test, int64_t bytesOfUnit, int64_t pixelsOfUnit)
      : height(test.side()), pixelBytes(bytesOfUnit), pixels(pixelsOfUnit) {
    stride = strideFor(test, (int64_t{test.side()} + 1) / pixels * pixelBytes);
  }
  StridedRows rows() const { return {stride, std::abs(int64_t{stride}), height}; }
  bool usable() const { return stride != 0 && height > 0 && rows().fit() != Fit::beyondAddresses; }
  // What of the frame at `lowest` may change.
  Untouched untouched(const uint8_t* lowest, const Placement& placed) const {
    const StridedRows all = rows();
    Untouched bytesLeft(lowest, all.size());
    // Negative ones lie outside whichever way they are rounded.
    const int64_t end = int64_t{placed.at.x} + placed.area.cx;
    const int64_t unitsBefore = placed.at.x / pixels;
    int64_t unitsEnd = (end + pixels - 1) / pixels;
    if (pixels == 2 && placed.area.cx <= 0) {
      // What is left of it are the pairs of odd edges, one after the other.
      unitsEnd = (int64_t{placed.at.x} + 1) / 2 + (end & 1);
    }
    for (int64_t y = 0; y < height; ++y) {
      const int64_t row = y * stride + (stride < 0 ? (height - 1) * all.distance() : 0);
      const bool above = y < placed.at.y;
      const bool below = y >= int64_t{placed.at.y} + placed.area.cy;
      if (above || below) {
        if (placed.at.y > 0) bytesLeft.allow(row, all.rowBytes);
      }
      if (y < placed.at.y || y >= int64_t{placed.at.y} + placed.area.cy) continue;
      const int64_t first = std::clamp<int64_t>(unitsBefore * pixelBytes, 0, all.rowBytes);
      const int64_t last = std::clamp<int64_t>(unitsEnd * pixelBytes, first, all.rowBytes);
      if (unitsBefore > 0) {
        bytesLeft.allow(row, all.rowBytes);
      } else {
        bytesLeft.allow(row + first, last - first);
      }
    }
    return bytesLeft;
  }
};

// The call, with a check of what it left alone in the frame.
template <class Call>
void callOnFrame(Case& test, const Frame& frame, const Placement& placed, const Call& convert) {
  const StridedRows rows = frame.rows();
  uint8_t* const lowest = test.writable(bytes(rows.size()));
  uint8_t* const first = rows.first(lowest);
  test.call(
      [&] {
        const Untouched left = frame.untouched(lowest, placed);
        convert(first);
        left.check("beside the rectangle");
      },
      Results::byLevel);
}

void rgb24ToYuy2(Case& test) {
  const int64_t width = test.side();
  const int32_t stride = strideFor(test, 3 * width);
  const SIZE sourceSize = {test.integer(0, 400), test.side()};
  const Frame frame(test, 4, 2);
  const SIZE frameSize = {test.integer(0, 400), frame.height};
  const Placement placed = placement(test);
  const ColorConversionParams colours = colourBlock(test);
  const ColorConversionParams* const params = test.orNull(&colours);
  test.keep(&colours, sizeof colours);
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noFrame = test.hostile() && test.oneIn(16);

  // Without a stride all rows are one, which has the pixels that fit in the frame, and those of the
  // odd edges of a rectangle without pixels.
  const int64_t inFrame = frame.rows().rowBytes / 4 * 2 - placed.at.x;
  const int64_t edges = (placed.at.x & 1) + ((int64_t{placed.at.x} + placed.area.cx) & 1);
  const int64_t read = placed.area.cx > 0 ? std::min<int64_t>(placed.area.cx, inFrame) : edges;
  const int64_t pixels =
      stride != 0 ? std::abs(int64_t{stride}) / 3 : placed.from.x + std::max<int64_t>(0, read);
  const StridedRows source = {stride, std::max<int64_t>(0, 3 * pixels), sourceSize.cy};
  const auto convert = [&](const uint8_t* from, uint8_t* to) {
    KVL_ConvertRgb24ToYUY2(from, stride, sourceSize, to, frame.stride, frameSize, placed.from,
                           placed.at, placed.area, params);
  };
  if (noSource || noFrame || params == nullptr || sourceSize.cy <= 0 || !frame.usable() ||
      source.fit() == Fit::beyondAddresses) {
    uint8_t* const from = noSource ? nullptr : test.untouchable();
    uint8_t* const to = noFrame ? nullptr : test.untouchable();
    test.callInVain([&] { convert(from, to); });
    return;
  }
  if (!source.possible() || frame.rows().fit() != Fit::inPool) return;
  const uint8_t* const from = source.readOnly(test);
  callOnFrame(test, frame, placed, [&](uint8_t* to) { convert(from, to); });
}

void rgb24ToY(Case& test) {
  const int32_t width = test.side(), height = test.side();
  const int32_t stride = strideFor(test, 3 * int64_t{width}), planeStride = strideFor(test, width);
  const ColorConversionParams colours = colourBlock(test);
  const ColorConversionParams* const params = test.orNull(&colours);
  test.keep(&colours, sizeof colours);
  const StridedRows source = {stride, 3 * int64_t{width}, height};
  const StridedRows plane = {planeStride, width, height};
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noPlane = test.hostile() && test.oneIn(16);
  const auto convert = [&](const uint8_t* from, uint8_t* to) {
    KVL_ConvertRgb24ToY(from, stride, to, planeStride, width, height, params);
  };
  if (noSource || noPlane || params == nullptr || width <= 0 || height <= 0 || plane.overlap() ||
      source.fit() == Fit::beyondAddresses || plane.fit() == Fit::beyondAddresses) {
    uint8_t* const from = noSource ? nullptr : test.untouchable();
    uint8_t* const to = noPlane ? nullptr : test.untouchable();
    test.callInVain([&] { convert(from, to); });
    return;
  }
  if (!source.possible() || !plane.possible()) return;
  const uint8_t* const from = source.readOnly(test);
  uint8_t* const to = plane.writable(test);
  test.call([&] { convert(from, to); }, Results::byLevel);
}

// A bitmap that lies at any address, its rows right behind its header.
struct PackedBitmap {
  BITMAPINFOHEADER header;
  int64_t offset;
  int64_t row;

  explicit PackedBitmap(Case& test) {
    const PixelFormat format = pixelFormat(test);
    const int32_t width = test.side(), height = test.side();
    header =
        test.header(width, test.oneIn(4) ? -height : height, format.bitCount, format.compression);
    if (test.oneIn(8)) header.biSize = 0;
    if (test.oneIn(4)) header.biClrUsed = static_cast<uint32_t>(test.ordinary(0, 256));
    offset = (header.biSize != 0 ? int64_t{header.biSize} : 40) +
             (header.biCompression == 3 ? 12 : int64_t{4} * header.biClrUsed);
    row = bitmapRow(header);
  }
  int64_t rows() const { return std::abs(int64_t{header.biHeight}); }
  bool usable() const {
    return row > 0 && rows() > 0 && fitOf(row, rows()) != Fit::beyondAddresses;
  }
  Fit fit() const { return std::max(fitOf(row, rows()), fitOf(offset, 1)); }
  // With all its rows, or the header alone.
  const BITMAPINFOHEADER* place(Case& test, bool whole) const {
    const int64_t size = std::max<int64_t>(sizeof header, whole ? offset + row * rows() : 0);
    if (size > static_cast<int64_t>(Case::maxBytes)) return nullptr;
    uint8_t* const at = test.readOnly(bytes(size));
    std::memcpy(at, &header, sizeof header);
    return reinterpret_cast<const BITMAPINFOHEADER*>(at);
  }
};

template <class Call>
void callWithBitmap(Case& test, const PackedBitmap& bitmap, const Frame& frame,
                    const Placement& placed, const Call& convert) {
  const bool noBitmap = test.hostile() && test.oneIn(16);
  const bool noFrame = test.hostile() && test.oneIn(16);
  if (noBitmap || noFrame || !bitmap.usable() || !frame.usable()) {
    const BITMAPINFOHEADER* const from = noBitmap ? nullptr : bitmap.place(test, false);
    uint8_t* const to = noFrame ? nullptr : test.untouchable();
    test.callInVain([&] { convert(from, to); });
    return;
  }
  if (bitmap.fit() != Fit::inPool || frame.rows().fit() != Fit::inPool) return;
  const BITMAPINFOHEADER* const from = bitmap.place(test, true);
  if (from == nullptr) return;
  callOnFrame(test, frame, placed, [&](uint8_t* to) { convert(from, to); });
}

void bitmapToRgbFrame(Case& test) {
  const PackedBitmap bitmap(test);
  const Frame frame(test, 4, 1);
  const Placement placed = placement(test);
  callWithBitmap(test, bitmap, frame, placed, [&](const BITMAPINFOHEADER* from, uint8_t* to) {
    KVL_CopyRgbBmpToRGBFrame(from, placed.from, to, placed.at, frame.stride, frame.height,
                             placed.area);
  });
}

void bitmapToYuyvFrame(Case& test) {
  const PackedBitmap bitmap(test);
  const Frame frame(test, 4, 2);
  const Placement placed = placement(test);
  const SIZE size = {test.integer(0, 400), frame.height};
  const uint8_t bt601 = test.byte() % 3;
  callWithBitmap(test, bitmap, frame, placed, [&](const BITMAPINFOHEADER* from, uint8_t* to) {
    KVL_CopyRgbBmpToYUYVFrame(from, placed.from, to, size, frame.stride, placed.at, placed.area,
                              bt601);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  switch (test.byte() % 4) {
    case 0:
      rgb24ToYuy2(test);
      break;
    case 1:
      rgb24ToY(test);
      break;
    case 2:
      bitmapToRgbFrame(test);
      break;
    default:
      bitmapToYuyvFrame(test);
  }
  return 0;
}
