#include <algorithm>
#include <cstring>

#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_LIBYUV
#include <libyuv.h>
#endif
#ifdef KVL_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace kvl::bench {
namespace {

// Two frames of a clip: the second is the first, moved by (5, 3), under its own grain.
struct Frames {
  std::vector<uint8_t> first = photoLike(1);
  std::vector<uint8_t> second = first;

  Frames() {
    uint32_t state = 9;
    for (int y = 0; y + 3 < height; ++y) {
      for (int x = width - 1; x >= 5; --x) {
        state = state * 1664525u + 1013904223u;
        const uint8_t moved = first[static_cast<size_t>((y + 3) * width + x - 5)];
        second[static_cast<size_t>(y * width + x)] =
            static_cast<uint8_t>((moved & 252) | (state >> 30));
      }
    }
  }
};

const Frames& frames() {
  static const Frames both;
  return both;
}

// Some blocks of a frame, with the range inside it. Speeds compare the rows of one job; they are not
// those of a whole frame.
struct Blocks {
  int side;
  int range;
  int count;

  RECT at(int index) const {
    const int perRow = (width - 2 * range) / side;
    const int left = range + index % perRow * side;
    const int top = height / 3 + index / perRow * side;
    return {left, top, left + side, top + side};
  }
};

std::string nameOf(const Blocks& blocks) {
  const std::string side = std::to_string(blocks.side);
  return side + "x" + side + "-r" + std::to_string(blocks.range);
}

struct Found {
  CorrelationVector vector;
  int64_t score;
};

std::vector<uint8_t> g_found;

void keep(int index, const Found& found) {
  std::memcpy(g_found.data() + static_cast<size_t>(index) * sizeof found, &found, sizeof found);
}

void addExhaustive(const char* job, const Blocks& blocks, const uint8_t* mask) {
  addKvl(
      job, nameOf(blocks),
      [=] {
        g_found.resize(static_cast<size_t>(blocks.count) * sizeof(Found));
        for (int i = 0; i < blocks.count; ++i) {
          const RECT block = blocks.at(i);
          Found found{};
          found.vector = KVL_CalcCorrelationNormal(&found.score, frames().first.data(), width,
                                                   frames().second.data(), width, mask, width,
                                                   height, &block, blocks.range);
          keep(i, found);
        }
      },
      []() -> const std::vector<uint8_t>& { return g_found; }, {}, true);
}

#ifdef KVL_BENCH_LIBYUV
// libyuv's exact sum for every candidate.
void searchWithLibyuv(const RECT& block, int range) {
  uint64_t best = UINT64_MAX;
  for (int dy = -range; dy <= range; ++dy) {
    for (int dx = -range; dx <= range; ++dx) {
      const auto row = static_cast<size_t>(height - block.bottom);
      const uint8_t* a = frames().first.data() + row * width + block.left;
      const uint8_t* b = frames().second.data() + row * width + block.left + dy * width + dx;
      const uint64_t sum = libyuv::ComputeSumSquareErrorPlane(
          a, width, b, width, block.right - block.left, block.bottom - block.top);
      if (sum < best) best = sum;
    }
  }
  benchmark::DoNotOptimize(best);
}
#endif

#ifdef KVL_BENCH_OPENCV
void searchWithOpenCv(const RECT& block, int range) {
  const cv::Mat first(height, width, CV_8UC1, const_cast<uint8_t*>(frames().first.data()));
  const cv::Mat second(height, width, CV_8UC1, const_cast<uint8_t*>(frames().second.data()));
  const int side = block.right - block.left;
  const int row = height - block.bottom;
  cv::Mat scores;
  cv::matchTemplate(
      second(cv::Rect(block.left - range, row - range, side + 2 * range, side + 2 * range)),
      first(cv::Rect(block.left, row, side, side)), scores, cv::TM_SQDIFF);
  double best = 0;
  cv::minMaxLoc(scores, &best);
  benchmark::DoNotOptimize(best);
}
#endif

void addExhaustivePeers(const Blocks& blocks) {
#ifdef KVL_BENCH_LIBYUV
  addPeer("motion-squared", nameOf(blocks), "libyuv", [=](int part, int parts) {
    for (int i = part; i < blocks.count; i += parts) searchWithLibyuv(blocks.at(i), blocks.range);
  });
#endif
#ifdef KVL_BENCH_OPENCV
  addOpenCv("motion-squared", nameOf(blocks), [=] {
    for (int i = 0; i < blocks.count; ++i) searchWithOpenCv(blocks.at(i), blocks.range);
  });
#endif
}

void addIterative(const Blocks& blocks) {
  static std::vector<int64_t> table(static_cast<size_t>(width) * height);
  addKvl(
      "motion-ring", nameOf(blocks),
      [=] {
        g_found.resize(static_cast<size_t>(blocks.count) * sizeof(Found));
        for (int i = 0; i < blocks.count; ++i) {
          const RECT block = blocks.at(i);
          Found found{};
          // Only entries around (0, 0) can have been written.
          for (int y = height / 2 - 20; y < height / 2 + 20; ++y) {
            std::fill_n(table.data() + y * width + width / 2 - 20, 40, 0);
          }
          found.vector = KVL_CalcCorrelationIterativ(
              &found.score, frames().first.data(), width, frames().second.data(), width, nullptr,
              width, height, &block, nullptr, 4, blocks.range / 4, table.data());
          keep(i, found);
        }
      },
      []() -> const std::vector<uint8_t>& { return g_found; }, {}, true);
}

CorrelationOptions optionsOf(const RECT& block) {
  CorrelationOptions options = {};
  options.width = width;
  options.height = height;
  options.blockLeft = block.left;
  options.blockTop = block.top;
  options.blockRight = block.right;
  options.blockBottom = block.bottom;
  options.subStep = 0.25f;
  options.subScale = 1;
  options.subRange = 0.75f;
  return options;
}

void addBrightening(const Blocks& blocks) {
  static std::vector<uint32_t> table(static_cast<size_t>(width) * height);
  const auto addSearch = [&](const char* job, const Blocks& these, const auto& search) {
    addKvl(
        job, nameOf(these),
        [=] {
          g_found.resize(static_cast<size_t>(these.count) * sizeof(Found));
          for (int i = 0; i < these.count; ++i) {
            const CorrelationOptions options = optionsOf(these.at(i));
            CorrelationBlockResult result = {};
            const CorrelationVector vector = search(&result, options, these.range);
            keep(i, {vector, static_cast<int64_t>(result.score)});
          }
        },
        []() -> const std::vector<uint8_t>& { return g_found; }, {}, true);
  };
  addSearch("motion-positive", blocks,
            [](CorrelationBlockResult* result, const CorrelationOptions& options, int range) {
              return KVL_CalcCorrelationNorm(result, frames().first.data(), frames().second.data(),
                                             range, &options, table.data());
            });
  addSearch("motion-sub", blocks,
            [](CorrelationBlockResult* result, const CorrelationOptions& options, int) {
              const CorrelationVector centre{5, 3};
              return KVL_CalcCorrelationSub(result, frames().first.data(), frames().second.data(),
                                            &centre, &options);
            });
}

void addGrey() {
  static const std::vector<uint8_t> source = photoLike(3);
  static std::vector<uint8_t> grey(static_cast<size_t>(width) * height);
  addKvl(
      "grey", "rgb24",
      [] { KVL_ConvertFrameToGray(source.data(), width * 3, grey.data(), width, width, height); },
      []() -> const std::vector<uint8_t>& { return grey; }, {}, true);
#ifdef KVL_BENCH_LIBYUV
  addPeer("grey", "rgb24", "libyuv", [](int part, int parts) {
    const int first = height * part / parts, last = height * (part + 1) / parts;
    libyuv::RGB24ToJ400(source.data() + static_cast<size_t>(first) * width * 3, width * 3,
                        grey.data() + static_cast<size_t>(first) * width, width, width,
                        last - first);
  });
#endif
#ifdef KVL_BENCH_OPENCV
  addOpenCv("grey", "rgb24", [] {
    const cv::Mat in(height, width, CV_8UC3, const_cast<uint8_t*>(source.data()));
    cv::Mat out(height, width, CV_8UC1, grey.data());
    cv::cvtColor(in, out, cv::COLOR_BGR2GRAY);
  });
#endif
}

}  // namespace

void addCorrelation() {
  for (const Blocks& blocks : {Blocks{64, 16, 12}, {16, 12, 100}, {256, 8, 3}}) {
    addExhaustive("motion-squared", blocks, nullptr);
    addExhaustivePeers(blocks);
  }
  static const std::vector<uint8_t> mask(static_cast<size_t>(width) * height, 100);
  addExhaustive("motion-mask", {64, 16, 3}, mask.data());
  addIterative({16, 12, 100});
  addBrightening({16, 12, 100});
  addGrey();
}

}  // namespace kvl::bench
