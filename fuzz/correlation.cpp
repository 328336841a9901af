// Grey images and block motion searches.
#include <cmath>
#include <cstring>

#include "strided_rows.h"

namespace {

using namespace kvl::fuzz;

constexpr double mostWork = 1e6;
// Of one square of an iterative search, which may search many.
constexpr double mostWorkOfSquare = 5e4;

bool missing(Case& test) {
  return test.hostile() && test.oneIn(16);
}

// Options as long as the library knows them, before an unreadable page.
const CorrelationOptions* place(Case& test, const CorrelationOptions& options) {
  uint8_t* const at = test.readOnly(sizeof options);
  std::memcpy(at, &options, sizeof options);
  return reinterpret_cast<const CorrelationOptions*>(at);
}

int32_t position(Case& test) {
  return test.integer(-8, 48);
}

CorrelationOptions optionsFor(Case& test, int32_t width, int32_t height) {
  CorrelationOptions options;
  fillWithNoise(test, &options, sizeof options);
  options.width = width;
  options.height = height;
  options.blockLeft = position(test);
  options.blockTop = position(test);
  options.blockRight = position(test);
  options.blockBottom = position(test);
  options.fieldRepair = test.oneOf({0, 1, 0, 256});
  options.fieldRepairMode = test.oneOf({0, 1, 2, 3, 4});
  options.source16Bit = test.oneOf({0, 0, 1});
  options.channel = test.oneOf({0, 1, 2, 3, 4});
  options.fieldParity = test.oneOf({0, 1});
  options.subStep = test.single(0.1f, 2.0f);
  options.subScale = test.single(0, 3);
  options.subRange = test.single(0, 2);
  return options;
}

void frameToGray(Case& test) {
  const int32_t width = test.side(), height = test.side();
  const int32_t sourceStride = strideFor(test, 3 * int64_t{width});
  const int32_t stride = strideFor(test, width);
  const bool noSource = missing(test), noResult = missing(test);
  const StridedRows from = {sourceStride, 3 * int64_t{width}, height};
  const StridedRows to = {stride, width, height};
  const auto convert = [&](const uint8_t* source, uint8_t* destination) {
    KVL_ConvertFrameToGray(source, sourceStride, destination, stride, width, height);
  };
  if (noSource || noResult || width < 1 || height < 1 || from.fit() == Fit::beyondAddresses ||
      to.fit() == Fit::beyondAddresses) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const destination = noResult ? nullptr : test.untouchable();
    test.callInVain([&] { convert(source, destination); });
    return;
  }
  if (!from.possible() || !to.possible()) return;
  const uint8_t* const source = from.readOnly(test);
  uint8_t* const destination =
      to.overlap() ? to.first(test.scratch(bytes(to.size()))) : to.writable(test);
  test.call([&] { convert(source, destination); });
}

void bitmapToGray(Case& test) {
  const int32_t width = test.side(), height = test.side();
  const CorrelationOptions options = optionsFor(test, width, height);
  const auto pixelOffset = static_cast<uint16_t>(test.oneIn(4) ? test.integer(0, 65535) : 40);
  const bool noSource = missing(test), noResult = missing(test), noOptions = missing(test);
  const bool pairs = options.source16Bit != 0;
  const int64_t stride = pairs ? 2 * int64_t{width} : row24(width);
  const bool skipsRows =
      options.fieldRepair != 0 && (options.fieldRepairMode == 1 || options.fieldRepairMode == 2);
  const int64_t rows = pairs && skipsRows ? (int64_t{height} + 1) / 2 : height;
  const StridedRows from = {stride, (pairs ? 2 : 3) * int64_t{width}, rows};
  const StridedRows to = {width, width, height};
  const bool inVain = noSource || noResult || noOptions || width < 1 || height < 1 || stride == 0 ||
                      from.fit() == Fit::beyondAddresses || to.fit() == Fit::beyondAddresses;
  if (!inVain && (from.fit() != Fit::inPool || to.fit() != Fit::inPool)) return;
  // Of the header two bytes are looked at.
  const int64_t size = inVain ? 2 : std::max<int64_t>(2, pixelOffset + from.size());
  if (size > static_cast<int64_t>(Case::maxBytes)) return;
  uint8_t* const at = noSource ? nullptr : test.readOnly(bytes(size));
  if (at != nullptr) std::memcpy(at, &pixelOffset, sizeof pixelOffset);
  const auto* const source = reinterpret_cast<const BITMAPINFOHEADER*>(at);
  const CorrelationOptions* const given = noOptions ? nullptr : place(test, options);
  if (inVain) {
    uint8_t* const destination = noResult ? nullptr : test.untouchable();
    test.callInVain([&] { KVL_Convert2Gray(source, destination, given); });
    return;
  }
  uint8_t* const destination = to.writable(test);
  test.call([&] { KVL_Convert2Gray(source, destination, given); });
}

