#include "operations/exact_resize.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kvl::tool {
namespace {

struct Share {
  size_t sample;
  double share;
};
using Shares = std::vector<Share>;

Shares interpolated(double centre, double first, double last) {
  const double at = std::clamp(centre, first, last);
  const double whole = std::floor(at);
  const auto sample = static_cast<size_t>(whole);
  return {{sample, 1 - (at - whole)},
          {std::min(sample + 1, static_cast<size_t>(last)), at - whole}};
}

Shares averaged(double from, double to) {
  Shares shares;
  for (double at = from; at < to; at = std::floor(at) + 1) {
    const double end = std::min(to, std::floor(at) + 1);
    shares.push_back({static_cast<size_t>(at), (end - at) / (to - from)});
  }
  return shares;
}

std::vector<Shares> axis(double start, double end, int outputs, int samples) {
  const double scale = (end - start) / outputs;
  const double first = std::max(std::floor(start), 0.0);
  const double last = std::min(std::ceil(end), static_cast<double>(samples)) - 1;
  std::vector<Shares> all;
  for (int i = 0; i < outputs; ++i) {
    const double from = std::max(start + i * scale, 0.0);
    const double to = std::min(start + (i + 1) * scale, static_cast<double>(samples));
    all.push_back(scale <= 1 ? interpolated(start + (i + 0.5) * scale - 0.5, first, last)
                             : averaged(from, to));
  }
  return all;
}

}  // namespace

void ExactResize::compare(const Dib& frame, const Edges& source, const Dib& result,
                          const RECT& into) {
  const auto [width, height] = frame.size();
  const std::vector<Shares> columns =
      axis(source.left, source.right, into.right - into.left, width);
  const std::vector<Shares> rows = axis(source.top, source.bottom, into.bottom - into.top, height);
  std::vector<float> errors;
  errors.reserve(columns.size() * rows.size() * 3);
  std::vector<double> line(static_cast<size_t>(width) * 3);
  double sum = 0;
  for (size_t y = 0; y < rows.size(); ++y) {
    std::ranges::fill(line, 0);
    for (const Share& row : rows[y]) {
      const uint8_t* from = frame.rowFromTop(static_cast<int32_t>(row.sample));
      for (size_t x = 0; x < line.size(); ++x) line[x] += row.share * from[x];
    }
    const uint8_t* drawn = result.rowFromTop(into.top + static_cast<int32_t>(y)) + into.left * 3;
    for (const Shares& column : columns) {
      for (size_t k = 0; k < 3; ++k) {
        double exact = 0;
        for (const Share& s : column) exact += s.share * line[s.sample * 3 + k];
        const double error = *drawn++ - exact;
        sum += error;
        squares_ += error * error;
        largest_ = std::max(largest_, std::abs(error));
        errors.push_back(static_cast<float>(error));
      }
    }
  }
  samples_ += static_cast<double>(errors.size());
  const double mean = sum / static_cast<double>(errors.size());
  if (!errors_.empty()) {
    largestMeanJump_ = std::max(largestMeanJump_, std::abs(mean - mean_));
    for (size_t i = 0; i < errors.size(); ++i) {
      largestJump_ = std::max<double>(largestJump_, std::abs(errors[i] - errors_[i]));
    }
  }
  mean_ = mean;
  errors_ = std::move(errors);
}

double ExactResize::psnr() const {
  return 10 * std::log10(255.0 * 255.0 * samples_ / squares_);
}

}  // namespace kvl::tool
