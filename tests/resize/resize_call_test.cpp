// How the calls behave: work buffers, bad arguments, records that a host has changed, many threads.
#include <omp.h>

#include <atomic>
#include <thread>

#include "core/platform.h"
#include "resize/resize_case.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

int32_t oneCall(ResizeCase& c, decltype(&KVL_ResizeDIB_CPP) routine = KVL_ResizeDIB_CPP) {
  return routine(&c.source.header, c.source.bits(), &c.rect.left, &c.destination.header,
                 c.destination.bits(), &c.into, c.flags);
}

TEST(ResizeCall, ClearsTheWorkBufferAndNothingBeyond) {
  initialise();
  ResizeCase c(90, 70, 60, 50);
  c.source.fillRandom(1);
  ResizeSetup setup;
  uint64_t needed = 0;
  ASSERT_EQ(c.setUp(setup, needed), KVL_S_OK);
  std::vector<uint8_t> first(needed + 100, 0x11), second(needed + 100, 0xEE);
  const auto run = [&](std::vector<uint8_t>& work) {
    return KVL_CalcResizeDib(&setup, c.source.bits(), c.destination.bits(), work.data(),
                             work.size());
  };
  EXPECT_EQ(run(first), KVL_S_OK);
  EXPECT_EQ(run(second), KVL_S_OK);
  const auto end = static_cast<ptrdiff_t>(needed);
  EXPECT_TRUE(std::equal(first.begin(), first.begin() + end, second.begin()));
  EXPECT_TRUE(std::all_of(first.begin() + end, first.end(), [](uint8_t b) { return b == 0x11; }));

  // A record of too narrow a rectangle gets as far as the clearing.
  setup.srcRectHeight = 0.5;
  std::fill(first.begin(), first.end(), uint8_t{0x22});
  EXPECT_EQ(run(first), KVL_E_FAIL);
  EXPECT_TRUE(std::all_of(first.begin(), first.begin() + end, [](uint8_t b) { return b == 0; }));
  EXPECT_EQ(first[needed], 0x22);
  setup.srcRectHeight = 70;
  setup.srcRectWidth = 0.999;
  EXPECT_EQ(run(first), KVL_E_FAIL);
}

TEST(ResizeCall, TakesWorkBuffersAtAnyAddress) {
  initialise();
  for (const uint16_t bits : {8, 24}) {
    ResizeCase c(90, 71, 61, 50, bits);
    c.source.fillRandom(3);
    c.destination.fill(0);
    const std::vector<uint8_t> expected = test::modelBytes(c, c.destination.bytes());
    ResizeSetup setup;
    uint64_t needed = 0;
    ASSERT_EQ(c.setUp(setup, needed), KVL_S_OK);
    for (size_t offset = 0; offset < 8; ++offset) {
      GuardedMemory work(needed + offset);
      c.destination.fill(0);
      EXPECT_EQ(KVL_CalcResizeDib(&setup, c.source.bits(), c.destination.bits(),
                                  work.data() + offset, needed),
                KVL_S_OK);
      EXPECT_EQ(c.destination.bytes(), expected) << bits << " " << offset;
    }
  }
}

TEST(ResizeCall, RefusesBadArgumentsAndChangesNothing) {
  initialise();
  ResizeCase c(20, 10, 30, 40);
  c.source.fillRandom(1);
  ResizeSetup setup;
  uint64_t needed = 0;
  ASSERT_EQ(c.setUp(setup, needed), KVL_S_OK);
  std::vector<uint8_t> work(needed, 0x33);
  BadCalls execute(KVL_CalcResizeDib, &setup, c.source.bits(), c.destination.bits(), work.data(),
                   needed);
  execute.watch(c.destination).watch(work.data(), needed).expect(KVL_E_INVALIDARG);
  execute.eachNull();
  execute.with<4>({needed - 1});
  for (const uint32_t components : {0u, 2u, 4u, 0xFFFFFFFFu}) {
    execute.withChanged<0>([&](auto& s) { s.bytesPerPixel = components; });
  }
  for (const auto routine : {KVL_ResizeDIB_CPP, KVL_ResizeDIB_RGB24_CPP}) {
    BadCalls whole(routine, &c.source.header, c.source.bits(), &c.rect.left, &c.destination.header,
                   c.destination.bits(), &c.into, 0u);
    whole.watch(c.destination).expect(KVL_E_INVALIDARG);
    whole.eachNull();
    whole.with<5>({RECT{30, 0, 60, 40}});
    const double outside[] = {20, 0, 30, 5};
    whole.with<2>({outside});
  }
}