// What the searches by squared differences are given.
struct SquaredCase {
  int32_t width, height;
  int32_t strideA, strideB;
  RECT block;
  bool masked;
  StridedRows a, b;

  explicit SquaredCase(Case& test)
      : width(test.side()),
        height(test.side()),
        strideA(strideFor(test, width)),
        strideB(strideFor(test, width)),
        block{position(test), position(test), position(test), position(test)},
        masked(test.oneIn(3)),
        a{strideA, width, height},
        b{strideB, width, height} {
    if (test.oneIn(4)) block = {0, 0, width, height};
  }
  bool empty() const { return width < 1 || height < 1; }
  Fit fit() const { return empty() ? Fit::inPool : std::max(a.fit(), b.fit()); }
  // Pixels that a displacement compares at most.
  double blockPixels() const {
    return std::max(1.0, std::min(width, 4096) * 1.0) * std::max(1.0, std::min(height, 4096) * 1.0);
  }
};

bool same(const CorrelationVector& a, double x, double y) {
  return a.x == x && a.y == y;
}

void searchNormal(Case& test) {
  const SquaredCase images(test);
  const int32_t range = test.oneIn(4) ? test.integer(0, 64) : test.integer(-1, 12);
  const bool noScore = missing(test), noA = missing(test), noB = missing(test);
  const RECT* const block = test.orNull(&images.block);
  test.keep(&images.block, sizeof images.block);
  CorrelationVector found = {};
  const auto search = [&](int64_t* score, const uint8_t* a, const uint8_t* b, const uint8_t* mask) {
    found = KVL_CalcCorrelationNormal(score, a, images.strideA, b, images.strideB, mask,
                                      images.width, images.height, block, range);
  };
  const bool noPointer = noScore || noA || noB || block == nullptr;
  auto* const score = noScore ? nullptr : reinterpret_cast<int64_t*>(test.writable(8));
  if (noPointer || images.empty() || range < 0 || images.fit() == Fit::beyondAddresses) {
    const uint8_t* const a = noA ? nullptr : test.untouchable();
    const uint8_t* const b = noB ? nullptr : test.untouchable();
    const uint8_t* const mask = images.masked ? test.untouchable() : nullptr;
    const auto body = [&] {
      search(score, a, b, mask);
      if (noPointer || range < 0 || images.fit() == Fit::beyondAddresses) {
        require(same(found, 0, 0), "vector in vain");
      }
      if (!noPointer) require(*score == 0, "score in vain");
    };
    noPointer ? test.callInVain(body) : test.call(body);
    return;
  }
  const double columns = 2.0 * std::min(range, images.width) + 1;
  const double rows = 2.0 * std::min(range, images.height) + 1;
  if (images.fit() > Fit::apart || columns * rows * images.blockPixels() > mostWork) return;
  const uint8_t* const a = images.a.readOnly(test);
  const bool oneImage = images.strideA == images.strideB && test.oneIn(8);
  const uint8_t* const b = oneImage ? a : images.b.readOnly(test);
  const uint8_t* const mask =
      images.masked ? test.readOnly(bytes(int64_t{images.width} * images.height)) : nullptr;
  test.watch(&found, sizeof found);
  test.call([&] {
    search(score, a, b, mask);
    require(std::abs(found.x) <= range && std::abs(found.y) <= range, "vector beyond the range");
  });
}

// A table that is mostly zeroed, as it should be; sometimes it holds anything.
uint8_t* scoreTable(Case& test, int64_t entries, size_t entrySize) {
  const bool cleared = !test.oneIn(4);
  uint8_t* const table = test.writable(bytes(entries) * entrySize);
  if (cleared) std::memset(table, 0, bytes(entries) * entrySize);
  return table;
}

