// What every routine that takes memory does when it cannot have some of it. The other routines
// take none: see allocating_objects.cmake.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <vector>

#include "allocation/failing_memory.h"
#include "core/initialise.h"
#include "core/instruction_set.h"
#include "core/parallel.h"
#include "jpeg/raw_coder.h"
#include "kvl/kvl.h"
#include "support/level_and_team.h"
#include "support/test_image.h"
#include "warp/warp_host.h"

#if !defined(_WIN32)
#include "core/linux_topology.h"
#endif

namespace kvl::test {
namespace {

// What a host sees of a call: the status, and all the bytes that the call can reach.
struct Seen {
  int64_t status = 0;
  std::vector<uint8_t> bytes;

  bool operator==(const Seen&) const = default;

  template <class T>
  Seen& add(const T& value) {
    const auto* first = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), first, first + sizeof value);
    return *this;
  }
  Seen& add(const TestImage& image) {
    const std::vector<uint8_t> more = image.bytes();
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }
};

// One routine with what it works on.
class Routine {
 public:
  virtual ~Routine() = default;
  // Brings everything back to where it begins, the library included.
  virtual void prepare() = 0;
  virtual void call() = 0;
  virtual Seen seen() const = 0;
  // What a host is to see when there is not enough memory; called after prepare().
  virtual Seen failed() const { return seen(); }
  // Blocks that a call keeps for the next one.
  virtual int kept() const { return 0; }
};

struct Outcome {
  Seen seen;
  MemoryUse use;
};

Outcome run(Routine& routine, Failing failing = Failing::none, int which = 0) {
  routine.prepare();
  const MemoryUse use = useMemory([&] { routine.call(); }, failing, which);
  return {routine.seen(), use};
}

// Fails each of the `allocations` of a call on its own, and all from it on.
void failEach(Routine& routine, int allocations) {
  for (const int threads : {1, 3}) {
    fixTeamSize(threads);
    const Outcome good = run(routine);
    EXPECT_EQ(good.use.allocations, allocations) << threads << " threads";
    EXPECT_EQ(good.use.held, routine.kept());
    for (int which = 1; which <= good.use.allocations; ++which) {
      for (const Failing failing : {Failing::one, Failing::allFrom}) {
        SCOPED_TRACE(std::to_string(which) + (failing == Failing::one ? "" : " and on") + ", " +
                     std::to_string(threads) + " threads");
        routine.prepare();
        const Seen expected = routine.failed();
        const Outcome bad = run(routine, failing, which);
        EXPECT_GE(bad.use.failed, 1);
        EXPECT_EQ(bad.use.held, 0);
        EXPECT_EQ(bad.seen.status, expected.status);
        EXPECT_TRUE(bad.seen == expected);
        EXPECT_TRUE(run(routine).seen == good.seen) << "after the failure";
      }
    }
  }
  initialise();
}

class Filter : public Routine {
 public:
  void prepare() override {
    source_.fillRandom(1);
    destination_.fillRandom(2);
  }
  Seen seen() const override { return Seen{}.add(source_).add(destination_); }

 protected:
  const TestImage& source() const { return source_; }
  uint32_t stride() const { return static_cast<uint32_t>(source_.stride()); }
  uint8_t* result() const { return destination_.bits(); }

 private:
  TestImage source_{33, 41}, destination_{33, 41};
};

TEST(Allocation, PathBlursChangeNothing) {
  initialise();
  struct Zoom : Filter {
    void call() override {
      KVL_BlurZoom(source().bits(), stride(), result(), stride(), 33, 41, 10, 20, 0.5, 3);
    }
  } zoom;
  struct Radial : Filter {
    void call() override {
      KVL_BlurRadial(source().bits(), stride(), result(), stride(), 33, 41, 10, 20, 30, 3);
    }
  } radial;
  struct Directional : Filter {
    void call() override {
      KVL_BlurDirectional(source().bits(), stride(), result(), stride(), 33, 41, angle, 9, 3);
    }
    double angle = 0;
  } directional;
  failEach(zoom, 2);
  failEach(radial, 2);
  // Along the rows, along the columns and aslant.
  for (const double angle : {0.0, 90.0, 30.0}) {
    directional.angle = angle;
    failEach(directional, 4);
  }
  for (Routine* routine : std::initializer_list<Routine*>{&zoom, &radial, &directional}) {
    const Outcome good = run(*routine);
    routine->prepare();
    EXPECT_FALSE(good.seen == routine->seen()) << "the call draws";
  }
}

