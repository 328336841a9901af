#include "timing.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "interrupt.h"
#include "kvl/kvl.h"

namespace kvl::tool {

double medianMilliseconds(int repeat, const std::function<void()>& prepare,
                          const std::function<void()>& run) {
  using Clock = std::chrono::steady_clock;
  std::vector<double> runs;
  for (int i = 0; i < repeat; ++i) {
    throwIfInterrupted();
    prepare();
    const Clock::time_point start = Clock::now();
    run();
    runs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  const auto middle = runs.begin() + (repeat - 1) / 2;
  std::ranges::nth_element(runs, middle);
  return *middle;
}

void printTime(const std::string& name, Size size, int64_t pixels, int64_t frames,
               double milliseconds) {
  const double perFrame = milliseconds / static_cast<double>(frames);
  const double megapixels = static_cast<double>(pixels) / 1e6;
  std::fprintf(stderr, "kvl: %s %dx%d %lld frames %.3f ms/frame %.1f MP/s %d threads\n",
               name.c_str(), size.width, size.height, static_cast<long long>(frames), perFrame,
               megapixels / perFrame * 1e3, KVL_GetNumOpenMPThreads());
}

}  // namespace kvl::tool
