// What a coder may rely on, and what becomes of its failures.
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/initialise.h"
#include "core/parallel.h"
#include "kvl/kvl.h"
#include "raw_coder.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::TestImage;

std::atomic<int> g_running = 0;
std::atomic<bool> g_overlapped = false;

// Follows the calls of one coder, and makes one of them fail.
struct Watch {
  RawCall failing = raw_error;
  int32_t failingRow = -1;
  int32_t status = 0;

  std::string calls;  // one letter each
  int32_t nextRow = 0;
  bool inOrder = true;
  int32_t errorStatus = 0;
  int threadsSeen = 0;
  std::thread::id caller = std::this_thread::get_id();
  bool onCaller = true;

  static int32_t hook(RawCoder* coder, RawCall call, int32_t value) {
    return static_cast<Watch*>(coder->context)->see(call, value);
  }

  int32_t see(RawCall call, int32_t value) {
    if (g_running++ != 0) g_overlapped = true;
    threadsSeen = omp_get_max_threads();
    if (call == raw_rows) {
      inOrder = inOrder && value == nextRow++;
    } else {
      calls += "ohrfe"[call];
      onCaller = onCaller && std::this_thread::get_id() == caller;
    }
    if (call == raw_error) errorStatus = value;
    --g_running;
    const bool fails = call == failing && (call != raw_rows || value == failingRow);
    return fails ? status : 0;
  }
};

class CoderContract : public testing::Test {
 protected:
  CoderContract() : image_(75, 150) {
    initialise();
    image_.fillRandom(1);
    coder_.memory = memory_.data();
    coder_.size = memory_.size();
  }

  int32_t write(Watch& watch, int32_t& rows) {
    coder_.hook = Watch::hook;
    coder_.context = &watch;
    const KVL_JpegEncoder encoder = raw_encoder(&coder_);
    return KVL_JpegWriteRawImage(&encoder, &image_.header, image_.bits(), KVL_JPEG_420, 0, 16,
                                 &rows);
  }

  int32_t read(Watch& watch, TestImage& into, int32_t& rows, int32_t threads = 0) {
    coder_.hook = Watch::hook;
    coder_.context = &watch;
    KVL_JpegReadOptions options = {};
    options.size = sizeof options;
    options.threads = threads;
    const KVL_JpegDecoder decoder = raw_decoder(&coder_);
    return KVL_QvjDecompress(&decoder, nullptr, 0, &options, &into.header, into.bits(), 0, nullptr,
                             &rows);
  }

  TestImage image_;
  std::vector<uint8_t> memory_ = std::vector<uint8_t>(80 * 160 * 3);
  RawCoder coder_ = {};
};

TEST_F(CoderContract, CallsComeInOrderAndOneAtATime) {
  test::forEachLevelAndTeam([&] {
    Watch writing, reading;
    int32_t rows = 0;
    EXPECT_EQ(write(writing, rows), 0);
    EXPECT_EQ(writing.calls, "of");
    EXPECT_TRUE(writing.inOrder && writing.onCaller);
    EXPECT_EQ(writing.nextRow, 10);
    TestImage into(75, 150);
    EXPECT_EQ(read(reading, into, rows), 0);
    EXPECT_EQ(reading.calls, "ohf");
    EXPECT_TRUE(reading.inOrder && reading.onCaller);
    EXPECT_EQ(reading.nextRow, 10);
    EXPECT_EQ(coder_.memory_limit, uint64_t{1} << 29);
    EXPECT_EQ(coder_.scan_limit, 100);
  });
}

TEST_F(CoderContract, CallsOfSeveralHostThreadsNeverOverlap) {
  g_overlapped = false;
  std::vector<std::thread> hosts;
  std::atomic<int> good = 0;
  for (int i = 0; i < 4; ++i) {
    hosts.emplace_back([&] {
      TestImage image(75, 150);
      std::vector<uint8_t> memory(memory_.size());
      RawCoder coder = {};
      Watch watch;
      coder.memory = memory.data();
      coder.size = memory.size();
      coder.hook = Watch::hook;
      coder.context = &watch;
      const KVL_JpegEncoder encoder = raw_encoder(&coder);
      for (int turn = 0; turn < 10; ++turn) {
        watch.nextRow = 0;
        const int32_t status =
            KVL_JpegWriteRawImage(&encoder, &image.header, image.bits(), 0, 0, 8, nullptr);
        if (status == 0 && watch.inOrder) ++good;
      }
    });
  }
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(good, 40);
  EXPECT_FALSE(g_overlapped);
}