// A host's side of the warp, whose memory is its own.
struct CarefulHost : KvlWarpHostAllocator {
  CarefulHost() {
    static const KvlWarpHostAllocatorOperations table = {nullptr, nullptr, nullptr, createImage};
    operations = &table;
  }

  static int32_t createImage(KvlWarpHostAllocator* allocator, KvlWarpHostImage** image,
                             const KvlWarpImageRequest* request, int32_t flags, const char* file,
                             int32_t line) {
    const HostsOwnMemory own;
    WarpHost& host = static_cast<CarefulHost*>(allocator)->host;
    const int32_t status = host.operations->createImage(&host, image, request, flags, file, line);
    static const auto theirRelease = (*image)->operations->release;
    static KvlWarpHostImageOperations table = *(*image)->operations;
    table.release = [](KvlWarpHostImage* released) {
      const HostsOwnMemory ours;
      return theirRelease(released);
    };
    (*image)->operations = &table;
    return status;
  }

  WarpHost host;
};

TEST(Allocation, WarpChangesNothingAndReleasesTheHostsImage) {
  initialise();
  struct Warp : Filter {
    void call() override {
      const double matrix[16] = {1.5, 0, 0, 0, 0, 1.5, 0, 0, 0, 0, 1, 0, 1, 2, 0, 1};
      const RECT all = {0, 0, 33, 41};
      const BITMAPINFOHEADER header = source().header;
      CarefulHost host;
      KVL_CalcQvWarpPixel(&header, result(), &all, &header, source().bits(), &all, matrix, &host,
                          level, 0);
      EXPECT_EQ(host.host.created, host.host.released);
    }
    int level = 0;
  } warp;
  for (warp.level = 0; warp.level <= 1; ++warp.level) {
    failEach(warp, 1 + warp.level);
    const Outcome good = run(warp);
    warp.prepare();
    EXPECT_FALSE(good.seen == warp.seen()) << "the call draws";
  }
}

using OneCall = decltype(&KVL_ResizeDIB_CPP);

struct Resize : Routine {
  void prepare() override {
    source.fillRandom(1);
    destination.fillRandom(2);
    into = {0, 0, 50, 30};
    // A call that fails leaves the library without a buffer.
    useMemory([&] { EXPECT_EQ(resize(larger, larger), KVL_E_OUTOFMEMORY); }, Failing::one, 1);
    status = KVL_E_OUTOFMEMORY;
  }
  void call() override { status = resize(source, destination); }
  Seen seen() const override { return Seen{status, {}}.add(source).add(destination).add(into); }
  int kept() const override { return 1; }

  int32_t resize(const TestImage& from, const TestImage& to) const {
    const double whole[4] = {0, 0, double(from.width()), double(from.height())};
    return routine(&from.header, from.bits(), whole, &to.header, to.bits(), &into, 0);
  }

  OneCall routine = nullptr;
  int32_t status = 0;
  RECT into = {};
  TestImage source{33, 41}, destination{50, 30}, larger{400, 400};
};

TEST(Allocation, OneCallResizeSaysThatMemoryIsOut) {
  initialise();
  for (const OneCall routine : {KVL_ResizeDIB_CPP, KVL_ResizeDIB_RGB24_CPP}) {
    Resize resize;
    resize.routine = routine;
    failEach(resize, 1);
    EXPECT_EQ(run(resize).seen.status, KVL_S_OK);
  }
}

struct Grey {
  Grey() {
    a.fillRandom(3);
    b.fillRandom(4);
    options.width = a.width();
    options.height = a.height();
    options.blockLeft = options.blockTop = 16;
    options.blockRight = options.blockBottom = 48;
    options.subStep = 0.5f;
    options.subScale = 1;
    options.subRange = 1;
  }
  TestImage a{64, 64, 8}, b{64, 64, 8};
  CorrelationOptions options = {};
};

