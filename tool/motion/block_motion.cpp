#include "motion/block_motion.h"

#include <algorithm>
#include <cmath>

#include "error.h"
#include "kvl/kvl.h"

namespace kvl::tool {
namespace {

// Of a block's samples; below it there is nothing to recognise.
constexpr double kLeastVariance = 16;
// How far a block may differ from the median to agree with it.
constexpr double kNear = 1;

double varianceOf(const GreyImage& grey, const BlockMotion& at, int block) {
  double sum = 0;
  double squares = 0;
  for (int32_t y = at.y; y < at.y + block; ++y) {
    const uint8_t* row = grey.samples.data() + static_cast<size_t>(grey.size.height - 1 - y) *
                                                   static_cast<size_t>(grey.size.width);
    for (int32_t x = at.x; x < at.x + block; ++x) {
      sum += row[x];
      squares += row[x] * row[x];
    }
  }
  const double count = double{1} * block * block;
  return squares / count - sum / count * (sum / count);
}

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

}  // namespace

void toGreyImage(const Dib& picture, GreyImage& grey) {
  grey.size = picture.size();
  grey.samples.resize(static_cast<size_t>(grey.size.width) * static_cast<size_t>(grey.size.height));
  KVL_ConvertFrameToGray(picture.bits.data(), static_cast<int32_t>(picture.stride()),
                         grey.samples.data(), grey.size.width, grey.size.width, grey.size.height);
}

MotionSearch::MotionSearch(int block, int range, SearchKind kind)
    : block_(block), range_(range), kind_(kind) {}

const std::vector<BlockMotion>& MotionSearch::find(const GreyImage& from, const GreyImage& to) {
  const auto [width, height] = from.size;
  found_.clear();
  for (int32_t top = range_; top + block_ + range_ <= height; top += block_) {
    for (int32_t left = range_; left + block_ + range_ <= width; left += block_) {
      found_.push_back(findBlock(from, to, {left, top, left + block_, top + block_}));
    }
  }
  if (found_.empty()) {
    throw Error(std::to_string(width) + "x" + std::to_string(height),
                "the picture is too small for a block with its range, " +
                    std::to_string(block_ + 2 * range_) + " pixels a side");
  }
  return found_;
}

BlockMotion MotionSearch::findBlock(const GreyImage& from, const GreyImage& to, const RECT& block) {
  if (kind_ == SearchKind::ring) return searchRings(from, to, block);
  int64_t score = 0;
  const CorrelationVector vector = KVL_CalcCorrelationNormal(
      &score, from.samples.data(), from.size.width, to.samples.data(), to.size.width, nullptr,
      from.size.width, from.size.height, &block, range_);
  BlockMotion motion{block.left, block.top, {vector.x, vector.y}, static_cast<double>(score)};
  if (kind_ == SearchKind::subPixel) refine(from, to, block, motion);
  return motion;
}

// The table has an entry for every displacement of the picture, of which a search touches those
// within its reach.
BlockMotion MotionSearch::searchRings(const GreyImage& from, const GreyImage& to,
                                      const RECT& block) {
  const auto [width, height] = from.size;
  const int limit = std::max(range_ / 4, 1);
  const int reach = 4 * limit;
  const auto entry = [&](int x, int y) -> int64_t& {
    return scores_[static_cast<size_t>(y + height / 2) * static_cast<size_t>(width) +
                   static_cast<size_t>(x + width / 2)];
  };
  scores_.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
  const int rows = std::min(reach, (height - 1) / 2);
  const int columns = std::min(reach, (width - 1) / 2);
  for (int y = -rows; y <= rows; ++y) std::fill_n(&entry(-columns, y), 2 * columns + 1, 0);

  int64_t lastScore = 0;
  const CorrelationVector vector = KVL_CalcCorrelationIterativ(
      &lastScore, from.samples.data(), width, to.samples.data(), width, nullptr, width, height,
      &block, nullptr, std::max(limit, 2), limit, scores_.data());
  const int64_t score = entry(static_cast<int>(vector.x), static_cast<int>(vector.y));
  return {block.left, block.top, {vector.x, vector.y}, static_cast<double>(score)};
}

void MotionSearch::refine(const GreyImage& from, const GreyImage& to, const RECT& block,
                          BlockMotion& motion) {
  CorrelationOptions options = {};
  options.width = from.size.width;
  options.height = from.size.height;
  options.blockLeft = block.left;
  options.blockTop = block.top;
  options.blockRight = block.right;
  options.blockBottom = block.bottom;
  options.subStep = 0.25F;
  options.subScale = 1;
  options.subRange = 0.75F;
  CorrelationBlockResult result = {};
  const CorrelationVector centre{motion.moved.x, motion.moved.y};
  const CorrelationVector vector =
      KVL_CalcCorrelationSub(&result, from.samples.data(), to.samples.data(), &centre, &options);
  motion.moved = {vector.x, vector.y};
  motion.score = result.score;
}

CommonMotion commonMotion(const std::vector<BlockMotion>& blocks, const GreyImage& from,
                          int block) {
  std::vector<double> x;
  std::vector<double> y;
  for (const BlockMotion& motion : blocks) {
    if (varianceOf(from, motion, block) < kLeastVariance) continue;
    x.push_back(motion.moved.x);
    y.push_back(motion.moved.y);
  }
  if (x.empty()) return {};
  const Displacement median{medianOf(x), medianOf(y)};
  CommonMotion common;
  for (size_t i = 0; i < x.size(); ++i) {
    if (std::abs(x[i] - median.x) > kNear || std::abs(y[i] - median.y) > kNear) continue;
    common.moved.x += x[i];
    common.moved.y += y[i];
    ++common.agreeing;
  }
  // Each median is a displacement of some block, but the two need not be of one.
  if (common.agreeing == 0) return {median, 0};
  common.moved.x /= static_cast<double>(common.agreeing);
  common.moved.y /= static_cast<double>(common.agreeing);
  return common;
}

}  // namespace kvl::tool
