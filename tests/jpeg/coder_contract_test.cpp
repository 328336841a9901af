// What a coder may rely on, and what becomes of its failures.
#include <omp.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "core/parallel.h"
#include "raw_coder.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

std::atomic<int> g_running = 0;
std::atomic<bool> g_overlapped = false;

// Follows the calls of one coder, and makes one of them fail.
struct Spy {
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
    return static_cast<Spy*>(coder->context)->see(call, value);
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

  int32_t write(Spy& watch, int32_t& rows) {
    coder_.hook = Spy::hook;
    coder_.context = &watch;
    const KVL_JpegEncoder encoder = raw_encoder(&coder_);
    return KVL_JpegWriteRawImage(&encoder, &image_.header, image_.bits(), KVL_JPEG_420, 0, 16,
                                 &rows);
  }

  int32_t read(Spy& watch, TestImage& into, int32_t& rows, int32_t threads = 0) {
    coder_.hook = Spy::hook;
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
  forEachLevelAndTeam([&] {
    Spy writing, reading;
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
      Spy watch;
      coder.memory = memory.data();
      coder.size = memory.size();
      coder.hook = Spy::hook;
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
  forEachLevelAndTeam([&] {
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
      Spy watch;
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
  Spy watch;
  int32_t rows = 0;
  ASSERT_EQ(write(watch, rows), 0);
  TestImage whole(75, -150);
  Spy reading;
  ASSERT_EQ(read(reading, whole, rows), 0);
  forEachLevelAndTeam([&] {
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
      Spy failing;
      failing.failing = one.failing;
      failing.failingRow = one.row;
      failing.status = -3;
      EXPECT_EQ(read(failing, into, rows), -3);
      EXPECT_EQ(failing.calls, one.calls);
      EXPECT_EQ(rows, one.rows);
      expectBytes(expected, into);
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
  Spy watch;
  ASSERT_EQ(write(watch, rows), 0);
  EXPECT_EQ(watch.threadsSeen, 7);
  for (const auto& [threads, seen] : {std::pair{0, 3}, {1, 1}, {5, 5}}) {
    for (const RawCall failing : {raw_error, raw_open, raw_header, raw_rows, raw_finish}) {
      Spy reading;
      reading.failing = failing;
      reading.failingRow = 2;
      reading.status = failing == raw_error ? 0 : 5;
      EXPECT_EQ(read(reading, into, rows, threads), reading.status);
      EXPECT_EQ(KVL_GetNumOpenMPThreads(), 7);
      EXPECT_EQ(reading.threadsSeen, seen);
    }
  }
  omp_set_num_threads(2);
  Spy reading;
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
  const KVL_JpegGeometry good = {
      sizeof(KVL_JpegGeometry), 75, 150, KVL_JPEG_YCBCR, 3, {1, 1, 1}, {1, 1, 1}};
  std::vector<KVL_JpegGeometry> bad(9, good);
  bad[0].width = 0;
  bad[1].height = 65536;
  bad[2].width = INT32_MIN;
  bad[3].componentCount = 0;
  bad[4].componentCount = 2;
  bad[5].colorSpace = KVL_JPEG_GREY;
  bad[6].horizontal[1] = 0;
  bad[7].vertical[2] = 5;
  bad[8].colorSpace = 0;
  for (const KVL_JpegGeometry& geometry : bad) {
    Spy spy;
    coder_.geometry = geometry;
    TestImage into(75, 150);
    const std::vector<uint8_t> before = into.bytes();
    int32_t rows = 7;
    const int32_t status = geometry.colorSpace == 0 ? KVL_JPEG_UNSUPPORTED : KVL_JPEG_BAD_CODER;
    EXPECT_EQ(read(spy, into, rows), status);
    EXPECT_EQ(rows, 0);
    expectBytes(before, into);
    EXPECT_EQ(spy.calls, "ohe");
    EXPECT_EQ(spy.errorStatus, status);
  }
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
  Spy spy;
  coder_.hook = Spy::hook;
  coder_.context = &spy;
  const KVL_JpegDecoder good = raw_decoder(&coder_);
  KVL_JpegReadOptions fine = {};
  fine.size = sizeof fine;
  BITMAPINFOHEADER header = image_.header;
  size_t size = 0;
  const uint8_t byte = 0;
  int32_t rows = 0;
  BadCalls toDib(KVL_QvjJpegToDib, &good, &byte, 1, &fine, &header, image_.bits(), &size, &rows);
  BadCalls decompress(KVL_QvjDecompress, &good, &byte, 1, &fine, &header, image_.bits(), 0, nullptr,
                      &rows);
  toDib.watch(image_).watch(&size, sizeof size).watch(&header, sizeof header);
  toDib.expect(KVL_JPEG_INVALID_ARGUMENT);
  decompress.watch(image_).expect(KVL_JPEG_INVALID_ARGUMENT);
  for (const auto& [first, end] : {std::pair{0, 2}, {4, 5}, {6, 7}}) toDib.eachNull(first, end);
  for (const auto& [first, end] : {std::pair{0, 2}, {4, 6}}) decompress.eachNull(first, end);

  std::vector<KVL_JpegDecoder> decoders(5, good);
  decoders[0].size = sizeof good - 4;
  decoders[1].open = nullptr;
  decoders[2].readHeader = nullptr;
  decoders[3].readRows = nullptr;
  decoders[4].finish = nullptr;
  for (const KVL_JpegDecoder& decoder : decoders) {
    toDib.with<0>({decoder});
    decompress.with<0>({decoder});
  }
  std::vector<KVL_JpegReadOptions> options(8, fine);
  options[0].size = sizeof fine - 1;
  options[1].threads = -1;
  options[2].threads = 1025;
  options[3].scanLimit = -1;
  options[4].reserved = 1;
  options[5].bitCount = 16;
  options[6].topDown = 2;
  options[7].bitCount = -8;
  for (size_t i = 0; i < 8; ++i) {
    toDib.with<3>({options[i]});
    if (i < 5) decompress.with<3>({options[i]});
  }
  decompress.with<4>({makeHeader(0, 5), makeHeader(-5, 5), makeHeader(5, 0),
                      makeHeader(5, INT32_MIN), makeHeader(5, 5, 32),
                      makeHeader(5, 5, 16, 0x32595559), makeHeader(INT32_MAX, INT32_MAX)});
  decompress.with<6>({75 * 3 - 1, -228});
  decompress.with<7>({RECT{-1, 0, 5, 5}, RECT{0, 0, 76, 5}, RECT{0, 140, 5, 151}, RECT{5, 5, 5, 9},
                      RECT{INT32_MAX, 0, INT32_MIN, 5}});
  EXPECT_EQ(spy.calls, "");
}

}  // namespace
}  // namespace kvl::test