TEST(Allocation, ExhaustiveSearchIsOnlySlower) {
  initialise();
  struct Search : Routine {
    void prepare() override { vector = {}, score = 77; }
    void call() override {
      const RECT block = {16, 16, 48, 48};
      vector = KVL_CalcCorrelationNormal(&score, grey.a.bits(), 64, grey.b.bits(), 64, nullptr, 64,
                                         64, &block, 9);
    }
    Seen seen() const override { return Seen{score, {}}.add(vector); }
    Seen failed() const override { return withoutMemory; }

    Grey grey;
    CorrelationVector vector = {};
    int64_t score = 0;
    Seen withoutMemory;
  } search;
  limitInstructionSet(InstructionSet::scalar);
  const Outcome scalar = run(search);
  EXPECT_EQ(scalar.use.allocations, 0);
  EXPECT_LT(scalar.seen.status, 0);
  search.withoutMemory = scalar.seen;
  for (const InstructionSet level : availableLevels()) {
    limitInstructionSet(level);
    failEach(search, level >= InstructionSet::ssse3 ? 6 : 0);
  }
  limitInstructionSet(InstructionSet::avx2);
}

TEST(Allocation, RefinementFindsNothing) {
  initialise();
  struct Refinement : Routine {
    void prepare() override {
      vector = {5, 5};
      std::memset(static_cast<void*>(&result), 0xCD, sizeof result);
    }
    void call() override {
      const CorrelationVector centre = {2, 1};
      vector =
          KVL_CalcCorrelationSub(&result, grey.a.bits(), grey.b.bits(), &centre, &grey.options);
    }
    Seen seen() const override { return Seen{}.add(vector).add(result); }
    Seen failed() const override {
      CorrelationBlockResult nothing = result;
      nothing.score = 0;
      return Seen{}.add(CorrelationVector{0, 0}).add(nothing);
    }

    Grey grey;
    CorrelationVector vector = {};
    CorrelationBlockResult result = {};
  } refinement;
  failEach(refinement, 5);
  EXPECT_LT((run(refinement), refinement.result.score), 0);
}

struct Picture : Routine {
  Picture() {
    coder.memory = memory.data();
    coder.size = memory.size();
    coder.hook = [](RawCoder* c, RawCall called, int32_t) {
      static_cast<Picture*>(c->context)->calls[called]++;
      return 0;
    };
    coder.context = this;
  }
  void prepare() override {
    std::memset(calls, 0, sizeof calls);
    rows = -1;
  }
  Seen seenWith(int64_t status) const { return Seen{status, {}}.add(rows).add(calls).add(image); }

  TestImage image{75, 150};
  std::vector<uint8_t> memory = std::vector<uint8_t>(1 << 17);
  RawCoder coder = {};
  int calls[raw_error + 1] = {};
  int32_t rows = 0;
};

struct Writing : Picture {
  void prepare() override {
    Picture::prepare();
    image.fillRandom(1);
    std::fill(memory.begin(), memory.end(), uint8_t{0xCD});
  }
  void call() override {
    const KVL_JpegEncoder encoder = raw_encoder(&coder);
    status =
        KVL_JpegWriteRawImage(&encoder, &image.header, image.bits(), KVL_JPEG_420, 0, 16, &rows);
  }
  Seen seen() const override { return seenWith(status); }
  // The coder is never opened.
  Seen failed() const override {
    return Seen{KVL_JPEG_OUT_OF_MEMORY, {}}.add(0).add(calls).add(image);
  }

  int32_t status = 0;
};

TEST(Allocation, WritingAPictureBeginsNone) {
  initialise();
  Writing writing;
  failEach(writing, 2);
  EXPECT_EQ(run(writing).seen.status, KVL_JPEG_OK);
  EXPECT_EQ(writing.rows, 150);
}

template <class Read>
struct Reading : Picture {
  explicit Reading(Read routine) : read(routine) {
    Writing writing;
    run(writing);
    memory = writing.memory;
    coder.memory = memory.data();
    coder.geometry = writing.coder.geometry;
  }
  void prepare() override {
    Picture::prepare();
    header = {};
    size = image.stride() * 150;
    image.fillRandom(2);
  }
  void call() override { status = read(*this); }
  Seen seen() const override { return seenWith(status).add(header).add(size); }
  // The header is told, the coder opened and given up, and no row is there.
  Seen failed() const override {
    int expected[raw_error + 1] = {};
    expected[raw_open] = expected[raw_header] = expected[raw_error] = 1;
    return Seen{KVL_JPEG_OUT_OF_MEMORY, {}}.add(0).add(expected).add(image).add(told).add(size);
  }

