#include "correlation/match_score.h"

#include <algorithm>
#include <atomic>

#include "core/parallel.h"

namespace kvl {
namespace {

// Rows of a block that a thread claims at once.
constexpr int64_t rowsPerClaim = 64;

// The pixels that count at a shift. In field mode the first row moves on by one where it is of the
// other field, and so does the end, which may then lie one past either image: that row is skipped.
PixelRows rowsOf(const MatchPlan& plan, const Area& overlap, Shift shift) {
  if (overlap.empty()) return {};
  int64_t first = overlap.firstRow;
  int64_t end = overlap.endRow;
  int64_t step = 1;
  if (plan.oneField) {
    step = 2;
    const bool odd = (plan.block.height - first - 1) % 2 != 0;
    if (odd == plan.fieldParity) {
      ++first;
      end = std::min({end + 1, plan.block.height, plan.block.height + shift.y});
    }
  }
  const int64_t rowOfB = first - shift.y;
  const int64_t columnOfB = overlap.left + shift.x;
  return {plan.imageA + plan.strideA * first + overlap.left,
          plan.strideA * step,
          plan.imageB + plan.strideB * rowOfB + columnOfB,
          plan.strideB * step,
          plan.mask == nullptr ? nullptr : plan.mask + plan.block.width * rowOfB + columnOfB,
          plan.block.width * step,
          overlap.columns(),
          std::max<int64_t>((end - first + step - 1) / step, 0)};
}

PixelRows part(const PixelRows& rows, ptrdiff_t first, ptrdiff_t count) {
  PixelRows result = rows;
  result.a += first * rows.strideA;
  result.b += first * rows.strideB;
  if (rows.mask != nullptr) result.mask += first * rows.strideMask;
  result.rows = count;
  return result;
}

int64_t scoreSharingRows(const MatchPlan& plan, Shift shift) {
  const Area overlap = plan.block.overlap(shift);
  const PixelRows rows = rowsOf(plan, overlap, shift);
  std::atomic<uint64_t> sum = 0;
  const auto claims = static_cast<int32_t>((rows.rows + rowsPerClaim - 1) / rowsPerClaim);
  parallelDynamic(claims, 1, [&](int32_t claim, int) {
    const int64_t first = claim * rowsPerClaim;
    sum += plan.measure(part(rows, first, std::min(rowsPerClaim, rows.rows - first)));
  });
  return correctedScore(plan, overlap, sum);
}

// Products wrap, which takes blocks far larger than their images.
int64_t scaled64(int64_t total, int64_t whole, int64_t part) {
  return static_cast<int64_t>(static_cast<uint64_t>(total) * static_cast<uint64_t>(whole)) / part;
}

int32_t scaled32(int32_t total, int64_t whole, int64_t part) {
  return static_cast<int32_t>(static_cast<uint32_t>(total) * static_cast<uint32_t>(whole)) /
         static_cast<int32_t>(part);
}

}  // namespace

int64_t correctedScore(const MatchPlan& plan, const Area& overlap, uint64_t sum) {
  if (overlap.columns() <= 0) return 0;
  const bool cutColumns = overlap.columns() < plan.block.area.columns();
  const bool cutRows = overlap.rows() >= 1 && overlap.rows() < plan.block.area.rows();
  if (plan.scoreWidth == ScoreWidth::bits64) {
    auto total = static_cast<int64_t>(-sum);
    if (cutColumns) total = scaled64(total, plan.block.area.columns(), overlap.columns());
    if (cutRows) total = scaled64(total, plan.block.area.rows(), overlap.rows());
    return total;
  }
  auto total = static_cast<int32_t>(static_cast<uint32_t>(-sum));
  if (cutColumns) total = scaled32(total, plan.block.area.columns(), overlap.columns());
  if (cutRows) total = scaled32(total, plan.block.area.rows(), overlap.rows());
  return total;
}

int64_t matchScore(const MatchPlan& plan, Shift shift) {
  const Area overlap = plan.block.overlap(shift);
  if (overlap.empty()) return 0;
  return correctedScore(plan, overlap, plan.measure(rowsOf(plan, overlap, shift)));
}

bool isTooSmallToShare(int64_t pixels) {
  return pixels < 1 << 15;
}

bool sharesCandidates(const MatchPlan& plan) {
  const Area area = plan.block.insideImage();
  return area.rows() <= rowsPerClaim || isTooSmallToShare(area.rows() * area.columns());
}

void matchScores(const MatchPlan& plan, const Shift* shifts, int32_t count, int64_t* scores) {
  if (!sharesCandidates(plan)) {
    for (int32_t i = 0; i < count; ++i) scores[i] = scoreSharingRows(plan, shifts[i]);
    return;
  }
  const Area area = plan.block.insideImage();
  constexpr int64_t enough = int64_t{1} << 32;
  if (area.empty() || isTooSmallToShare(std::min(area.rows() * area.columns(), enough) * count)) {
    for (int32_t i = 0; i < count; ++i) scores[i] = matchScore(plan, shifts[i]);
    return;
  }
  parallelDynamic(count, neighboursPerClaim(count),
                  [&](int32_t i, int) { scores[i] = matchScore(plan, shifts[i]); });
}

}  // namespace kvl
