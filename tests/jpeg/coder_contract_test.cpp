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

// A coder with memory for a picture of 75 x 150, such a picture, and calls that write and read it.
struct Job {
  Job() {
    image.fillRandom(1);
    coder.memory = memory.data();
    coder.size = memory.size();
  }

  int32_t write(Spy& spy, int32_t* rows = nullptr) {
    coder.hook = Spy::hook;
    coder.context = &spy;
    const KVL_JpegEncoder encoder = raw_encoder(&coder);
    return KVL_JpegWriteRawImage(&encoder, &image.header, image.bits(), KVL_JPEG_420, 0, 16, rows);
  }

  int32_t read(Spy& spy, TestImage& into, int32_t* rows = nullptr, int32_t threads = 0) {
    coder.hook = Spy::hook;
    coder.context = &spy;
    KVL_JpegReadOptions options = {};
    options.size = sizeof options;
    options.threads = threads;
    const KVL_JpegDecoder decoder = raw_decoder(&coder);
    return KVL_QvjDecompress(&decoder, nullptr, 0, &options, &into.header, into.bits(), 0, nullptr,
                             rows);
  }

  TestImage image{75, 150};
  std::vector<uint8_t> memory = std::vector<uint8_t>(80 * 160 * 3);
  RawCoder coder = {};
};

struct Failure {
  RawCall failing;
  int32_t row;
  const char* calls;
  int32_t rows;

  Spy spy(int32_t status) const {
    Spy spy;
    spy.failing = failing;
    spy.failingRow = row;
    spy.status = status;
    return spy;
  }
};

TEST(CoderContract, CallsComeInOrderAndOneAtATime) {
  forEachLevelAndTeam([&] {
    Job job;
    Spy writing, reading;
    EXPECT_EQ(job.write(writing), 0);
    TestImage into(75, 150);
    EXPECT_EQ(job.read(reading, into), 0);
    EXPECT_EQ(writing.calls + reading.calls, "ofohf");
    for (const Spy& spy : {writing, reading}) {
      EXPECT_TRUE(spy.inOrder && spy.onCaller);
      EXPECT_EQ(spy.nextRow, 10);
    }
    EXPECT_EQ(job.coder.memory_limit, uint64_t{1} << 29);
    EXPECT_EQ(job.coder.scan_limit, 100);
  });
}

TEST(CoderContract, CallsOfSeveralHostThreadsNeverOverlap) {
  initialise();
  g_overlapped = false;
  std::vector<std::thread> hosts;
  std::atomic<int> good = 0;
  for (int i = 0; i < 4; ++i) {
    hosts.emplace_back([&] {
      Job job;
      for (int turn = 0; turn < 10; ++turn) {
        Spy spy;
        if (job.write(spy) == 0 && spy.inOrder) ++good;
      }
    });
  }
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(good, 40);
  EXPECT_FALSE(g_overlapped);
}

TEST(CoderContract, AFailureOfTheEncoderComesBackWithTheRowsItTook) {
  forEachLevelAndTeam([&] {
    const Failure failures[] = {{raw_open, 0, "o", 0},
                                {raw_rows, 0, "oe", 0},
                                {raw_rows, 3, "oe", 48},
                                {raw_rows, 9, "oe", 144},
                                {raw_finish, 0, "ofe", 150}};
    for (const Failure& one : failures) {
      Spy spy = one.spy(1234567);
      int32_t rows = -1;
      EXPECT_EQ(Job().write(spy, &rows), 1234567);
      EXPECT_EQ(spy.calls, one.calls);
      EXPECT_EQ(rows, one.rows);
      EXPECT_EQ(spy.errorStatus, one.failing == raw_open ? 0 : 1234567);
    }
  });
}

