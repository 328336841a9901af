#include "benches.h"

#include <omp.h>

#include <cstring>

#include "support/bench_image.h"

namespace {

// How fast this machine moves memory at all: the measure beside every other row.
void addMemcpy() {
  static const std::vector<uint8_t> source = kvl::bench::photoLike(3);
  static std::vector<uint8_t> destination(source.size());
  kvl::bench::add(
      "memcpy", "rgb24", "libc", [](int threads) { omp_set_num_threads(threads); },
      [] {
        const size_t rowBytes = source.size() / kvl::bench::height;
#pragma omp parallel
        {
          const auto thread = static_cast<size_t>(omp_get_thread_num());
          const auto threads = static_cast<size_t>(omp_get_num_threads());
          const size_t first = kvl::bench::height * thread / threads * rowBytes;
          const size_t last = kvl::bench::height * (thread + 1) / threads * rowBytes;
          std::memcpy(destination.data() + first, source.data() + first, last - first);
        }
        benchmark::ClobberMemory();
      });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  addMemcpy();
  kvl::bench::addRegion();
  kvl::bench::addAlpha();
  kvl::bench::addAveragingBlur();
  kvl::bench::addClassicBlur();
  kvl::bench::addConvert();
  kvl::bench::addCorrelation();
  kvl::bench::addGaussianBlur();
  kvl::bench::addHalving();
  kvl::bench::addJpeg();
  kvl::bench::addOnePass();
  kvl::bench::addResize();
  kvl::bench::addSelectiveBlur();
  kvl::bench::addSelectiveSharpen();
  kvl::bench::addWarp();
  kvl::bench::addYuvToRgb();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
