#include "support/bench_image.h"

#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "core/initialise.h"

#ifdef KVL_BENCH_OPENCV
#include <opencv2/core.hpp>
#endif

namespace kvl::bench {

std::vector<uint8_t> photoLike(int channels) {
  const size_t stride = (static_cast<size_t>(width * channels) + 3) & ~size_t{3};
  std::vector<uint8_t> bytes(stride * height);
  uint32_t state = 1;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool inside = (x / 160 + y / 120) % 3 == 0;
      for (int c = 0; c < channels; ++c) {
        state = state * 1664525u + 1013904223u;
        const double wave = 60 * std::sin(x * 0.011 + c) + 50 * std::cos(y * 0.017 - c);
        const double grain = static_cast<double>(state >> 28) - 8;
        const double value = 128 + wave + (inside ? 40 : 0) + grain;
        bytes[static_cast<size_t>(y) * stride + static_cast<size_t>(x * channels + c)] =
            static_cast<uint8_t>(value < 0     ? 0
                                 : value > 255 ? 255
                                               : value);
      }
    }
  }
  return bytes;
}

std::string radiusName(double radius) {
  char name[32];
  std::snprintf(name, sizeof name, "r%g", radius);
  return name;
}

BITMAPINFOHEADER header(uint16_t bitCount) {
  BITMAPINFOHEADER h = {};
  h.biSize = sizeof h;
  h.biWidth = width;
  h.biHeight = height;
  h.biPlanes = 1;
  h.biBitCount = bitCount;
  return h;
}

void add(const std::string& job, const std::string& variant, const std::string& who,
         const std::function<void(int)>& prepare, const std::function<void()>& call) {
  for (const int threads : {1, 2}) {
    const std::string name =
        job + "/" + variant + "/" + who + "/threads:" + std::to_string(threads);
    benchmark::RegisterBenchmark(
        name.c_str(),
        [=](benchmark::State& state) {
          prepare(threads);
          call();
          for (auto _ : state) call();
          state.counters["MP/s"] =
              benchmark::Counter(static_cast<double>(state.iterations()) * width * height / 1e6,
                                 benchmark::Counter::kIsRate);
        })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
}

void addKvl(const std::string& job, const std::string& variant, const std::function<void()>& call,
            const std::function<const std::vector<uint8_t>&()>& result,
            const std::function<void()>& reset, bool levels, InstructionSet reference) {
  initialise();
  // Before the first of its runs, so that what a filter leaves out takes no time.
  const auto check = [=, checked = std::make_shared<bool>(false)] {
    if (std::exchange(*checked, true)) return;
    const auto bytesAt = [&](InstructionSet level) {
      limitInstructionSet(level);
      if (reset) reset();
      call();
      return result();
    };
    const std::vector<uint8_t> expected = bytesAt(reference);
    if (bytesAt(InstructionSet::avx2) != expected || bytesAt(InstructionSet::sse41) != expected) {
      std::fprintf(stderr, "%s/%s: wrong result\n", job.c_str(), variant.c_str());
      std::exit(1);
    }
  };
  const auto at = [check](InstructionSet level) {
    return [check, level](int threads) {
      check();
      limitInstructionSet(level);
      omp_set_num_threads(threads);
    };
  };
  add(job, variant, "kvl", at(InstructionSet::avx2), call);
  if (levels) add(job, variant, "kvl-sse41", at(InstructionSet::sse41), call);
}

void addPeer(const std::string& job, const std::string& variant, const std::string& who,
             const std::function<void(int part, int parts)>& part) {
  add(
      job, variant, who, [](int threads) { omp_set_num_threads(threads); },
      [part] {
#pragma omp parallel
        part(omp_get_thread_num(), omp_get_num_threads());
      });
}

#ifdef KVL_BENCH_OPENCV
void addOpenCv(const std::string& job, const std::string& variant,
               const std::function<void()>& call) {
  add(
      job, variant, "opencv", [](int threads) { cv::setNumThreads(threads); }, call);
}
#endif

}  // namespace kvl::bench