void searchIterativ(Case& test) {
  const SquaredCase images(test);
  const int32_t maxSteps = test.integer(0, 8), limit = test.integer(0, 20);
  const POINT start = {test.integer(-9, 9), test.integer(-9, 9)};
  const POINT* const given = test.oneIn(3) ? nullptr : &start;
  const bool noScore = missing(test), noA = missing(test), noB = missing(test);
  const bool noTable = missing(test);
  const RECT* const block = test.orNull(&images.block);
  test.keep(&images.block, sizeof images.block);
  test.keep(&start, sizeof start);
  CorrelationVector found = {};
  const auto search = [&](int64_t* score, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
                          int64_t* table) {
    found =
        KVL_CalcCorrelationIterativ(score, a, images.strideA, b, images.strideB, mask, images.width,
                                    images.height, block, given, maxSteps, limit, table);
  };
  const bool noPointer = noScore || noA || noB || noTable || block == nullptr;
  auto* const score = noScore ? nullptr : reinterpret_cast<int64_t*>(test.writable(8));
  const int64_t entries = images.empty() ? 0 : int64_t{images.width} * images.height;
  const Fit fit =
      std::max(images.fit(), fitOf(8 * int64_t{std::max(0, images.width)}, images.height));
  if (noPointer || images.empty() || fit == Fit::beyondAddresses) {
    const uint8_t* const a = noA ? nullptr : test.untouchable();
    const uint8_t* const b = noB ? nullptr : test.untouchable();
    const uint8_t* const mask = images.masked ? test.untouchable() : nullptr;
    auto* const table = noTable ? nullptr : reinterpret_cast<int64_t*>(test.untouchable());
    const auto body = [&] {
      search(score, a, b, mask, table);
      if (noPointer) {
        require(same(found, 0, 0), "vector in vain");
        return;
      }
      require(same(found, given != nullptr ? start.x : 0, given != nullptr ? start.y : 0),
              "vector of no search");
      require(*score == 0, "score in vain");
    };
    noPointer ? test.callInVain(body) : test.call(body);
    return;
  }
  if (fit > Fit::apart) return;
  const double ring =
      2.0 * std::min<double>(maxSteps, 2.0 * (int64_t{images.width} + images.height)) + 1;
  if (ring * ring * ring / 6 * 4 + ring * ring * images.blockPixels() > mostWorkOfSquare) return;
  const uint8_t* const a = images.a.readOnly(test);
  const bool oneImage = images.strideA == images.strideB && test.oneIn(8);
  const uint8_t* const b = oneImage ? a : images.b.readOnly(test);
  const uint8_t* const mask = images.masked ? test.readOnly(bytes(entries)) : nullptr;
  auto* const table = reinterpret_cast<int64_t*>(scoreTable(test, entries, sizeof(int64_t)));
  test.watch(&found, sizeof found);
  test.call([&] { search(score, a, b, mask, table); });
}

// The record of a block, of which a search may write two members.
CorrelationBlockResult* blockResult(Case& test) {
  uint8_t* const at = test.writable(sizeof(CorrelationBlockResult));
  test.onlyWritten(
      offsetof(CorrelationBlockResult, score),
      offsetof(CorrelationBlockResult, limitHit) - offsetof(CorrelationBlockResult, score), 8, 2);
  return reinterpret_cast<CorrelationBlockResult*>(at);
}

// What the searches by positive differences are given: images without padding.
struct BrighteningCase {
  int32_t width, height;
  CorrelationOptions options;
  bool noResult, noA, noB, noOptions, noTable;

  explicit BrighteningCase(Case& test)
      : width(test.side()),
        height(test.side()),
        options(optionsFor(test, width, height)),
        noResult(missing(test)),
        noA(missing(test)),
        noB(missing(test)),
        noOptions(missing(test)),
        noTable(missing(test)) {
    if (test.oneIn(4)) {
      options.blockLeft = options.blockTop = 0;
      options.blockRight = width;
      options.blockBottom = height;
    }
  }
  bool empty() const { return width < 1 || height < 1; }
  int64_t pixels() const { return empty() ? 0 : int64_t{width} * height; }
  // With a table of 4 bytes a pixel.
  Fit fit() const { return empty() ? Fit::inPool : fitOf(4 * int64_t{width}, height); }
};

