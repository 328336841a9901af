#include "resize/resize_setup.h"
#include "core/rounding.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

// A record and what lies in it before the call: every byte that a call leaves alone shows.
struct Record {
  ResizeSetup setup;

  Record() { std::memset(static_cast<void*>(&setup), 0xA5, sizeof setup); }
  const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(&setup); }
  bool untouched() const {
    return std::all_of(bytes(), bytes() + sizeof setup, [](uint8_t b) { return b == 0xA5; });
  }
};

struct Call {
  BITMAPINFOHEADER source;
  BITMAPINFOHEADER destination;
  double rect[4];
  RECT into;
  uint32_t flags = 0;

  int32_t operator()(Record& record, RECT& clip, uint64_t& needed) const {
    clip = into;
    needed = 77;
    return KVL_SetupResizeDib(&source, rect, &destination, &clip, flags, &record.setup, &needed);
  }
  int32_t status() const {
    Record record;
    RECT clip;
    uint64_t needed;
    return (*this)(record, clip, needed);
  }
};

Call plainCall(int32_t width = 20, int32_t height = 10, uint16_t bits = 24) {
  return {makeHeader(width, height, bits),
          makeHeader(30, 40, bits),
          {0, 0, static_cast<double>(width), static_cast<double>(height)},
          {0, 0, 30, 40}};
}

bool sameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// The record as its fields are defined, one by one, as bytes; gaps keep what they held.
std::vector<uint8_t> modelRecord(const Call& c, const RECT& clip) {
  std::vector<uint8_t> bytes(184, 0xA5);
  size_t at = 0;
  const auto put = [&](auto value) {
    at = (at + sizeof value - 1) / sizeof value * sizeof value;
    std::memcpy(&bytes[at], &value, sizeof value);
    at += sizeof value;
  };
  const double l = c.rect[0], t = c.rect[1], r = c.rect[2], b = c.rect[3];
  const int64_t w = c.source.biWidth, h = c.source.biHeight;
  const int64_t dw = c.destination.biWidth, dh = c.destination.biHeight;
  const uint32_t components = c.source.biBitCount / 8;
  const double scaleX = (r - l) / (clip.right - clip.left);
  const double scaleY = (b - t) / (clip.bottom - clip.top);
  const int64_t left = RoundToInt(l, 0.0), top = RoundToInt(t, 0.0);
  const int64_t right = RoundToInt(l + (r - l), 1.0), bottom = RoundToInt(t + (b - t), 1.0);

  int64_t firstColumn = std::max<int64_t>(clip.left, 0),
          skip = std::max<int64_t>(dh - clip.bottom, 0);
  int64_t rows = dh - std::max<int64_t>(clip.top, 0);
  if (l < 0) firstColumn += RoundToInt(-l / scaleX, 0.0);
  if (b > static_cast<double>(h)) skip += RoundToInt((b - static_cast<double>(h)) / scaleY, 0.0);
  if (t < 0) rows -= RoundToInt(-t / scaleY, 0.0);
  const int64_t srcFirst = std::max<int64_t>(left, 0), srcSkip = std::max<int64_t>(h - bottom, 0);

  const uint64_t stride =
      (static_cast<uint64_t>(clip.bottom - clip.top + 1) * components + 15) / 16 * 16;
  const uint64_t intermediate = static_cast<uint64_t>(w) * stride;
  const uint64_t weights =
      static_cast<uint64_t>(8 * std::max({w, h, right - left, bottom - top}) + 8);
  const uint64_t border = (c.flags & 1) != 0 ? static_cast<uint64_t>(w + h) * components * 2 : 0;
  put(border + weights + intermediate);
  put(intermediate);
  put(weights);
  put(components);
  put(static_cast<uint64_t>((dw * components + 3) / 4 * 4));
  put(static_cast<uint64_t>((w * components + 3) / 4 * 4));
  put(stride);
  for (const double edge : {l, r, t, b}) put(edge);
  for (const auto edge : {clip.left, clip.top, clip.right, clip.bottom}) put(edge);
  for (const double value : {scaleX, scaleY, r - l, b - t}) put(value);
  for (const int64_t value :
       {dw, dh, w, h, firstColumn, skip, srcFirst, srcSkip, rows - skip,
        h - std::max<int64_t>(top, 0) - srcSkip, std::min(right, w) - srcFirst}) {
    put(static_cast<int32_t>(value));
  }
  put(static_cast<uint8_t>(c.flags & 1));
  return bytes;
}