TEST_F(CoderContract, AFailureOfTheEncoderComesBackWithTheRowsItTook) {
  test::forEachLevelAndTeam([&] {
    const struct {
      RawCall failing;
      int32_t row;
      const char* calls;
      int32_t rows;
    } cases[] = {{raw_open, 0, "o", 0},
                 {raw_rows, 0, "oe", 0},
                 {raw_rows, 3, "oe", 48},
                 {raw_rows, 9, "oe", 144},
                 {raw_finish, 0, "ofe", 150}};
    for (const auto& one : cases) {
      Watch watch;
      watch.failing = one.failing;
      watch.failingRow = one.row;
      watch.status = 1234567;
      int32_t rows = -1;
      EXPECT_EQ(write(watch, rows), 1234567);
      EXPECT_EQ(watch.calls, one.calls);
      EXPECT_EQ(rows, one.rows);
      EXPECT_EQ(watch.errorStatus, one.failing == raw_open ? 0 : 1234567);
    }
  });
}

TEST_F(CoderContract, AFailureOfTheDecoderLeavesTheRowsBelowAsTheyWere) {
  Watch watch;
  int32_t rows = 0;
  ASSERT_EQ(write(watch, rows), 0);
  TestImage whole(75, -150);
  Watch reading;
  ASSERT_EQ(read(reading, whole, rows), 0);
  test::forEachLevelAndTeam([&] {
    const struct {
      RawCall failing;
      int32_t row;
      const char* calls;
      int32_t rows;
    } cases[] = {{raw_open, 0, "o", 0},     {raw_header, 0, "ohe", 0},   {raw_rows, 0, "ohe", 0},
                 {raw_rows, 1, "ohe", 15},  {raw_rows, 4, "ohe", 63},    {raw_rows, 6, "ohe", 95},
                 {raw_rows, 9, "ohe", 143}, {raw_finish, 0, "ohfe", 150}};
    for (const auto& one : cases) {
      TestImage into(75, -150);
      std::vector<uint8_t> expected = into.bytes();
      for (int y = 0; y < one.rows; ++y) {
        std::copy(whole.row(y), whole.row(y) + whole.rowBytes(),
                  expected.begin() + y * static_cast<ptrdiff_t>(into.stride()));
      }
      Watch failing;
      failing.failing = one.failing;
      failing.failingRow = one.row;
      failing.status = -3;
      EXPECT_EQ(read(failing, into, rows), -3);
      EXPECT_EQ(failing.calls, one.calls);
      EXPECT_EQ(rows, one.rows);
      EXPECT_EQ(test::firstDifference(expected, into.bytes(), into.stride()), "");
    }
  });
}

TEST_F(CoderContract, ExceptionsAreCaughtAndAnErrorFunctionMayLack) {
  KVL_JpegEncoder encoder = raw_encoder(&coder_);
  encoder.error = nullptr;
  encoder.writeRows = [](void*, int32_t row, const uint8_t* const* const*) -> int32_t {
    if (row == 2) throw std::runtime_error("out of a coder");
    return 0;
  };
  int32_t rows = 0;
  EXPECT_EQ(KVL_JpegWriteRawImage(&encoder, &image_.header, image_.bits(), 0, 0, 8, &rows),
            KVL_JPEG_BAD_CODER);
  EXPECT_EQ(rows, 16);
}

TEST_F(CoderContract, ReadingHasATeamOfItsOwnAndPutsTheOldOneBack) {
  const int before = omp_get_max_threads();
  omp_set_num_threads(7);
  TestImage into(75, 150);
  int32_t rows = 0;
  Watch watch;
  ASSERT_EQ(write(watch, rows), 0);
  EXPECT_EQ(watch.threadsSeen, 7);
  for (const auto& [threads, seen] : {std::pair{0, 3}, {1, 1}, {5, 5}}) {
    for (const RawCall failing : {raw_error, raw_open, raw_header, raw_rows, raw_finish}) {
      Watch reading;
      reading.failing = failing;
      reading.failingRow = 2;
      reading.status = failing == raw_error ? 0 : 5;
      EXPECT_EQ(read(reading, into, rows, threads), reading.status);
      EXPECT_EQ(KVL_GetNumOpenMPThreads(), 7);
      EXPECT_EQ(reading.threadsSeen, seen);
    }
  }
  omp_set_num_threads(2);
  Watch reading;
  ASSERT_EQ(read(reading, into, rows), 0);
  EXPECT_EQ(reading.threadsSeen, 2);
  omp_set_num_threads(before);
}

