// Calls that work on two images, compared with a model that is asked once for all levels and teams.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/level_and_team.h"
#include "support/test_image.h"

namespace kvl::test {

struct Shape {
  int32_t width;
  int32_t height;
  uint16_t bitCount = 24;
  size_t stride = 0;
};

using Bytes = std::vector<uint8_t>;
// Turns what both images hold into what they must hold.
using TwoImageModel = std::function<void(Bytes& a, Bytes& b)>;
using TwoImageCall = std::function<void(TestImage& a, TestImage& b)>;

// The check of a call with random images: all bytes of both, and their headers.
Check twoImageCheck(const Shape& a, const Shape& b, uint64_t seed, const std::string& what,
                    const TwoImageModel& model, const TwoImageCall& call);

}  // namespace kvl::test
