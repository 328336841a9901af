// Warps, with hosts whose images are good, bad or not to be had.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "fuzz_frame.h"

namespace {

using namespace kvl::fuzz;
using kvl::test::GuardAt;
using kvl::test::GuardedMemory;

// What a host may do. Others than the first two make the warp change nothing.
enum class Conduct {
  good,
  topDown,
  noOperations,
  refuses,
  storesNothing,
  noHeader,
  noBits,
  shortRows,
  fewRows,
  count
};

struct Image : KvlWarpHostImage {
  BITMAPINFOHEADER header;
  std::unique_ptr<GuardedMemory> memory;
  bool noHeader;
  bool noBits;
  int* alive;
};

struct Host : KvlWarpHostAllocator {
  Conduct conduct;
  uint16_t bitCount;
  GuardAt guard;
  int created;
  int alive;
};

uint32_t release(KvlWarpHostImage* image) {
  auto* own = static_cast<Image*>(image);
  --*own->alive;
  delete own;
  return 0;
}

BITMAPINFOHEADER* header(KvlWarpHostImage* image) {
  auto* own = static_cast<Image*>(image);
  return own->noHeader ? nullptr : &own->header;
}

uint8_t* bits(KvlWarpHostImage* image) {
  auto* own = static_cast<Image*>(image);
  return own->noBits ? nullptr : own->memory->data();
}

constexpr KvlWarpHostImageOperations imageOperations = {nullptr, nullptr, release, header, bits};

int32_t createImage(KvlWarpHostAllocator* allocator, KvlWarpHostImage** image,
                    const KvlWarpImageRequest* request, int32_t flags, const char* file,
                    int32_t line) {
  auto* host = static_cast<Host*>(allocator);
  ++host->created;
  const uint32_t subtype = host->bitCount == 8    ? 0xE436EB7A
                           : host->bitCount == 24 ? 0xE436EB7D
                                                  : 0xE436EB7E;
  require(request->size == sizeof *request && flags == 8 && file != nullptr && line > 0 &&
              request->zero8 == 0 && request->zero48 == 0 && request->subtype.Data1 == subtype &&
              request->width >= 1 && request->height >= 1 &&
              request->imageWidth == request->width && request->imageHeight == request->height &&
              request->paddedWidth == (request->width + 15) / 16 * 16,
          "request of an image");
  // More would make the fuzzer slow. The spare rows depend on the team, and no result may.
  const int64_t stride = rowOf(request->width, host->bitCount);
  const int64_t rows = request->height - (2 * KVL_GetNumOpenMPThreads() + 1);
  require(rows >= 1, "rows of an image");
  if (host->conduct == Conduct::refuses || stride * rows > 300'000) return -1;
  if (host->conduct == Conduct::storesNothing) return 0;

  auto own = std::make_unique<Image>();
  own->operations = &imageOperations;
  own->header = {};
  own->header.biSize = sizeof own->header;
  own->header.biWidth = request->width;
  own->header.biHeight = host->conduct == Conduct::topDown ? -request->height : request->height;
  own->header.biPlanes = 1;
  own->header.biBitCount = host->bitCount;
  if (host->conduct == Conduct::shortRows) {
    // Short by more than the padding.
    own->header.biWidth = std::max(0, (request->width + 1) / 2 - 3);
  }
  if (host->conduct == Conduct::fewRows) own->header.biHeight = 1;
  own->memory =
      std::make_unique<GuardedMemory>(static_cast<size_t>(stride * request->height), host->guard);
  own->noHeader = host->conduct == Conduct::noHeader;
  own->noBits = host->conduct == Conduct::noBits;
  own->alive = &host->alive;
  ++host->alive;
  *image = own.release();
  return 0;
}

constexpr KvlWarpHostAllocatorOperations hostOperations = {nullptr, nullptr, nullptr, createImage};

RECT rectangleIn(Case& test, int32_t width, int32_t height) {
  if (test.byte() % 2 == 0) return {0, 0, width, height};
  const int32_t left = test.integer(0, 20), top = test.integer(0, 20);
  const int32_t right = test.integer(1, 60), bottom = test.integer(1, 60);
  // Mostly behind left and top.
  const auto sum = [&](int32_t a, int32_t b) {
    const int64_t value = int64_t{a} + b;
    return static_cast<int32_t>(test.hostile() ? b
                                               : std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
  };
  return {left, top, sum(left, right), sum(top, bottom)};
}

void fillMatrix(Case& test, double* m) {
  std::fill(m, m + 16, 0.0);
  m[10] = m[15] = 1;
  const uint8_t kind = test.byte() % 5;
  const double scale = kind == 0 ? 1 : test.number(0.02, kind == 1 ? 6 : 1.5);
  const double angle = kind == 4 ? test.number(-3.2, 3.2) : 0;
  m[0] = scale * std::cos(angle);
  m[1] = scale * std::sin(angle);
  m[4] = -m[1];
  m[5] = kind == 2 ? test.number(-3, 3) : m[0];
  m[12] = test.number(-20, 40);
  m[13] = test.number(-20, 40);
  if (kind == 3) {
    m[3] = test.number(-0.03, 0.03);
    m[7] = test.number(-0.03, 0.03);
  }
  if (test.byte() % 8 == 0) {
    for (int i = 0; i < 16; ++i) m[i] = test.number(-2, 2);
    m[11] = 0;
  } else if (test.hostile() && test.byte() % 2 == 0) {
    m[test.byte() % 16] = test.number(-1e6, 1e6);
  }
}

bool isRegion(const RECT& r) {
  return r.left >= 0 && r.top >= 0 && r.left < r.right && r.top < r.bottom;
}

bool hasRows(const BITMAPINFOHEADER& h) {
  return h.biWidth > 0 && h.biHeight != 0 && h.biHeight != INT32_MIN;
}

bool isCode(const BITMAPINFOHEADER& h) {
  return h.biCompression == 0 || (h.biCompression == 0xE436EB7A && h.biBitCount == 8) ||
         (h.biCompression == 0xE436EB7D && h.biBitCount == 24);
}

struct Arguments {
  BITMAPINFOHEADER destination;
  BITMAPINFOHEADER source;
  RECT destinationRect;
  RECT sourceRect;
  double matrix[16];
  Host host;
  int32_t level;
  uint32_t flags;

  explicit Arguments(Case& test) {
    constexpr uint16_t counts[] = {24, 8, 32, 24, 15, 28};
    const uint16_t bitCount = counts[test.byte() % (test.hostile() ? 6 : 3)];
    const uint32_t code = test.byte() % 2 == 0 ? 0
                          : bitCount == 8      ? 0xE436EB7A
                          : bitCount == 24     ? 0xE436EB7D
                          : bitCount == 32     ? 3
                                               : 0;
    const auto sign = [&] { return test.byte() % 4 == 0 ? -1 : 1; };
    destination = test.header(test.side(), sign() * test.ordinary(1, 60), bitCount, code);
    source = test.header(test.side(), sign() * test.ordinary(1, 60),
                         test.hostile() && test.oneIn(4) ? uint16_t{24} : bitCount, code);
    destinationRect = rectangleIn(test, destination.biWidth, std::abs(destination.biHeight % 4096));
    sourceRect = rectangleIn(test, source.biWidth, std::abs(source.biHeight % 4096));
    fillMatrix(test, matrix);
    host = {};
    host.operations = &hostOperations;
    host.conduct = test.hostile()
                       ? static_cast<Conduct>(test.byte() % static_cast<int>(Conduct::count))
                       : static_cast<Conduct>(test.byte() % 2);
    host.bitCount = static_cast<uint16_t>(destination.biBitCount / 8 * 8);
    host.guard = test.byte() % 4 == 0 ? GuardAt::start : GuardAt::end;
    if (host.conduct == Conduct::noOperations) host.operations = nullptr;
    level = test.integer(-1, 3);
    flags = test.oneOf({0, 0, 1, 3});
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  Arguments a(test);
  const BITMAPINFOHEADER *destinationHeader = test.orNull(&a.destination),
                         *sourceHeader = test.orNull(&a.source);
  const RECT *destinationRect = test.orNull(&a.destinationRect),
             *sourceRect = test.orNull(&a.sourceRect);
  const double* matrix = test.orNull(&a.matrix[0]);
  KvlWarpHostAllocator* allocator = test.orNull(&a.host);
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noDestination = test.hostile() && test.oneIn(16);
  test.keep(&a.destination, sizeof a.destination);
  test.keep(&a.source, sizeof a.source);
  test.keep(a.matrix, sizeof a.matrix);

  const int64_t pixelBytes = a.destination.biBitCount / 8;
  const int64_t rows = std::abs(int64_t{a.destination.biHeight});
  const int64_t sourceRows = std::abs(int64_t{a.source.biHeight});
  const int64_t stride = rowOf(a.destination.biWidth, a.destination.biBitCount);
  const int64_t sourceStride = rowOf(a.source.biWidth, a.source.biBitCount);
  const Fit fit = std::max(fitOf(stride, rows), fitOf(sourceStride, sourceRows));
  const bool pointers = destinationHeader != nullptr && sourceHeader != nullptr &&
                        destinationRect != nullptr && sourceRect != nullptr && matrix != nullptr &&
                        allocator != nullptr && !noSource && !noDestination;
  const int64_t right = std::min<int64_t>(a.sourceRect.right, a.source.biWidth);
  const bool accepted = pointers && hasRows(a.destination) && hasRows(a.source) &&
                        (pixelBytes == 1 || pixelBytes == 3 || pixelBytes == 4) &&
                        isRegion(a.destinationRect) && isRegion(a.sourceRect) &&
                        a.sourceRect.left < a.source.biWidth && a.sourceRect.top < sourceRows &&
                        right * pixelBytes <= sourceStride && fit != Fit::beyondAddresses;
  const auto warp = [&](const uint8_t* source, uint8_t* destination) {
    KVL_CalcQvWarpPixel(destinationHeader, destination, destinationRect, sourceHeader, source,
                        sourceRect, matrix, allocator, a.level, a.flags);
    require(a.host.alive == 0, "an image was not released");
  };
  if (!accepted) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const destination = noDestination ? nullptr : test.untouchable();
    test.callInVain([&] { warp(source, destination); });
    require(a.host.created == 0, "an image was asked for in vain");
    return 0;
  }
  // A bit count that no code has makes rows of 0 bytes, which is one more reason to do nothing.
  if (fit != Fit::inPool) return 0;
  const int64_t sourceRowBytes =
      std::max(right * pixelBytes, a.source.biWidth * int64_t{a.source.biBitCount} / 8);
  const uint8_t* const source =
      test.readOnly(static_cast<size_t>((sourceRows - 1) * sourceStride + sourceRowBytes));
  uint8_t* const destination =
      test.rows(static_cast<size_t>(stride),
                static_cast<size_t>(a.destination.biWidth * pixelBytes), static_cast<size_t>(rows));
  test.call([&] { warp(source, destination); }, Results::byLevel);
  if (a.host.created > 0) {
    const bool drawn = a.host.conduct == Conduct::good || a.host.conduct == Conduct::topDown;
    require(drawn || test.changedNothing(), "drawn without an image");
  }
  if (!isCode(a.destination) && a.destination.biBitCount != 32) {
    require(test.changedNothing(), "drawn into a bitmap that is not RGB");
  }
  return 0;
}