TEST(ResizeSetup, FillsEveryFieldAndNothingElse) {
  Random random(1);
  int drawn = 0;
  for (int i = 0; i < 50000; ++i) {
    const auto size = [&] { return random.range(1, i % 3 == 0 ? 12 : 3000); };
    const bool rgb = random.range(0, 1) != 0;
    Call c = {makeHeader(size(), size(), rgb ? 24 : 8),
              makeHeader(size(), size(), rgb ? 24 : 8),
              {},
              {},
              random.next()};
    if (random.range(0, 3) == 0) c.source.biCompression = rgb ? 0xE436EB7D : 0xE436EB7A;
    if (random.range(0, 3) == 0) c.destination.biCompression = rgb ? 0xE436EB7D : 0xE436EB7A;
    const double unit = i % 2 == 0 ? 1 : 1.0 / random.range(1, 1000000);
    const double reach = i % 5 == 0 ? 4e4 : 1.5;
    for (int side = 0; side < 4; ++side) {
      const double length = side % 2 == 0 ? c.source.biWidth : c.source.biHeight;
      const double position = (random.range(-1000, 1000) / 1000.0) * reach * length;
      c.rect[side] = std::floor(position / unit) * unit;
    }
    c.into = {random.range(-50, 3000), random.range(-50, 3000), random.range(-50, 3000),
              random.range(-50, 3000)};
    if (random.range(0, 9) != 0) {
      for (const int side : {0, 1}) {
        if (c.rect[side] > c.rect[side + 2]) std::swap(c.rect[side], c.rect[side + 2]);
      }
      if (c.into.left > c.into.right) std::swap(c.into.left, c.into.right);
      if (c.into.top > c.into.bottom) std::swap(c.into.top, c.into.bottom);
    }
    const RECT clip = {std::max<int32_t>(c.into.left, 0), std::max<int32_t>(c.into.top, 0),
                       std::min<int32_t>(c.into.right, c.destination.biWidth),
                       std::min<int32_t>(c.into.bottom, c.destination.biHeight)};
    const bool misses =
        !(c.rect[0] < c.rect[2] && c.rect[1] < c.rect[3] && c.rect[2] > 0 &&
          c.rect[0] < c.source.biWidth && c.rect[3] > 0 && c.rect[1] < c.source.biHeight);
    const bool empty = clip.left >= clip.right || clip.top >= clip.bottom;

    Record record;
    RECT result;
    uint64_t needed;
    const int32_t status = c(record, result, needed);
    const RECT zero = {0, 0, 0, 0};
    if (misses || empty) {
      ASSERT_EQ(status, KVL_S_FALSE) << i;
      ASSERT_TRUE(record.untouched() && needed == 77) << i;
      ASSERT_TRUE(sameRect(result, misses ? c.into : zero)) << i;
      continue;
    }
    ++drawn;
    ASSERT_EQ(status, KVL_S_OK) << i;
    ASSERT_TRUE(sameRect(result, clip)) << i;
    ASSERT_EQ(needed, record.setup.totalBytes) << i;
    expectBytes(modelRecord(c, clip), {record.bytes(), record.bytes() + 184}, 184, 1, text(i));
    ASSERT_TRUE(isConsistent(record.setup)) << i;
  }
  EXPECT_GT(drawn, 5000);
}

