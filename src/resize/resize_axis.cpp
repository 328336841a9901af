#include "resize/resize_axis.h"

#include <emmintrin.h>

#include <algorithm>

#include "core/rounding.h"

namespace kvl {
namespace {

// Steps of an interpolating axis in 1/65536 of a sample.
constexpr double stepsPerSample = 65536;
constexpr int stepBits = 16;
constexpr double coverageUnits = 256;

// Outputs that lie beyond the image by `overhang` samples, as set-up counts them.
int32_t skippedOutputs(double overhang, double scale) {
  return overhang > 0 ? RoundToInt(overhang / scale, 0.0) : 0;
}

void addBorder(ResizeAxis& axis, bool border) {
  axis.lowest = axis.firstSample;
  axis.highest = axis.firstSample + axis.sampleCount - 1;
  if (!border || !interpolates(axis.scale)) return;
  axis.lowest = std::max(axis.lowest - 1, 0);
  axis.highest = std::min(axis.highest + 1, axis.imageSamples - 1);
}

// Where the edges of samples fall among the outputs of a shrinking axis.
class EdgePositions {
 public:
  explicit EdgePositions(const ResizeAxis& axis)
      : start_(axis.start),
        ratio_(axis.outputs / (axis.end - axis.start)),
        firstSample_(axis.firstSample),
        endSample_(firstSample_ + axis.sampleCount),
        firstOutput_(axis.firstOutput),
        endOutput_(firstOutput_ + axis.outputCount) {
    // The part of the first and the last output that lies over the image.
    coveredFrom_ = firstOutput_;
    coveredTo_ = endOutput_;
    if (axis.start < 0) coveredFrom_ = std::max(coveredFrom_, at(0));
    if (axis.end > axis.imageSamples) coveredTo_ = std::min(coveredTo_, at(axis.imageSamples));

    // How much of the first and of the last sample lies in the rectangle.
    const double before = axis.start - axis.firstSample;
    const double after = endSample_ - axis.end;
    firstInner_ = before > 0 ? coverage(before) * ratio_ : at(firstSample_ + 1);
    lastInner_ = after > 0 ? axis.outputs - coverage(after) * ratio_ : at(endSample_ - 1);
  }

  double operator()(double sample) const {
    if (sample == firstSample_) return firstOutput_;
    if (sample == endSample_) return endOutput_;
    double x = at(sample);
    const bool first = sample == firstSample_ + 1;
    const bool last = sample == endSample_ - 1;
    if (first || last) {
      x = first && last ? (firstInner_ + lastInner_) / 2 : first ? firstInner_ : lastInner_;
    }
    return std::clamp(stretched(x), firstOutput_, endOutput_);
  }

 private:
  double at(double sample) const { return (sample - start_) * ratio_; }

  static double coverage(double missing) {
    return RoundToInt((1 - missing) * coverageUnits, 0.5) / coverageUnits;
  }

  // An output that the image covers in part is the average of that part.
  double stretched(double x) const {
    const double from = x < firstOutput_ + 1 ? coveredFrom_ : -1;
    const double to = x > endOutput_ - 1 ? coveredTo_ : -1;
    if (from < 0 && to < 0) return x;
    const double left = from < 0 ? endOutput_ - 1 : firstOutput_;
    const double right = to < 0 ? firstOutput_ + 1 : endOutput_;
    const double low = from < 0 ? left : from;
    const double high = to < 0 ? right : to;
    return left + (x - low) / (high - low) * (right - left);
  }