TEST(CoderContract, AFailureOfTheDecoderLeavesTheRowsBelowAsTheyWere) {
  Job job;
  Spy writing, reading;
  TestImage whole(75, -150);
  ASSERT_EQ(job.write(writing) | job.read(reading, whole), 0);
  forEachLevelAndTeam([&] {
    const Failure failures[] = {{raw_open, 0, "o", 0},     {raw_header, 0, "ohe", 0},
                                {raw_rows, 0, "ohe", 0},   {raw_rows, 1, "ohe", 15},
                                {raw_rows, 4, "ohe", 63},  {raw_rows, 6, "ohe", 95},
                                {raw_rows, 9, "ohe", 143}, {raw_finish, 0, "ohfe", 150}};
    for (const Failure& one : failures) {
      TestImage into(75, -150);
      std::vector<uint8_t> expected = into.bytes();
      for (int y = 0; y < one.rows; ++y) {
        std::copy_n(whole.row(y), whole.rowBytes(),
                    &expected[into.stride() * static_cast<size_t>(y)]);
      }
      Spy failing = one.spy(-3);
      int32_t rows = -1;
      EXPECT_EQ(job.read(failing, into, &rows), -3);
      EXPECT_EQ(failing.calls, one.calls);
      EXPECT_EQ(rows, one.rows);
      expectBytes(expected, into);
    }
  });
}

TEST(CoderContract, ExceptionsAreCaughtAndAnErrorFunctionMayLack) {
  Job job;
  KVL_JpegEncoder encoder = raw_encoder(&job.coder);
  encoder.error = nullptr;
  encoder.writeRows = [](void*, int32_t row, const uint8_t* const* const*) -> int32_t {
    if (row == 2) throw std::runtime_error("out of a coder");
    return 0;
  };
  int32_t rows = 0;
  EXPECT_EQ(KVL_JpegWriteRawImage(&encoder, &job.image.header, job.image.bits(), 0, 0, 8, &rows),
            KVL_JPEG_BAD_CODER);
  EXPECT_EQ(rows, 16);
}

TEST(CoderContract, ReadingHasATeamOfItsOwnAndPutsTheOldOneBack) {
  initialise();
  Job job;
  const int before = omp_get_max_threads();
  omp_set_num_threads(7);
  TestImage into(75, 150);
  Spy writing, reading;
  ASSERT_EQ(job.write(writing), 0);
  EXPECT_EQ(writing.threadsSeen, 7);
  for (const auto& [threads, seen] : {std::pair{0, 3}, {1, 1}, {5, 5}}) {
    for (const RawCall failing : {raw_error, raw_open, raw_header, raw_rows, raw_finish}) {
      Spy spy = Failure{failing, 2, "", 0}.spy(failing == raw_error ? 0 : 5);
      EXPECT_EQ(job.read(spy, into, nullptr, threads), spy.status);
      EXPECT_EQ(KVL_GetNumOpenMPThreads(), 7);
      EXPECT_EQ(spy.threadsSeen, seen);
    }
  }
  omp_set_num_threads(2);
  ASSERT_EQ(job.read(reading, into), 0);
  EXPECT_EQ(reading.threadsSeen, 2);
  omp_set_num_threads(before);
}

TEST(CoderContract, WorksInsideAParallelRegionOfTheHost) {
  initialise();
  std::atomic<int> good = 0;
#pragma omp parallel num_threads(2)
  {
    Job job;
    TestImage into(75, 150);
    const KVL_JpegEncoder encoder = raw_encoder(&job.coder);
    const KVL_JpegDecoder decoder = raw_decoder(&job.coder);
    good +=
        KVL_JpegWriteRawImage(&encoder, &job.image.header, job.image.bits(), 0, 0, 0, nullptr) == 0;
    good += KVL_QvjDecompress(&decoder, nullptr, 0, nullptr, &into.header, into.bits(), 0, nullptr,
                              nullptr) == 0;
  }
  EXPECT_EQ(good, 4);
}

