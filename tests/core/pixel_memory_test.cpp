#include "core/pixel_memory.h"

#include <gtest/gtest.h>

#include <cstring>

#include "core/cpu_features.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::GuardAt;
using test::GuardedMemory;

// Every head, block and tail length at every alignment, against unreadable pages on both sides.
class PixelMemory : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override { g_hasSSE2 = GetParam(); }
  void TearDown() override { g_hasSSE2 = 0; }
};

TEST_P(PixelMemory, FillsExactlyTheGivenBytes) {
  for (size_t offset = 0; offset < 16; ++offset) {
    for (size_t count = 0; count < 70; ++count) {
      GuardedMemory memory(offset + count + 1);
      std::memset(memory.data(), 0x11, memory.size());
      uint8_t* at = memory.data() + offset;
      ASSERT_EQ(FastFill(at, 0x1FE, count), at);
      for (size_t i = 0; i < memory.size(); ++i) {
        const bool inside = i >= offset && i < offset + count;
        ASSERT_EQ(memory.data()[i], inside ? 0xFE : 0x11) << offset << " " << count << " " << i;
      }
    }
  }
  EXPECT_EQ(FastFill(nullptr, 1, 100), nullptr);
}

TEST_P(PixelMemory, CopiesExactlyTheGivenBytes) {
  for (const GuardAt guard : {GuardAt::end, GuardAt::start}) {
    for (size_t from = 0; from < 17; ++from) {
      for (size_t to = 0; to < 17; ++to) {
        for (const size_t count : {0, 1, 15, 16, 17, 31, 32, 48, 63, 64}) {
          // Both ends of the source are the mapping's ends for one of the guards.
          GuardedMemory source(count + (guard == GuardAt::start ? 0 : from), guard);
          GuardedMemory destination(to + count + 1, guard);
          for (size_t i = 0; i < source.size(); ++i) source.data()[i] = static_cast<uint8_t>(i + 1);
          std::memset(destination.data(), 0xEE, destination.size());
          uint8_t* at = destination.data() + to;
          const uint8_t* begin = source.data() + source.size() - count;
          ASSERT_EQ(FastCopy(at, begin, count), at);
          ASSERT_EQ(std::memcmp(at, begin, count), 0);
          ASSERT_EQ(at[count], 0xEE);
          ASSERT_TRUE(to == 0 || at[-1] == 0xEE);
        }
      }
    }
  }
  uint8_t byte = 7;
  EXPECT_EQ(FastCopy(&byte, nullptr, 1), &byte);
  EXPECT_EQ(FastCopy(nullptr, &byte, 1), nullptr);
  EXPECT_EQ(byte, 7);
}

INSTANTIATE_TEST_SUITE_P(ScalarAndSse2, PixelMemory, testing::Bool());

}  // namespace
}  // namespace kvl
