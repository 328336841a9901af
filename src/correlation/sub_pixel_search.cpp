// The refinement of a vector to fractions of a pixel.
#include <algorithm>
#include <cmath>
#include <memory>
#include <new>

#include "core/bitmap.h"
#include "core/parallel.h"
#include "correlation/block.h"
#include "correlation/brightening_search.h"
#include "correlation/match_score.h"

namespace kvl {
namespace {

constexpr double smallestStep = 1.0 / 1024;

// A position between two neighbours: `from` and the one after it, which has the share `fraction`.
struct Tap {
  int64_t from;
  int64_t to;
  double fraction;
};

// What lies beyond an edge, be it by a rounding, has the value of the edge.
Tap tapAt(double position, int64_t size) {
  const double inside = std::clamp(position, 0.0, static_cast<double>(size - 1));
  const auto from = static_cast<int64_t>(inside);
  return {from, std::min(from + 1, size - 1), inside - static_cast<double>(from)};
}

double mix(double a, double b, double share) {
  return a + share * (b - a);
}

// Samples of A along an axis: first, first + step, ...
struct GridAxis {
  double first;
  double step;
  int64_t count;

  double at(int64_t i) const { return first + static_cast<double>(i) * step; }
};

// Displacements along an axis, with the last one lying at or below `highest`.
struct ShiftAxis {
  double lowest;
  double highest;
};

// The samples of a block side from `start` to `end` in an image of `size` pixels: away from the
// ends of the block by a margin, and such that B is inside its image at every displacement.
GridAxis gridAxis(double start, double end, int64_t size, ShiftAxis shifts, double scale,
                  double step) {
  const double magnitude = std::max(std::abs(shifts.lowest), std::abs(shifts.highest));
  const double margin = std::floor(std::min(scale * magnitude, std::max(end - start, 0.0) / 4));
  const auto last = static_cast<double>(size - 1);
  const double first = std::ceil(std::max({start + margin, 0.0, -shifts.lowest}));
  const double final = std::min({end - 1 - margin, last, last - shifts.highest});
  if (!(first <= final)) return {first, step, 0};
  return {first, step, static_cast<int64_t>((final - first) / step) + 1};
}

struct SubPixelPlan {
  const uint8_t* imageB;
  int64_t width;
  int64_t height;
  GridAxis x;
  GridAxis y;
  // The samples of A, row by row.
  const uint8_t* samplesOfA;
};

// Reads rows of samples out of an image, interpolating along each image row only once while the
// positions of the sample rows grow.
class RowSampler {
 public:
  // `scratch` holds 2 * x.count values and `taps` x.count.
  RowSampler(const uint8_t* image, int64_t width, int64_t height, const GridAxis& x, double shiftX,
             double* scratch, Tap* taps)
      : image_(image),
        width_(width),
        height_(height),
        count_(x.count),
        taps_(taps),
        from_{scratch, -1},
        to_{scratch + x.count, -1} {
    for (int64_t i = 0; i < count_; ++i) taps[i] = tapAt(x.at(i) + shiftX, width);
  }

  // visit(i, sample) for every sample of the row at y.
  template <class Visit>
  void sampleRow(double y, const Visit& visit) {
    const Tap tap = tapAt(y, height_);
    if (tap.from == to_.row) std::swap(from_, to_);
    interpolate(from_, tap.from);
    interpolate(to_, tap.to);
    const double* from = from_.values;
    const double* to = to_.values;
    for (int64_t i = 0; i < count_; ++i) {
      visit(i, static_cast<int>(mix(from[i], to[i], tap.fraction)));
    }
  }

 private:
  struct InterpolatedRow {
    double* values;
    int64_t row;
  };

  void interpolate(InterpolatedRow& line, int64_t row) {
    if (line.row == row) return;
    line.row = row;
    const uint8_t* pixels = image_ + row * width_;
    for (int64_t i = 0; i < count_; ++i) {
      line.values[i] = mix(pixels[taps_[i].from], pixels[taps_[i].to], taps_[i].fraction);
    }
  }

