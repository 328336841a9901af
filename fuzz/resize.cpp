// Resizes in two phases and in one, with records that the host has altered in between.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "fuzz_frame.h"

namespace {

using namespace kvl::fuzz;

struct Request {
  BITMAPINFOHEADER source;
  BITMAPINFOHEADER destination;
  double sourceRect[4];
  RECT destinationRect;
  uint32_t flags;
  const BITMAPINFOHEADER* sourceHeader = &source;
  const BITMAPINFOHEADER* destinationHeader = &destination;
  const double* sourceEdges = sourceRect;

  explicit Request(Case& test) {
    const bool grey = test.byte() % 3 == 0;
    const uint32_t code = test.byte() % 2 == 0 ? 0 : grey ? 0xE436EB7A : 0xE436EB7D;
    const uint16_t bits = grey ? 8 : 24;
    source = test.header(test.side(), test.side(), bits, code);
    destination = test.header(test.side(), test.side(), bits, code);
    for (int i = 0; i < 2; ++i) {
      const int32_t side = std::max(1, i == 0 ? source.biWidth : source.biHeight);
      const int32_t other = std::max(1, i == 0 ? destination.biWidth : destination.biHeight);
      const uint8_t kind = test.byte() % 4;
      sourceRect[i] = kind == 0 ? 0 : test.number(-side, side);
      sourceRect[i + 2] = kind == 0   ? side
                          : kind == 1 ? test.number(0, 2.0 * side)
                                      : sourceRect[i] + test.number(0, side);
      if (kind == 2) {
        sourceRect[i] = std::floor(sourceRect[i]);
        sourceRect[i + 2] = std::ceil(sourceRect[i + 2]);
      }
      int32_t low = 0, high = other;
      if (test.byte() % 3 == 0) {
        low = test.integer(-20, 20);
        high = test.integer(0, 60);
      }
      (i == 0 ? destinationRect.left : destinationRect.top) = low;
      (i == 0 ? destinationRect.right : destinationRect.bottom) = high;
    }
    flags = test.oneOf({0, 1, 2, 3});
    sourceHeader = test.orNull(sourceHeader);
    destinationHeader = test.orNull(destinationHeader);
    sourceEdges = test.orNull(sourceEdges);
  }
  // Headers point into the request itself.
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
};

bool isBitmap(const BITMAPINFOHEADER* header, uint16_t bits, uint32_t code) {
  return header != nullptr && header->biBitCount == bits &&
         (header->biCompression == 0 || header->biCompression == code) && header->biWidth >= 1 &&
         header->biHeight >= 1;
}

// The status that set-up owes, save for sizes near its limits, where it may also refuse.
int32_t expectedStatus(const Request& r, const RECT* destinationRect, bool* mayRefuse) {
  const auto pair = [&](uint16_t bits, uint32_t code) {
    return isBitmap(r.sourceHeader, bits, code) && isBitmap(r.destinationHeader, bits, code);
  };
  if (!pair(24, 0xE436EB7D) && !pair(8, 0xE436EB7A)) return KVL_E_INVALIDARG;
  if (r.sourceEdges == nullptr) return KVL_E_INVALIDARG;
  const double left = r.sourceRect[0], top = r.sourceRect[1];
  const double right = r.sourceRect[2], bottom = r.sourceRect[3];
  const bool meets = left < right && top < bottom && right > 0 && bottom > 0 &&
                     left < r.source.biWidth && top < r.source.biHeight;
  if (!meets) return KVL_S_FALSE;
  if (destinationRect == nullptr) return KVL_E_INVALIDARG;
  const RECT& d = *destinationRect;
  if (std::max<int32_t>(d.left, 0) >= std::min<int32_t>(d.right, r.destination.biWidth) ||
      std::max<int32_t>(d.top, 0) >= std::min<int32_t>(d.bottom, r.destination.biHeight)) {
    return KVL_S_FALSE;
  }
  if (!std::isfinite(right - left) || !std::isfinite(bottom - top)) return KVL_E_INVALIDARG;
  if (std::max(r.source.biWidth, r.source.biHeight) > 268435454) return KVL_E_INVALIDARG;
  constexpr double sure = 200e6;
  *mayRefuse = std::max({std::abs(left), std::abs(top), std::abs(right), std::abs(bottom)}) > sure;
  return KVL_S_OK;
}

void checkRecord(const Request& r, const ResizeSetup& s, uint64_t needed) {
  const auto bytes = static_cast<uint32_t>(r.source.biBitCount / 8);
  require(s.bytesPerPixel == bytes, "bytes a pixel");
  require(s.dstStride == static_cast<uint64_t>(rowOf(s.dstWidth, r.destination.biBitCount)) &&
              s.srcStride == static_cast<uint64_t>(rowOf(s.srcWidth, r.source.biBitCount)),
          "strides");
  const RECT& clip = s.dstClip;
  require(clip.left >= 0 && clip.left < clip.right && clip.right <= s.dstWidth && clip.top >= 0 &&
              clip.top < clip.bottom && static_cast<uint32_t>(clip.bottom) <= s.dstHeight,
          "the clip leaves the destination");
  const auto rows = static_cast<uint64_t>(clip.bottom - clip.top);
  require(s.intermediateStride == ((rows + 1) * bytes + 15) / 16 * 16, "intermediate stride");
  require(s.intermediateBytes == s.intermediateStride * static_cast<uint64_t>(s.srcWidth),
          "intermediate bytes");
  require(s.totalBytes >= s.intermediateBytes + s.weightBytes && s.totalBytes == needed,
          "total bytes");
  require(s.weightBytes >= 8u * std::max<uint64_t>(static_cast<uint64_t>(s.srcWidth), s.srcHeight),
          "weight bytes");
  require(s.borderBuffers == (r.flags & 1), "border flag");
}

// A few fields with other values.
void alter(Case& test, ResizeSetup& setup) {
  constexpr size_t words[] = {24,  88,  92,  96,  100, 136, 140, 144,
                              148, 152, 156, 160, 164, 168, 172, 176};
  constexpr size_t longs[] = {0, 8, 16, 32, 40, 48};
  constexpr size_t doubles[] = {56, 64, 72, 80, 104, 112, 120, 128};
  auto* record = reinterpret_cast<uint8_t*>(&setup);
  const auto put = [&](size_t at, const auto& value) {
    std::memcpy(record + at, &value, sizeof value);
  };
  for (int32_t i = test.ordinary(1, 3); i > 0; --i) {
    const uint8_t kind = test.byte() % 6;
    const uint8_t which = test.byte();
    if (kind == 0) {
      put(words[which % std::size(words)], test.integer(-3, 60));
    } else if (kind == 1) {
      // A neighbour of the right value is the likeliest to pass.
      const size_t at = words[which % std::size(words)];
      uint32_t value = 0;
      std::memcpy(&value, record + at, sizeof value);
      put(at, value + static_cast<uint32_t>(test.ordinary(-2, 2)));
    } else if (kind == 2) {
      const size_t at = longs[which % std::size(longs)];
      uint64_t value = 0;
      std::memcpy(&value, record + at, sizeof value);
      value += static_cast<uint64_t>(int64_t{test.integer(-8, 40)});
      if (test.oneIn(8)) value = static_cast<uint64_t>(int64_t{test.integer(-8, 40)}) << 31;
      put(at, value);
    } else if (kind == 3) {
      put(doubles[which % std::size(doubles)], test.number(-40, 80));
    } else if (kind == 4) {
      // Rows may lie farther apart than set-up says.
      (which % 2 == 0 ? setup.srcStride : setup.dstStride) = (uint64_t{1} << 28) * (which % 20 + 1);
    } else {
      setup.borderBuffers = which;
    }
  }
}

// What the record says that the host owns, from its first row to the end of its last; none where a
// row does not fit between two, which must be refused.
struct Picture {
  uint64_t stride;
  uint64_t rowBytes;
  uint64_t rows;
  bool fits;

