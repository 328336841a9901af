#include "resize/row_interpolation.h"

#include "support/testing.h"

namespace kvl::test {
namespace {

TEST(RowInterpolation, GivesTheSameAtEveryLevelForEveryShiftAndLength) {
  Random random(1);
  const std::vector<InstructionSet> levels = availableLevels();
  for (int count = 0; count <= 100; ++count) {
    const GuardAt guard = guardOf(count);
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

}  // namespace
}  // namespace kvl::test
