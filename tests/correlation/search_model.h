// The searches once more, pixel by pixel and by recursion, for comparison.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "kvl/kvl.h"
#include "support/test_image.h"

namespace kvl::test {

// Two images of one size whose rows may be padded, a mask without padding, and a block.
struct Scene {
  Scene(int32_t width, int32_t height, size_t padding, GuardAt guard, uint64_t seed);

  TestImage a;
  TestImage b;
  TestImage mask;
  RECT block{};

  int32_t width() const { return a.width(); }
  int32_t height() const { return a.height(); }
  // Packed scenes only.
  CorrelationOptions options() const;
};

RECT randomBlock(Random& random, int32_t width, int32_t height);

struct ModelOptions {
  bool masked = false;
  bool field = false;
  bool parity = false;
};

int64_t modelSquaredScore(const Scene& scene, ModelOptions options, int64_t x, int64_t y);
int32_t modelBrighteningScore(const Scene& scene, ModelOptions options, int64_t x, int64_t y);

// What a search leaves behind.
struct Outcome {
  double x = 0;
  double y = 0;
  double score = 0;
  int limitHit = 0;
  uint32_t firstLimitBlock = 0;
  std::vector<int64_t> table;

  bool operator==(const Outcome&) const = default;
};

std::string describe(const Outcome& outcome);

Outcome modelNormal(const Scene& scene, ModelOptions options, int range);
Outcome modelIterativ(const Scene& scene, ModelOptions options, POINT start, int maxSteps,
                      int limit, std::vector<int64_t> table);
Outcome modelNorm(const Scene& scene, ModelOptions options, int range, std::vector<int64_t> table);
Outcome modelIt(const Scene& scene, ModelOptions options, int range, bool stopAtLimit,
                uint32_t blockId, uint32_t firstLimitBlock, std::vector<int64_t> table);

}  // namespace kvl::test