  Picture(uint64_t givenStride, int32_t width, uint32_t height, uint32_t bytesPerPixel)
      : stride(givenStride), rowBytes(0), rows(height), fits(true) {
    const bool absurd = width < 1 || height < 1 || height > INT32_MAX || bytesPerPixel > 3;
    if (!absurd) rowBytes = static_cast<uint64_t>(width) * bytesPerPixel;
    if (absurd || stride < rowBytes) {
      stride = rowBytes = rows = 0;
      return;
    }
    fits = stride < (uint64_t{1} << 40) &&
           fitOf(static_cast<int64_t>(stride), static_cast<int64_t>(rows),
                 static_cast<int64_t>(rowBytes)) <= Fit::apart;
  }
  size_t bytes() const { return rows == 0 ? 0 : (rows - 1) * stride + rowBytes; }
  const uint8_t* readOnly(Case& test) const { return test.readOnlyRows(stride, rowBytes, rows); }
  uint8_t* writable(Case& test) const { return test.rows(stride, rowBytes, rows); }
};

void execute(Case& test, const ResizeSetup& setup, bool altered) {
  const Picture source(setup.srcStride, setup.srcWidth, setup.srcHeight, setup.bytesPerPixel);
  const Picture destination(setup.dstStride, setup.dstWidth, setup.dstHeight, setup.bytesPerPixel);
  const uint64_t total = setup.totalBytes;
  const bool room = total <= Case::maxBytes;
  const ResizeSetup* record = test.orNull(&setup);
  const bool refused = record == nullptr || !room || !source.fits || !destination.fits ||
                       (test.hostile() && test.oneIn(16));
  int32_t status = 0;
  if (refused) {
    // With a work buffer that is too small or no pointer nothing may be looked at.
    const bool small = total > 0 && test.byte() % 2 == 0;
    const uint8_t* const from = test.untouchable();
    uint8_t* const to = small ? test.untouchable() : nullptr;
    uint8_t* const work = test.untouchable();
    test.callInVain([&] {
      status = KVL_CalcResizeDib(record, from, to, work, small ? total - 1 : UINT64_MAX);
    });
    require(status == KVL_E_INVALIDARG, "a refused call has another status");
    return;
  }

  const ResizeSetup before = setup;
  const uint8_t* const from = source.readOnly(test);
  uint8_t* const to = destination.writable(test);
  if (!altered) {
    const auto first = static_cast<size_t>(setup.dstFirstColumn);
    const auto end = std::max(first, static_cast<size_t>(setup.dstClip.right));
    const auto skip = static_cast<size_t>(setup.dstHeight) - setup.dstClip.bottom;
    test.onlyWritten(skip * destination.stride + first * setup.bytesPerPixel, destination.stride,
                     (end - first) * setup.bytesPerPixel,
                     static_cast<size_t>(setup.dstClip.bottom - setup.dstClip.top));
  }
  uint8_t* const work = test.scratch(total);
  test.call([&] { status = KVL_CalcResizeDib(&setup, from, to, work, total); });
  require(std::memcmp(&before, &setup, sizeof setup) == 0, "execution has changed the record");
  if (altered) {
    require(status == KVL_S_OK || status == KVL_E_FAIL || status == KVL_E_INVALIDARG, "status");
  } else {
    require(status == KVL_S_OK, "a record of set-up's own was refused");
  }
  if (status == KVL_E_INVALIDARG) require(test.changedNothing(), "a refused call has written");
  if (status == KVL_E_FAIL) {
    require(std::all_of(work, work + total, [](uint8_t byte) { return byte == 0; }),
            "the work buffer is not cleared");
  }
}

using OneCall = decltype(&KVL_ResizeDIB_CPP);

void resizeInOneCall(Case& test, const Request& r, const RECT& rect, int32_t setupStatus,
                     const ResizeSetup& setup) {
  const OneCall resize = test.byte() % 2 == 0 ? KVL_ResizeDIB_CPP : KVL_ResizeDIB_RGB24_CPP;
  int32_t status = 0;
  test.keep(&rect, sizeof rect);
  const RECT* const rectangle = test.orNull(&rect);
  if (setupStatus != KVL_S_OK || rectangle == nullptr) {
    const uint8_t* const from = test.untouchable();
    uint8_t* const to = test.untouchable();
    test.callInVain([&] {
      status =
          resize(r.sourceHeader, from, r.sourceEdges, r.destinationHeader, to, rectangle, r.flags);
    });
    require(status == KVL_E_INVALIDARG, "the one call does what set-up refuses");
    return;
  }
  const Picture source(setup.srcStride, setup.srcWidth, setup.srcHeight, setup.bytesPerPixel);
  const Picture destination(setup.dstStride, setup.dstWidth, setup.dstHeight, setup.bytesPerPixel);
  if (!source.fits || !destination.fits || setup.totalBytes > Case::maxBytes) return;
  const uint8_t* const from = source.readOnly(test);
  uint8_t* const to = destination.writable(test);
  uint8_t* const again = destination.writable(test);
  std::memcpy(again, to, destination.bytes());
  uint8_t* const work = test.scratch(setup.totalBytes);
  test.call([&] {
    status =
        resize(r.sourceHeader, from, r.sourceEdges, r.destinationHeader, to, rectangle, r.flags);
    require(KVL_CalcResizeDib(&setup, from, again, work, setup.totalBytes) == status, "statuses");
  });
  require(status == KVL_S_OK, "the one call refuses what set-up takes");
  require(std::memcmp(to, again, destination.bytes()) == 0, "one call and two phases differ");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  const Request request(test);
  const RECT given = request.destinationRect;
  RECT clip = given;
  RECT* const clipped = test.orNull(&clip);
  ResizeSetup setup;
  std::memset(static_cast<void*>(&setup), 0xA5, sizeof setup);
  const ResizeSetup blank = setup;
  uint64_t needed = 7;
  const int32_t status =
      KVL_SetupResizeDib(request.sourceHeader, request.sourceEdges, request.destinationHeader,
                         clipped, request.flags, &setup, test.byte() % 8 == 0 ? nullptr : &needed);
  bool mayRefuse = false;
  const int32_t expected =
      expectedStatus(request, clipped == nullptr ? nullptr : &given, &mayRefuse);
  require(status == expected || (mayRefuse && status == KVL_E_INVALIDARG), "status of set-up");
  const auto isClip = [&](const RECT& r) { return std::memcmp(&clip, &r, sizeof clip) == 0; };
  if (status == KVL_S_FALSE) {
    require(isClip(given) || isClip(RECT{}), "what is left of the rectangle is not nothing");
  } else if (clipped != nullptr && status == KVL_S_OK) {
    require(isClip(setup.dstClip), "the rectangle was not clipped");
  }
  if (status != KVL_S_OK) {
    require(std::memcmp(&setup, &blank, sizeof setup) == 0, "set-up has written without success");
    require(needed == 7, "set-up told bytes without success");
  } else {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&setup);
    require(std::count(bytes + 28, bytes + 32, 0xA5) == 4 &&
                std::count(bytes + 181, bytes + 184, 0xA5) == 3,
            "padding of the record was written");
    checkRecord(request, setup, needed == 7 ? setup.totalBytes : needed);
  }
  KVL_EndResizeDib();

  const uint8_t what = test.byte() % 4;
  if (what == 0 || (status != KVL_S_OK && clipped != nullptr)) {
    if (clipped != nullptr) resizeInOneCall(test, request, given, status, setup);
  } else if (status == KVL_S_OK) {
    if (what == 1) alter(test, setup);
    execute(test, setup, what == 1);
  }
  return 0;
}
