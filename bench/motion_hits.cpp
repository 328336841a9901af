// How often block searches find a known displacement, and how fast: this library's beside OpenCV's.
//
//   motion_hits WIDTH HEIGHT BLOCK RANGE DX DY < frames
//
// reads grey frames of WIDTH x HEIGHT bytes, each of which is the one before moved by (DX, DY), and
// prints a line a search: name, share of the blocks found exactly, mean error in pixels,
// milliseconds a pair of frames.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "kvl/kvl.h"

namespace {

struct Vector {
  double x;
  double y;
};

struct Frames {
  int width;
  int height;
  std::vector<std::vector<uint8_t>> rows;
};

// Finds where the block of `side` pixels at (left, top) of one frame lies in the next.
using Search = std::function<Vector(const std::vector<uint8_t>& from,
                                    const std::vector<uint8_t>& to, int left, int top)>;

void measure(const char* name, const Frames& frames, int side, int range, Vector truth,
             const Search& search) {
  using Clock = std::chrono::steady_clock;
  int64_t blocks = 0, hits = 0;
  double error = 0;
  search(frames.rows[0], frames.rows[1], range, range);
  const Clock::time_point start = Clock::now();
  for (size_t i = 0; i + 1 < frames.rows.size(); ++i) {
    for (int top = range; top + side + range <= frames.height; top += side) {
      for (int left = range; left + side + range <= frames.width; left += side) {
        const Vector v = search(frames.rows[i], frames.rows[i + 1], left, top);
        ++blocks;
        hits += v.x == truth.x && v.y == truth.y;
        error += std::hypot(v.x - truth.x, v.y - truth.y);
      }
    }
  }
  const double milliseconds =
      std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  const auto count = static_cast<double>(blocks);
  std::printf("%s %.4f %.4f %.3f\n", name, static_cast<double>(hits) / count, error / count,
              milliseconds / static_cast<double>(frames.rows.size() - 1));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) {
    std::fprintf(stderr, "usage: motion_hits WIDTH HEIGHT BLOCK RANGE DX DY < frames\n");
    return 2;
  }
  const int width = std::atoi(argv[1]), height = std::atoi(argv[2]);
  const int side = std::atoi(argv[3]), range = std::atoi(argv[4]);
  const Vector truth{std::atof(argv[5]), std::atof(argv[6])};
  Frames frames{width, height, {}};
  std::vector<uint8_t> frame(static_cast<size_t>(width) * static_cast<size_t>(height));
  while (std::fread(frame.data(), frame.size(), 1, stdin) == 1) frames.rows.push_back(frame);
  if (frames.rows.size() < 2 || width < side + 2 * range || height < side + 2 * range) {
    std::fprintf(stderr, "motion_hits: too few or too small frames\n");
    return 1;
  }
  InitKVLWrapper();

  // Rows are read as if stored bottom-up, so y counts from the last one.
  measure("kvl", frames, side, range, truth,
          [&](const std::vector<uint8_t>& from, const std::vector<uint8_t>& to, int left, int top) {
            const RECT block{left, height - top - side, left + side, height - top};
            int64_t score = 0;
            const CorrelationVector v =
                KVL_CalcCorrelationNormal(&score, from.data(), width, to.data(), width, nullptr,
                                          width, height, &block, range);
            return Vector{v.x, -v.y};
          });
  measure("opencv", frames, side, range, truth,
          [&](const std::vector<uint8_t>& from, const std::vector<uint8_t>& to, int left, int top) {
            const cv::Mat first(height, width, CV_8UC1, const_cast<uint8_t*>(from.data()));
            const cv::Mat second(height, width, CV_8UC1, const_cast<uint8_t*>(to.data()));
            const int reach = side + 2 * range;
            cv::Mat scores;
            cv::matchTemplate(second(cv::Rect(left - range, top - range, reach, reach)),
                              first(cv::Rect(left, top, side, side)), scores, cv::TM_SQDIFF);
            cv::Point best;
            cv::minMaxLoc(scores, nullptr, nullptr, &best);
            return Vector{double(best.x - range), double(best.y - range)};
          });
  return 0;
}