// Whatever a record says, execution stays within the buffers, which end at unreadable pages.
TEST(ResizeCall, SurvivesRecordsThatTheHostHasChanged) {
  initialise();
  Random random(7);
  int executed = 0, refused = 0;
  for (int i = 0; i < 6000; ++i) {
    const uint16_t bits = i % 2 == 0 ? 24 : 8;
    ResizeCase c(random.range(1, 40), random.range(1, 40), random.range(1, 40), random.range(1, 40),
                 bits, i % 3 == 0 ? GuardAt::start : GuardAt::end);
    c.flags = i % 5 == 0;
    ResizeSetup setup;
    uint64_t needed = 0;
    ASSERT_EQ(c.setUp(setup, needed), KVL_S_OK);
    GuardedMemory work(needed, i % 3 == 0 ? GuardAt::start : GuardAt::end);
    auto* bytes = reinterpret_cast<uint8_t*>(&setup);
    for (int changes = random.range(1, 3); changes > 0; --changes) {
      // The row sizes describe the host's buffers: they cannot be wrong. All else can.
      const int at = random.range(0, 183);
      if (at >= 32 && at < 48) continue;
      if (at >= 136 && at < 152) continue;
      if (random.range(0, 1) != 0) {
        bytes[at] = static_cast<uint8_t>(bytes[at] + random.range(-2, 2));
      } else {
        bytes[at] = static_cast<uint8_t>(random.next());
      }
    }
    const int32_t status =
        KVL_CalcResizeDib(&setup, c.source.bits(), c.destination.bits(), work.data(), work.size());
    ASSERT_TRUE(status == KVL_S_OK || status == KVL_E_INVALIDARG || status == KVL_E_FAIL);
    (status == KVL_S_OK ? executed : refused) += 1;
  }
  EXPECT_GT(executed, 150);
  EXPECT_GT(refused, 1500);
}

TEST(ResizeCall, RefusesRecordsOfBuffersThatCannotBe) {
  ResizeCase c(20, 10, 30, 40);
  ResizeSetup setup;
  uint64_t needed = 0;
  ASSERT_EQ(c.setUp(setup, needed), KVL_S_OK);
  std::vector<uint8_t> work(needed);
  BadCalls calls(KVL_CalcResizeDib, &setup, c.source.bits(), c.destination.bits(), work.data(),
                 needed);
  calls.watch(c.destination).expect(KVL_E_INVALIDARG);
  for (const uint64_t stride : {uint64_t{0}, uint64_t{59}, uint64_t{1} << 60, ~uint64_t{0}}) {
    calls.withChanged<0>([&](auto& s) { s.srcStride = stride; },
                         [&](auto& s) { s.dstStride = stride; });
  }
  for (const int32_t size : {0, -1, 19, INT32_MIN}) {
    calls.withChanged<0>([&](auto& s) { s.srcWidth = size; }, [&](auto& s) { s.dstWidth = size; });
  }
  calls.withChanged<0>([](auto& s) { s.srcHeight = 0x80000000u; },
                       [](auto& s) { s.dstHeight = 0; });
}

std::atomic<int> g_allocations = 0;
std::atomic<bool> g_refuse = false;

TEST(ResizeCall, KeepsOneWorkBufferThatGrows) {
  initialise();
  const PlatformCalls saved = g_platform;
  g_platform.allocate = [](size_t bytes) -> void* {
    ++g_allocations;
    return g_refuse ? nullptr : std::malloc(bytes);
  };
  ResizeCase small(40, 40, 30, 30), large(400, 400, 700, 700);
  EXPECT_EQ(oneCall(large), KVL_S_OK);
  const int before = g_allocations;
  EXPECT_EQ(oneCall(large), KVL_S_OK);
  EXPECT_EQ(oneCall(small), KVL_S_OK);
  EXPECT_EQ(oneCall(large), KVL_S_OK);
  EXPECT_EQ(g_allocations, before);

  // A call that cannot have its memory leaves the cache empty and the lock free.
  ResizeCase larger(500, 500, 900, 900);
  g_refuse = true;
  EXPECT_EQ(oneCall(larger), KVL_E_OUTOFMEMORY);
  EXPECT_EQ(oneCall(small), KVL_E_OUTOFMEMORY);
  g_refuse = false;
  EXPECT_EQ(oneCall(small), KVL_S_OK);
  EXPECT_EQ(g_allocations, before + 3);
  ResizeCase huge(1, 1, 1, 1);
  huge.source.header.biWidth = 200'000'000;
  huge.destination.header.biHeight = INT32_MAX;
  huge.rect.right = 200'000'000;
  huge.into = {0, 0, 1, INT32_MAX};
  g_refuse = true;
  EXPECT_EQ(oneCall(huge), KVL_E_OUTOFMEMORY);
  g_refuse = false;
  g_platform = saved;
}

TEST(ResizeCall, ServesManyHostThreadsAtOnce) {
  initialise();
  std::atomic<int> ready = 0;
  std::atomic<int> wrong = 0;
  const auto host = [&](int i) {
    omp_set_num_threads(2);
    const int32_t size = 40 + 7 * i;
    ResizeCase one(90, 70, size, size), two(90, 70, size, size);
    one.source.fillRandom(static_cast<uint64_t>(i));
    two.source.fillRandom(static_cast<uint64_t>(i));
    one.rect = two.rect = {-4.5, 3.2, 80.1, 71};
    one.into = two.into = {2, -3, 1000, 25};
    one.flags = two.flags = i % 2;
    const std::vector<uint8_t> expected = modelBytes(one, one.destination.bytes());
    ++ready;
    while (ready < 8) std::this_thread::yield();
    for (int run = 0; run < 20; ++run) {
      const auto routine = run % 2 == 0 ? KVL_ResizeDIB_CPP : KVL_ResizeDIB_RGB24_CPP;
      if (oneCall(one, routine) != KVL_S_OK || one.destination.bytes() != expected) ++wrong;
      two.run();
      if (two.destination.bytes() != expected) ++wrong;
    }
  };
  std::vector<std::thread> hosts;
  for (int i = 0; i < 8; ++i) hosts.emplace_back(host, i);
  for (std::thread& thread : hosts) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace kvl::test