  const uint8_t* image_;
  int64_t width_;
  int64_t height_;
  int64_t count_;
  const Tap* taps_;
  InterpolatedRow from_;
  InterpolatedRow to_;
};

int64_t scoreAt(const SubPixelPlan& plan, CorrelationVector shift, double* scratch, Tap* taps) {
  RowSampler sampler(plan.imageB, plan.width, plan.height, plan.x, shift.x, scratch, taps);
  int64_t sum = 0;
  for (int64_t j = 0; j < plan.y.count; ++j) {
    const uint8_t* a = plan.samplesOfA + j * plan.x.count;
    sampler.sampleRow(plan.y.at(j) - shift.y,
                      [&](int64_t i, int b) { sum += std::max(0, b - int{a[i]}); });
  }
  return -sum;
}

// The displacements low, low + step, ... as repeated addition gives them.
template <class Visit>
void forEachStep(ShiftAxis axis, double step, const Visit& visit) {
  double at = axis.lowest;
  while (at <= axis.highest) {
    visit(at);
    at += step;
  }
}

template <class T>
std::unique_ptr<T[]> allocate(int64_t count) {
  constexpr int64_t most = int64_t{1} << 40;
  if (count > most) return nullptr;
  return std::unique_ptr<T[]>(new (std::nothrow) T[static_cast<size_t>(count)]);
}

struct ScoredVector {
  CorrelationVector vector;
  double score;
};

// Scores every displacement of the two ranges and takes the first of the best; (0, 0) where memory
// cannot be had.
ScoredVector searchDisplacements(SubPixelPlan plan, const uint8_t* imageA, ShiftAxis rangeX,
                                 ShiftAxis rangeY, double step) {
  constexpr double most = INT32_MAX;
  if ((rangeX.highest - rangeX.lowest) / step > most ||
      (rangeY.highest - rangeY.lowest) / step > most) {
    return {{0, 0}, 0};
  }
  int64_t columns = 0;
  int64_t rows = 0;
  forEachStep(rangeX, step, [&](double) { ++columns; });
  forEachStep(rangeY, step, [&](double) { ++rows; });
  int64_t samples = 0;
  int64_t candidates = 0;
  if (__builtin_mul_overflow(plan.x.count, plan.y.count, &samples) ||
      __builtin_mul_overflow(columns, rows, &candidates) || candidates > INT32_MAX) {
    return {{0, 0}, 0};
  }
  adoptTeamSize();
  const int64_t threads = omp_get_max_threads();
  const auto scratch = allocate<double>(2 * threads * plan.x.count);
  const auto taps = allocate<Tap>(threads * plan.x.count);
  const auto samplesOfA = allocate<uint8_t>(samples);
  const auto shifts = allocate<CorrelationVector>(candidates);
  const auto scores = allocate<int64_t>(candidates);
  if (!scratch || !taps || !samplesOfA || !shifts || !scores) return {{0, 0}, 0};

  RowSampler sampler(imageA, plan.width, plan.height, plan.x, 0, scratch.get(), taps.get());
  for (int64_t j = 0; j < plan.y.count; ++j) {
    uint8_t* row = samplesOfA.get() + j * plan.x.count;
    sampler.sampleRow(plan.y.at(j),
                      [&](int64_t i, int sample) { row[i] = static_cast<uint8_t>(sample); });
  }
  plan.samplesOfA = samplesOfA.get();

  CorrelationVector* next = shifts.get();
  forEachStep(rangeY, step, [&](double y) {
    forEachStep(rangeX, step, [&](double x) { *next++ = {x, y}; });
  });
  const CorrelationVector* const displacements = shifts.get();
  int64_t* const scored = scores.get();
  const auto score = [&](int32_t i, int thread) {
    const int64_t slice = thread * plan.x.count;
    scored[i] = scoreAt(plan, displacements[i], scratch.get() + 2 * slice, taps.get() + slice);
  };
  const auto count = static_cast<int32_t>(candidates);
  if (candidates == 1 || isTooSmallToShare(samples * std::min<int64_t>(candidates, 1 << 20))) {
    for (int32_t i = 0; i < count; ++i) score(i, 0);
  } else {
    parallelDynamic(count, 1, score);
  }
  const int64_t* best = std::max_element(scored, scored + candidates);
  return {displacements[best - scored], static_cast<double>(*best)};
}

}  // namespace

CorrelationVector correlationSub(const BrighteningSearch& search, const CorrelationVector* centre) {
  if (search.result == nullptr || search.imageA == nullptr || search.imageB == nullptr ||
      search.options == nullptr || centre == nullptr) {
    return {0, 0};
  }
  search.result->score = 0;
  const CorrelationOptions& options = *search.options;
  const int64_t width = options.width;
  const int64_t height = options.height;
  const double step = options.subStep;
  const double range = options.subRange;
  const ShiftAxis rangeX{centre->x - range, centre->x + range};
  const ShiftAxis rangeY{centre->y - range, centre->y + range};
  if (width < 1 || height < 1 || !isAddressable(search.imageA, width, height) ||
      !isAddressable(search.imageB, width, height) || !(step >= smallestStep) ||
      !std::isfinite(step) || !(range >= 0) || !std::isfinite(rangeX.highest - rangeX.lowest) ||
      !std::isfinite(rangeY.highest - rangeY.lowest)) {
    return {0, 0};
  }
  const double scale =
      options.subScale > 0 && std::isfinite(options.subScale) ? options.subScale : 1.0;
  // The row of B is that of A minus y.
  const auto rowsUp = static_cast<double>(height);
  const GridAxis x = gridAxis(options.blockLeft, options.blockRight, width, rangeX, scale, step);
  const GridAxis y = gridAxis(rowsUp - options.blockBottom, rowsUp - options.blockTop, height,
                              {-rangeY.highest, -rangeY.lowest}, scale, step);
  // Without a sample every score is 0, and the first displacement is taken.
  if (x.count == 0 || y.count == 0) return {rangeX.lowest, rangeY.lowest};

  const SubPixelPlan plan{search.imageB, width, height, x, y, nullptr};
  const ScoredVector best = searchDisplacements(plan, search.imageA, rangeX, rangeY, step);
  search.result->score = best.score;
  return best.vector;
}

}  // namespace kvl
