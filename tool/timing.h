// What --time measures and prints.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "dib.h"

namespace kvl::tool {

// The median of the milliseconds that `repeat` runs take, each after a call of prepare().
double medianMilliseconds(int repeat, const std::function<void()>& prepare,
                          const std::function<void()>& run);

// One line on standard error; `milliseconds` are those of all frames.
void printTime(const std::string& name, Size size, int64_t pixels, int64_t frames,
               double milliseconds);

}  // namespace kvl::tool