TEST(CoderContract, AbsurdGeometriesAreRefused) {
  const KVL_JpegGeometry good = {
      sizeof(KVL_JpegGeometry), 75, 150, KVL_JPEG_YCBCR, 3, {1, 1, 1}, {1, 1, 1}};
  using G = KVL_JpegGeometry;
  for (const auto change : std::initializer_list<void (*)(G&)>{
           [](G& g) { g.width = 0; }, [](G& g) { g.height = 65536; },
           [](G& g) { g.width = INT32_MIN; }, [](G& g) { g.componentCount = 0; },
           [](G& g) { g.componentCount = 2; }, [](G& g) { g.colorSpace = KVL_JPEG_GREY; },
           [](G& g) { g.horizontal[1] = 0; }, [](G& g) { g.vertical[2] = 5; },
           [](G& g) { g.colorSpace = 0; }}) {
    G geometry = good;
    change(geometry);
    Job job;
    Spy spy;
    job.coder.geometry = geometry;
    TestImage into(75, 150);
    const std::vector<uint8_t> before = into.bytes();
    int32_t rows = 7;
    const int32_t status = geometry.colorSpace == 0 ? KVL_JPEG_UNSUPPORTED : KVL_JPEG_BAD_CODER;
    EXPECT_EQ(job.read(spy, into, &rows), status);
    EXPECT_EQ(rows, 0);
    expectBytes(before, into);
    EXPECT_EQ(spy.calls, "ohe");
    EXPECT_EQ(spy.errorStatus, status);
  }
}

TEST(CoderContract, LimitsEndTheCall) {
  Job job;
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.pixelLimit = uint64_t{65535} * 65535 - 1;
  job.coder.memory = nullptr;
  job.coder.geometry = {
      sizeof(KVL_JpegGeometry), 65535, 65535, KVL_JPEG_YCBCR, 3, {4, 1, 1}, {4, 1, 1}};
  const KVL_JpegDecoder decoder = raw_decoder(&job.coder);
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
  EXPECT_EQ(job.coder.memory_limit, uint64_t{1} << 20);
  EXPECT_EQ(job.coder.scan_limit, 3);
  options.memoryLimit = 0;
  size = sizeof bits;
  EXPECT_EQ(toDib(), KVL_JPEG_OK);
  EXPECT_EQ(rows, 1);
}

TEST(CoderContract, BadCallsOfTheReadersCallNothing) {
  Job job;
  Spy spy;
  job.coder.hook = Spy::hook;
  job.coder.context = &spy;
  const KVL_JpegDecoder good = raw_decoder(&job.coder);
  KVL_JpegReadOptions fine = {};
  fine.size = sizeof fine;
  BITMAPINFOHEADER header = job.image.header;
  size_t size = 0;
  const uint8_t byte = 0;
  int32_t rows = 0;
  BadCalls toDib(KVL_QvjJpegToDib, &good, &byte, 1, &fine, &header, job.image.bits(), &size, &rows);
  BadCalls decompress(KVL_QvjDecompress, &good, &byte, 1, &fine, &header, job.image.bits(), 0,
                      nullptr, &rows);
  toDib.watch(job.image).watch(&size, sizeof size).watch(&header, sizeof header);
  toDib.expect(KVL_JPEG_INVALID_ARGUMENT);
  decompress.watch(job.image).expect(KVL_JPEG_INVALID_ARGUMENT);
  for (const auto& [first, end] : {std::pair{0, 2}, {4, 5}, {6, 7}}) toDib.eachNull(first, end);
  for (const auto& [first, end] : {std::pair{0, 2}, {4, 6}}) decompress.eachNull(first, end);

  const auto eachBad = [](auto& calls) {
    calls.template withChanged<0>([](auto& d) { d.size -= 4; }, [](auto& d) { d.open = nullptr; },
                                  [](auto& d) { d.readHeader = nullptr; },
                                  [](auto& d) { d.readRows = nullptr; },
                                  [](auto& d) { d.finish = nullptr; });
    calls.template withChanged<3>([](auto& o) { o.size -= 1; }, [](auto& o) { o.threads = -1; },
                                  [](auto& o) { o.threads = 1025; },
                                  [](auto& o) { o.scanLimit = -1; },
                                  [](auto& o) { o.reserved = 1; });
  };
  eachBad(toDib);
  eachBad(decompress);
  toDib.withChanged<3>([](auto& o) { o.bitCount = 16; }, [](auto& o) { o.bitCount = -8; },
                       [](auto& o) { o.topDown = 2; });
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