TEST(ResizeSetup, GivesTheStatusOfTheFirstCheckThatFails) {
  Call c = plainCall();
  Record record;
  BadCalls calls(KVL_SetupResizeDib, &c.source, c.rect, &c.destination, &c.into, 0u, &record.setup,
                 nullptr);
  calls.watch(&record, sizeof record).expect(KVL_E_INVALIDARG).eachNull(0, 6);
  const BITMAPINFOHEADER grey = makeHeader(20, 10, 8);
  for (const BITMAPINFOHEADER& bad :
       {grey, makeHeader(20, -10), makeHeader(0, 10), makeHeader(20, 0), makeHeader(-20, 10),
        makeHeader(20, 10, 32), makeHeader(20, 10, 24, 0xE436EB7A), makeHeader(20, 10, 24, 3)}) {
    calls.with<0>({bad});
    calls.with<2>({bad});
  }
  calls.with<0, 2>({makeHeader(20, 10, 8, 0xE436EB7D)});
  // The source rectangle comes before the destination's.
  c.rect[0] = 20, c.rect[2] = 30;
  calls.expect(KVL_S_FALSE).eachNull(3, 4);
  c = plainCall();
  EXPECT_EQ(c.status(), KVL_S_OK);
  c.source = c.destination = grey;
  EXPECT_EQ(c.status(), KVL_S_OK);
}

TEST(ResizeSetup, TakesRectanglesThatHangOverAndRefusesThoseThatMiss) {
  Call c = plainCall();
  const auto withRect = [&](double l, double t, double r, double b) {
    Call changed = c;
    const double rect[] = {l, t, r, b};
    std::copy(rect, rect + 4, changed.rect);
    return changed.status();
  };
  EXPECT_EQ(withRect(-10, 0, 5, 5), KVL_S_OK);
  EXPECT_EQ(withRect(20, 0, 30, 5), KVL_S_FALSE);
  EXPECT_EQ(withRect(-5, 0, 0, 5), KVL_S_FALSE);
  EXPECT_EQ(withRect(5, 5, 5, 6), KVL_S_FALSE);
  EXPECT_EQ(withRect(notANumber, 0, 5, 5), KVL_S_FALSE);
  EXPECT_EQ(withRect(0, 0, 5, notANumber), KVL_S_FALSE);
  EXPECT_EQ(withRect(-infinity, 0, 5, 5), KVL_E_INVALIDARG);
  EXPECT_EQ(withRect(0, 0, 5, infinity), KVL_E_INVALIDARG);
  EXPECT_EQ(withRect(-1e308, 0, 1e308, 5), KVL_E_INVALIDARG);
  const double most = std::numeric_limits<double>::max();
  EXPECT_EQ(withRect(most, most, -most, -most), KVL_S_FALSE);

  // A weight area of 2^31 bytes is one too many.
  EXPECT_EQ(withRect(-268435434.0, 0, 20, 5), KVL_S_OK);
  EXPECT_EQ(withRect(-268435435.0, 0, 20, 5), KVL_E_INVALIDARG);
  c.source.biWidth = 268435454;
  EXPECT_EQ(c.status(), KVL_S_OK);
  c.source.biWidth = 268435455;
  EXPECT_EQ(c.status(), KVL_E_INVALIDARG);
}

TEST(ResizeSetup, MeasuresTheWorkBufferOfTheLargestSizes) {
  Call c = plainCall(268435454, INT32_MAX / 16);
  c.destination.biWidth = c.destination.biHeight = INT32_MAX;
  c.into = {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX};
  Record record;
  RECT clip;
  uint64_t needed;
  ASSERT_EQ(c(record, clip, needed), KVL_S_OK);
  EXPECT_EQ(record.setup.intermediateStride, 6442450944u);
  EXPECT_EQ(record.setup.intermediateBytes, 268435454 * 6442450944u);
  EXPECT_EQ(record.setup.dstStride, 6442450944u);
}

TEST(ResizeSetup, CoversRectanglesOutsideInsideOrNearest) {
  EXPECT_TRUE(sameRect(calcIntegerRect(1.2, -1.2, 2.0, 3.0, 1.0), {1, -2, 4, 2}));
  EXPECT_TRUE(sameRect(calcIntegerRect(1.2, -1.2, 2.0, 3.0, 0.0), {2, -1, 3, 1}));
  EXPECT_TRUE(sameRect(calcIntegerRect(1.2, -1.2, 2.4, 2.7, 0.3), {1, -1, 4, 2}));
  EXPECT_TRUE(sameRect(calcIntegerRect(2.9999995, 0, 1, 1.0000005, 1.0), {3, 0, 4, 1}));
}

}  // namespace
}  // namespace kvl::test