TEST_F(CoderContract, WorksInsideAParallelRegionOfTheHost) {
  std::atomic<int> good = 0;
#pragma omp parallel num_threads(2)
  {
    TestImage image(75, 150), into(75, 150);
    std::vector<uint8_t> memory(memory_.size());
    RawCoder coder = {};
    coder.memory = memory.data();
    coder.size = memory.size();
    const KVL_JpegEncoder encoder = raw_encoder(&coder);
    const KVL_JpegDecoder decoder = raw_decoder(&coder);
    if (KVL_JpegWriteRawImage(&encoder, &image.header, image.bits(), 0, 0, 0, nullptr) == 0 &&
        KVL_QvjDecompress(&decoder, nullptr, 0, nullptr, &into.header, into.bits(), 0, nullptr,
                          nullptr) == 0) {
      ++good;
    }
  }
  EXPECT_EQ(good, 2);
}

TEST_F(CoderContract, AbsurdGeometriesAreRefused) {
  const auto statusOf = [&](auto change) {
    Watch watch;
    coder_.geometry = {sizeof(KVL_JpegGeometry), 75, 150, KVL_JPEG_YCBCR, 3, {1, 1, 1}, {1, 1, 1}};
    change(coder_.geometry);
    TestImage into(75, 150);
    const std::vector<uint8_t> before = into.bytes();
    int32_t rows = 0;
    const int32_t status = read(watch, into, rows);
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(before, into.bytes());
    EXPECT_EQ(watch.calls, "ohe");
    EXPECT_EQ(watch.errorStatus, status);
    return status;
  };
  using G = KVL_JpegGeometry;
  EXPECT_EQ(statusOf([](G& g) { g.width = 0; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.height = 65536; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.width = INT32_MIN; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.componentCount = 0; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.componentCount = 2; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.colorSpace = KVL_JPEG_GREY; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.colorSpace = 0; }), KVL_JPEG_UNSUPPORTED);
  EXPECT_EQ(statusOf([](G& g) { g.horizontal[1] = 0; }), KVL_JPEG_BAD_CODER);
  EXPECT_EQ(statusOf([](G& g) { g.vertical[2] = 5; }), KVL_JPEG_BAD_CODER);
}

TEST_F(CoderContract, LimitsEndTheCall) {
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.pixelLimit = uint64_t{65535} * 65535 - 1;
  coder_.memory = nullptr;
  coder_.geometry = {
      sizeof(KVL_JpegGeometry), 65535, 65535, KVL_JPEG_YCBCR, 3, {4, 1, 1}, {4, 1, 1}};
  const KVL_JpegDecoder decoder = raw_decoder(&coder_);
  BITMAPINFOHEADER header = {};
  uint8_t bits[4];
  size_t size = sizeof bits;
  int32_t rows = 7;
  const auto toDib = [&] {
    return KVL_QvjJpegToDib(&decoder, nullptr, 0, &options, &header, bits, &size, &rows);
  };
  EXPECT_EQ(toDib(), KVL_JPEG_OVER_LIMIT);
  EXPECT_EQ(size, sizeof bits);
  options.pixelLimit = 0;
  EXPECT_EQ(toDib(), KVL_JPEG_NEEDS_BUFFER);
  EXPECT_EQ(size, size_t{196608} * 65535);
  EXPECT_EQ(header.biSizeImage, 0u);
  options.memoryLimit = 1 << 20;
  options.scanLimit = 3;
  options.crop = {65534, 0, 65535, 1};
  size = sizeof bits;
  EXPECT_EQ(toDib(), KVL_JPEG_OVER_LIMIT);
  EXPECT_EQ(coder_.memory_limit, uint64_t{1} << 20);
  EXPECT_EQ(coder_.scan_limit, 3);
  options.memoryLimit = 0;
  size = sizeof bits;
  EXPECT_EQ(toDib(), KVL_JPEG_OK);
  EXPECT_EQ(rows, 1);
}

