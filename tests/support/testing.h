// What the tests of the exports begin with.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "core/initialise.h"
#include "kvl/kvl.h"
#include "support/bad_calls.h"
#include "support/level_and_team.h"
#include "support/test_image.h"
#include "support/two_images.h"

namespace kvl::test {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// Sizes that no 24-bit bitmap beside one of 20 x 20 can have.
inline const std::initializer_list<BITMAPINFOHEADER> impossibleSizes = {
    makeHeader(20, 0),
    makeHeader(0, 20),
    makeHeader(-20, 20),
    makeHeader(20, INT32_MIN),
    makeHeader(INT32_MIN, 1),
    makeHeader(715827882, 1),
    makeHeader(INT32_MAX, 1),
    makeHeader(INT32_MAX, INT32_MAX),
    makeHeader(500000000, INT32_MAX)};

// Those of COM, as the conversions return them.
constexpr auto invalidArgument = static_cast<int32_t>(0x80070057);
constexpr auto notImplemented = static_cast<int32_t>(0x80004001);

}  // namespace kvl::test