  Read read;
  int32_t status = 0;
  BITMAPINFOHEADER header = {};
  BITMAPINFOHEADER told = {};
  size_t size = 0;
};

TEST(Allocation, ReadingAPictureGivesTheCoderUp) {
  initialise();
  Reading toDib([](auto& r) {
    const KVL_JpegDecoder decoder = raw_decoder(&r.coder);
    return KVL_QvjJpegToDib(&decoder, nullptr, 0, nullptr, &r.header, r.image.bits(), &r.size,
                            &r.rows);
  });
  EXPECT_EQ(run(toDib).seen.status, KVL_JPEG_OK);
  EXPECT_EQ(toDib.rows, 150);
  toDib.told = toDib.header;
  EXPECT_EQ(toDib.told.biWidth, 75);
  failEach(toDib, 1);

  Reading decompress([](auto& r) {
    const KVL_JpegDecoder decoder = raw_decoder(&r.coder);
    return KVL_QvjDecompress(&decoder, nullptr, 0, nullptr, &r.image.header, r.image.bits(), 0,
                             nullptr, &r.rows);
  });
  EXPECT_EQ(run(decompress).seen.status, KVL_JPEG_OK);
  EXPECT_EQ(decompress.rows, 150);
  failEach(decompress, 1);
}

TEST(Allocation, InitialisationStillFindsATeam) {
  initialise();
  const InstructionSet level = instructionSet();
  const MemoryUse good = useMemory(InitKVLWrapper);
  EXPECT_GE(good.allocations, 1);
  EXPECT_EQ(good.held, 0);
  for (const Failing failing : {Failing::one, Failing::allFrom}) {
    for (int which = 1; which <= good.allocations; ++which) {
      g_processorInfo = {};
      const MemoryUse use = useMemory(InitKVLWrapper, failing, which);
      EXPECT_GE(use.failed, 1) << which;
      EXPECT_EQ(use.held, 0) << which;
      EXPECT_GE(g_processorInfo.processorCores, 1u) << which;
      EXPECT_EQ(KVL_GetNumOpenMPThreads(), static_cast<int>(g_processorInfo.processorCores));
      EXPECT_EQ(instructionSet(), level) << which;
    }
  }
  InitKVLWrapper();
}

#if !defined(_WIN32)
TEST(Allocation, TopologyOfAMadeUpMachineLeaksNothing) {
  namespace fs = std::filesystem;
  std::string root = (fs::temp_directory_path() / "kvl-allocation-XXXXXX").string();
  ASSERT_NE(mkdtemp(root.data()), nullptr);
  const auto write = [&](const std::string& path, const char* text) {
    fs::create_directories(fs::path(root + path).parent_path());
    std::ofstream(root + path) << text << "\n";
  };
  for (const char* cpu : {"0", "1"}) {
    const std::string folder = std::string("/sys/devices/system/cpu/cpu") + cpu;
    write(folder + "/topology/thread_siblings_list", cpu);
    write(folder + "/topology/physical_package_id", "0");
    write(folder + "/cache/index0/level", "1");
    write(folder + "/cache/index0/type", "Data");
    write(folder + "/cache/index0/shared_cpu_list", cpu);
  }
  write("/sys/devices/system/node/node0/cpulist", "0-1");
  write("/proc/self/cgroup", "0::/a/group\n");
  write("/sys/fs/cgroup/a/cpu.max", "200000 100000");

  std::vector<LogicalProcessorEntry> found;
  const auto lookUp = [&] {
    try {
      found = readLinuxTopology(root, {0, 1});
    } catch (const std::bad_alloc&) {
    }
    found = std::vector<LogicalProcessorEntry>();
  };
  const MemoryUse good = useMemory(lookUp);
  EXPECT_EQ(good.held, 0);
  for (const Failing failing : {Failing::one, Failing::allFrom}) {
    for (int which = 1; which <= good.allocations; ++which) {
      const MemoryUse use = useMemory(lookUp, failing, which);
      EXPECT_GE(use.failed, 1) << which;
      EXPECT_EQ(use.held, 0) << which;
    }
  }
  EXPECT_EQ(readLinuxTopology(root, {0, 1}).size(), 6u);
  fs::remove_all(root);
}
#endif

}  // namespace
}  // namespace kvl::test