TEST_F(CoderContract, BadCallsOfTheReadersCallNothing) {
  Watch watch;
  coder_.hook = Watch::hook;
  coder_.context = &watch;
  const KVL_JpegDecoder good = raw_decoder(&coder_);
  KVL_JpegReadOptions fine = {};
  fine.size = sizeof fine;
  BITMAPINFOHEADER header = image_.header;
  size_t size = 0;
  const uint8_t byte = 0;
  const std::vector<uint8_t> before = image_.bytes();
  const auto refuse = [&](const KVL_JpegDecoder* decoder, const uint8_t* data, size_t bytes,
                          const KVL_JpegReadOptions& options, bool formats = true) {
    EXPECT_EQ(
        KVL_QvjJpegToDib(decoder, data, bytes, &options, &header, image_.bits(), &size, nullptr),
        KVL_JPEG_INVALID_ARGUMENT);
    if (formats) return;
    EXPECT_EQ(KVL_QvjDecompress(decoder, data, bytes, &options, &header, image_.bits(), 0, nullptr,
                                nullptr),
              KVL_JPEG_INVALID_ARGUMENT);
  };
  refuse(nullptr, &byte, 1, fine, false);
  refuse(&good, nullptr, 1, fine, false);
  for (int member = 0; member < 5; ++member) {
    KVL_JpegDecoder bad = good;
    if (member == 0) bad.size = sizeof bad - 4;
    if (member == 1) bad.open = nullptr;
    if (member == 2) bad.readHeader = nullptr;
    if (member == 3) bad.readRows = nullptr;
    if (member == 4) bad.finish = nullptr;
    refuse(&bad, &byte, 1, fine, false);
  }
  for (int field = 0; field < 8; ++field) {
    KVL_JpegReadOptions bad = fine;
    if (field == 0) bad.size = sizeof bad - 1;
    if (field == 1) bad.threads = -1;
    if (field == 2) bad.threads = 1025;
    if (field == 3) bad.scanLimit = -1;
    if (field == 4) bad.reserved = 1;
    if (field == 5) bad.bitCount = 16;
    if (field == 6) bad.topDown = 2;
    if (field == 7) bad.bitCount = -8;
    refuse(&good, &byte, 1, bad, field >= 5);
  }
  EXPECT_EQ(KVL_QvjJpegToDib(&good, &byte, 1, &fine, nullptr, nullptr, &size, nullptr),
            KVL_JPEG_INVALID_ARGUMENT);
  EXPECT_EQ(KVL_QvjJpegToDib(&good, &byte, 1, &fine, &header, nullptr, nullptr, nullptr),
            KVL_JPEG_INVALID_ARGUMENT);

  const auto refuseTarget = [&](const BITMAPINFOHEADER* h, uint8_t* bits, int32_t stride,
                                const RECT* rect) {
    EXPECT_EQ(KVL_QvjDecompress(&good, &byte, 1, &fine, h, bits, stride, rect, nullptr),
              KVL_JPEG_INVALID_ARGUMENT);
  };
  refuseTarget(nullptr, image_.bits(), 0, nullptr);
  refuseTarget(&header, nullptr, 0, nullptr);
  refuseTarget(&header, image_.bits(), 75 * 3 - 1, nullptr);
  refuseTarget(&header, image_.bits(), -228, nullptr);
  for (const RECT& rect : {RECT{-1, 0, 5, 5},
                           {0, 0, 76, 5},
                           {0, 140, 5, 151},
                           {5, 5, 5, 9},
                           {INT32_MAX, 0, INT32_MIN, 5}}) {
    refuseTarget(&header, image_.bits(), 0, &rect);
  }
  const BITMAPINFOHEADER odd[] = {test::makeHeader(0, 5),
                                  test::makeHeader(-5, 5),
                                  test::makeHeader(5, 0),
                                  test::makeHeader(5, INT32_MIN),
                                  test::makeHeader(5, 5, 32),
                                  test::makeHeader(5, 5, 16, 0x32595559),
                                  test::makeHeader(INT32_MAX, INT32_MAX)};
  for (const BITMAPINFOHEADER& h : odd) refuseTarget(&h, image_.bits(), 0, nullptr);
  EXPECT_EQ(watch.calls, "");
  EXPECT_EQ(before, image_.bytes());
}

}  // namespace
}  // namespace kvl