  double start_;
  double ratio_;
  double firstSample_;
  double endSample_;
  double firstOutput_;
  double endOutput_;
  double coveredFrom_;
  double coveredTo_;
  double firstInner_;
  double lastInner_;
};

Taps interpolatingTaps(const ResizeAxis& axis, int64_t output) {
  const auto index = static_cast<double>(axis.firstOutput + output);
  const double centre = axis.start + (index + 0.5) * axis.scale - 0.5;
  const double inside =
      std::clamp(centre, static_cast<double>(axis.lowest), static_cast<double>(axis.highest));
  // Halves to even, here and in the share, so that mirrored positions stay mirrored.
  const int64_t position = _mm_cvtsd_si64(_mm_set_sd(inside * stepsPerSample));
  const auto fraction = static_cast<int32_t>(position & 0xFFFF);
  const int32_t share = (fraction + 1 + ((fraction >> 2) & 1)) >> 2;
  const auto sample = static_cast<int32_t>(position >> stepBits);
  if (share == 0) return {sample, 1, 0, nullptr};
  if (share == wholeShare) return {sample + 1, 1, 0, nullptr};
  return {sample, 2, share, nullptr};
}

// By how many outputs an edge lies beyond the left side of `output`, rounded down. Of the edge's
// output the low ten bits are known, and it is never as far as 512 outputs away.
int32_t outputsBeyond(SampleEdge edge, int64_t output) {
  const auto left = static_cast<uint32_t>(output) << weightBits;
  return static_cast<int32_t>(edge.position - left) >> weightBits;
}

// The first edge that lies on or beyond the left side of `output`.
int64_t firstEdgeFrom(const ResizeAxis& axis, const SampleEdge* edges, int64_t output) {
  const double estimate = axis.start + static_cast<double>(output) * axis.scale - axis.firstSample;
  auto edge =
      static_cast<int64_t>(std::clamp(estimate, 0.0, static_cast<double>(axis.sampleCount)));
  while (edge > 0 && outputsBeyond(edges[edge - 1], output) >= 0) --edge;
  while (outputsBeyond(edges[edge], output) < 0) ++edge;
  return edge;
}

// `edge` is the first one on or beyond the left side of the output, and becomes that of the next.
Taps averagingTaps(const ResizeAxis& axis, const SampleEdge* edges, int64_t output, int64_t& edge) {
  // Unless a sample begins with the output, the one before reaches into it.
  const bool begins = edges[edge].position == static_cast<uint32_t>(output) << weightBits;
  int64_t first = begins ? edge : edge - 1;
  while (outputsBeyond(edges[edge], output) < 1) ++edge;
  int64_t last = edge - 1;
  // Samples whose share rounds to nothing are left out.
  while (first < last && shareAfter(edges[first + 1]) == wholeShare) ++first;
  while (first < last && shareAfter(edges[last]) == 0) --last;
  const auto count = static_cast<int32_t>(last - first + 1);
  return {axis.firstSample + static_cast<int32_t>(first), count,
          count == 2 ? shareAfter(edges[last]) : 0, edges + first};
}

}  // namespace

ResizeAxis horizontalAxis(const ResizeSetup& setup) {
  ResizeAxis axis = {};
  axis.start = setup.srcLeft;
  axis.end = setup.srcRight;
  axis.scale = setup.scaleX;
  axis.outputs = setup.dstClip.right - setup.dstClip.left;
  axis.firstOutput = setup.dstFirstColumn - setup.dstClip.left;
  axis.outputCount = axis.outputs - axis.firstOutput -
                     skippedOutputs(setup.srcRight - setup.srcWidth, setup.scaleX);
  axis.firstSample = setup.srcFirstColumn;
  axis.sampleCount = setup.srcColumnCount;
  axis.imageSamples = setup.srcWidth;
  addBorder(axis, setup.borderBuffers != 0);
  return axis;
}

ResizeAxis verticalAxis(const ResizeSetup& setup) {
  const auto srcHeight = static_cast<int32_t>(setup.srcHeight);
  const auto dstHeight = static_cast<int32_t>(setup.dstHeight);
  ResizeAxis axis = {};
  axis.start = srcHeight - setup.srcBottom;
  axis.end = srcHeight - setup.srcTop;
  axis.scale = setup.scaleY;
  axis.outputs = setup.dstClip.bottom - setup.dstClip.top;
  axis.firstOutput = setup.dstBottomSkip - (dstHeight - setup.dstClip.bottom);
  axis.outputCount = setup.dstRowCount;
  axis.firstSample = setup.srcBottomSkip;
  axis.sampleCount = setup.srcRowCount;
  axis.imageSamples = srcHeight;
  addBorder(axis, setup.borderBuffers != 0);
  return axis;
}

bool halves(const ResizeAxis& axis) {
  return axis.start >= 0 && axis.start == axis.firstSample && axis.end <= axis.imageSamples &&
         axis.end == axis.start + 2.0 * axis.outputs && axis.outputCount == axis.outputs &&
         axis.sampleCount == 2 * int64_t{axis.outputs};
}

void findEdges(const ResizeAxis& axis, SampleEdge* edges) {
  const EdgePositions positions(axis);
  for (int32_t i = 0; i <= axis.sampleCount; ++i) {
    const double x = positions(static_cast<double>(axis.firstSample) + i);
    edges[i].position = static_cast<uint32_t>(static_cast<int64_t>(x * wholeWeight + 0.5));
  }
}

void findTaps(const ResizeAxis& axis, const SampleEdge* edges, int64_t first, int64_t end,
              Taps* taps) {
  if (interpolates(axis.scale)) {
    for (int64_t o = first; o < end; ++o) *taps++ = interpolatingTaps(axis, o);
    return;
  }
  int64_t edge = firstEdgeFrom(axis, edges, axis.firstOutput + first);
  for (int64_t o = first; o < end; ++o) {
    *taps++ = averagingTaps(axis, edges, axis.firstOutput + o, edge);
  }
}

}  // namespace kvl
