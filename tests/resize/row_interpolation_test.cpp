#include "resize/row_interpolation.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/guarded_memory.h"
#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl {
namespace {

using test::GuardAt;
using test::GuardedMemory;
using test::Random;

// (step + 0.5) / factor of the way, rounded: 255 / 8 = 31.9, 255 * 3 / 8 = 95.6 and so on.
TEST(RowInterpolation, StepsFromOneRowToTheNextAsWorkedByHand) {
  const uint8_t a[] = {0, 255, 10}, b[] = {255, 0, 10};
  const int expected[4][3] = {{32, 223, 10}, {96, 159, 10}, {159, 96, 10}, {223, 32, 10}};
  for (const InstructionSet level : test::availableLevels()) {
    for (int step = 0; step < 4; ++step) {
      uint8_t out[3];
      rowInterpolationKernels(level).interpolate(a, b, out, 3, 2, step);
      for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], expected[step][i]) << step << " " << i;
    }
  }
}

TEST(RowInterpolation, GivesTheSameAtEveryLevelForEveryShiftAndLength) {
  Random random(1);
  const std::vector<InstructionSet> levels = test::availableLevels();
  for (int count = 0; count <= 100; ++count) {
    const GuardAt guard = count % 2 != 0 ? GuardAt::end : GuardAt::start;
    const auto size = static_cast<size_t>(count);
    GuardedMemory a(size, guard), b(size, guard), out(size, guard);
    for (size_t i = 0; i < size; ++i) {
      const uint32_t kind = random.next() % 4;
      a.data()[i] = kind == 0 ? 255 : kind == 1 ? 0 : static_cast<uint8_t>(random.next());
      b.data()[i] = kind == 0 ? 0 : kind == 1 ? 255 : static_cast<uint8_t>(random.next());
    }
    for (int shift = 1; shift <= 15; ++shift) {
      for (const int step : {0, random.range(0, (1 << shift) - 1), (1 << shift) - 1}) {
        std::vector<uint8_t> wanted(size);
        for (size_t i = 0; i < size; ++i) {
          const int64_t d = b.data()[i] - a.data()[i], factor = int64_t{1} << shift;
          const int64_t floorHalf = (d - (d % 2 != 0 && d < 0)) / 2;
          wanted[i] = static_cast<uint8_t>(
              (factor / 2 + a.data()[i] * factor + floorHalf + step * d) / factor);
        }
        for (const InstructionSet level : levels) {
          rowInterpolationKernels(level).interpolate(a.data(), b.data(), out.data(), count, shift,
                                                     step);
          ASSERT_EQ(std::vector<uint8_t>(out.data(), out.data() + size), wanted)
              << count << " samples, shift " << shift << ", step " << step;
        }
      }
    }
  }
}

TEST(RowInterpolation, TheVectorLevelReplacesTheKernel) {
  if (!test::hasLevel(InstructionSet::avx2)) GTEST_SKIP() << "needs AVX2";
  EXPECT_NE(rowInterpolationKernels(InstructionSet::sse41).interpolate,
            rowInterpolationKernels(InstructionSet::avx2).interpolate);
}

}  // namespace
}  // namespace kvl