void searchNorm(Case& test) {
  const BrighteningCase images(test);
  const bool iterative = test.oneIn(2);
  const int32_t range = test.oneIn(4) ? test.integer(0, 64) : test.integer(-1, 12);
  const auto stopAtLimit = static_cast<uint8_t>(test.oneOf({0, 1}));
  const bool noPointer =
      images.noResult || images.noA || images.noB || images.noOptions || images.noTable;
  const bool nothing =
      images.empty() || images.fit() == Fit::beyondAddresses || (!iterative && range < 0);
  if (!noPointer && !nothing) {
    const double reach = std::min<double>(range, 2.0 * (int64_t{images.width} + images.height));
    const double ring = iterative ? std::max(reach, 0.0) + 1 : 2 * reach + 1;
    const double work = ring * ring * static_cast<double>(images.pixels());
    if (images.fit() != Fit::inPool || work > (iterative ? mostWorkOfSquare : mostWork)) return;
    if (ring * ring * ring > mostWork) return;
  }
  CorrelationBlockResult* const result = images.noResult ? nullptr : blockResult(test);
  const CorrelationOptions* const options =
      images.noOptions ? nullptr : place(test, images.options);
  const int64_t pixels = noPointer || nothing ? 0 : images.pixels();
  const uint8_t* const a = images.noA ? nullptr : test.readOnly(bytes(pixels));
  const uint8_t* const b = images.noB ? nullptr : test.readOnly(bytes(pixels));
  auto* const table = images.noTable
                          ? nullptr
                          : reinterpret_cast<uint32_t*>(scoreTable(test, pixels, sizeof(uint32_t)));
  auto* const first =
      test.oneIn(4) ? nullptr : reinterpret_cast<uint32_t*>(test.writable(sizeof(uint32_t)));
  if (first != nullptr && !test.oneIn(3)) *first = 0xFFFFFFFF;
  CorrelationVector found = {};
  test.watch(&found, sizeof found);
  const auto body = [&] {
    found = iterative
                ? KVL_CalcCorrelationIt(result, a, b, range, stopAtLimit, options, table, first)
                : KVL_CalcCorrelationNorm(result, a, b, range, options, table);
    if (noPointer || (nothing && !images.empty())) require(same(found, 0, 0), "vector in vain");
    if (!noPointer && nothing) require(result->score == 0, "score in vain");
  };
  noPointer ? test.callInVain(body) : test.call(body);
}

void searchSub(Case& test) {
  BrighteningCase images(test);
  CorrelationVector centre = {test.number(-6, 6), test.number(-6, 6)};
  const bool noCentre = missing(test);
  const bool noPointer =
      images.noResult || images.noA || images.noB || images.noOptions || noCentre;
  const double step = images.options.subStep, range = images.options.subRange;
  const bool nothing = images.empty() || images.fit() == Fit::beyondAddresses ||
                       !(step >= 1.0 / 1024) || !std::isfinite(step) || !(range >= 0) ||
                       !std::isfinite(range) || !std::isfinite(centre.x) ||
                       !std::isfinite(centre.y);
  const double side = 2 * range / step + 1;
  const bool tooMany = side * side > 2.2e9;
  if (!noPointer && !nothing) {
    if (images.fit() != Fit::inPool) return;
    const double samples = static_cast<double>(images.pixels()) / (step * step);
    if (!tooMany && side * side * (1 + samples) > mostWork) return;
    // In between it is for the rounding to say.
    if (side * side > 2e9 && !tooMany) return;
  }
  CorrelationBlockResult* const result = images.noResult ? nullptr : blockResult(test);
  const CorrelationOptions* const options =
      images.noOptions ? nullptr : place(test, images.options);
  const int64_t pixels = noPointer || nothing ? 0 : images.pixels();
  const uint8_t* const a = images.noA ? nullptr : test.readOnly(bytes(pixels));
  const uint8_t* const b = images.noB ? nullptr : test.readOnly(bytes(pixels));
  CorrelationVector found = {};
  test.watch(&found, sizeof found);
  test.keep(&centre, sizeof centre);
  const auto body = [&] {
    found = KVL_CalcCorrelationSub(result, a, b, noCentre ? nullptr : &centre, options);
    if (noPointer || nothing) require(same(found, 0, 0), "vector in vain");
    if (!noPointer && nothing) require(result->score == 0, "score in vain");
    if (!noPointer && !nothing) require(result->score <= 0, "a score above the best possible");
  };
  noPointer ? test.callInVain(body) : test.call(body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  switch (test.byte() % 6) {
    case 0:
      frameToGray(test);
      break;
    case 1:
      bitmapToGray(test);
      break;
    case 2:
      searchNormal(test);
      break;
    case 3:
      searchIterativ(test);
      break;
    case 4:
      searchNorm(test);
      break;
    default:
      searchSub(test);
  }
  return 0;
}
