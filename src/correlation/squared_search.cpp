#include "correlation/squared_search.h"

#include <algorithm>
#include <cstdlib>

#include "core/bitmap.h"
#include "correlation/addressable_rows.h"
#include "correlation/candidates.h"
#include "correlation/product_search.h"
#include "correlation/ring_search.h"

namespace kvl {
namespace {

bool hasPointers(const SquaredSearch& search) {
  return search.bestScore != nullptr && search.imageA != nullptr && search.imageB != nullptr &&
         search.block != nullptr;
}

bool isAddressable(const SquaredSearch& search) {
  return areRowsAddressable(search.imageA, search.strideA, search.height) &&
         areRowsAddressable(search.imageB, search.strideB, search.height) &&
         (search.mask == nullptr ||
          areRowsAddressable(search.mask, std::max(search.width, 0), search.height));
}

MatchPlan planOf(const SquaredSearch& search) {
  const BlockMeasures measures = blockMeasures(instructionSet());
  const RECT& block = *search.block;
  return {Block::fromRect(search.width, search.height, block.left, block.top, block.right,
                          block.bottom),
          search.imageA,
          search.strideA,
          search.imageB,
          search.strideB,
          search.mask,
          search.mask == nullptr ? measures.squaredDifferences : measures.maskedSquaredDifferences,
          ScoreWidth::bits64,
          false,
          false};
}

CorrelationVector toVector(Shift shift) {
  return {static_cast<double>(shift.x), static_cast<double>(shift.y)};
}

}  // namespace

CorrelationVector correlationNormal(const SquaredSearch& search, int32_t range) {
  if (!hasPointers(search)) return {0, 0};
  *search.bestScore = 0;
  if (range < 0 || !isAddressable(search)) return {0, 0};
  const MatchPlan plan = planOf(search);

  // The first candidate is taken whatever its score. Of the others none can win that shifts image B
  // wholly off A: such a one scores 0, and so does the first where the range reaches that far.
  const Shift first{-int64_t{range}, -int64_t{range}};
  BestMatch best{first, matchScore(plan, first), -1};
  const bool isEmpty = search.width < 1 || search.height < 1;
  const int64_t reachX = std::min(range, isEmpty ? 0 : search.width);
  const int64_t reachY = std::min(range, isEmpty ? 0 : search.height);
  const CandidateGrid grid{{-reachX, -reachY}, 2 * reachX + 1, 2 * reachY + 1};
  if (!searchByProducts(plan, grid, best)) {
    scoreCandidates(
        plan, grid, [](Shift) { return true; },
        [&](const BestMatch& scored) { best.consider(scored); });
  }
  *search.bestScore = best.score;
  return toVector(best.shift);
}

// Always ends. A restart goes to a shift of the table's inner part whose score is strictly better.
// Scores only change where an entry goes from 0 to something else, once for each entry; between two
// such changes no shift can be the centre twice.
CorrelationVector correlationIterativ(const SquaredSearch& search, const POINT* start,
                                      int32_t maxSteps, int32_t limit, int64_t* scoreTable) {
  if (!hasPointers(search) || scoreTable == nullptr) return {0, 0};
  *search.bestScore = 0;
  Shift centre = start == nullptr ? Shift{0, 0} : Shift{start->x, start->y};
  const int64_t tableStride = int64_t{std::max(search.width, 0)} * int64_t{sizeof(int64_t)};
  if (!isAddressable(search) ||
      !kvl::isAddressable(scoreTable, tableStride, std::max(search.height, 0))) {
    return toVector(centre);
  }
  const MatchPlan plan = planOf(search);
  const ScoreTable<int64_t> table(scoreTable, search.width, search.height);
  const int64_t lastRing = std::min<int64_t>(maxSteps, farthestRing(plan.block));
  const int64_t farthest = 4 * int64_t{limit};

  for (int64_t ring = 1; ring <= lastRing; ++ring) {
    if (std::abs(centre.x) + ring > farthest || std::abs(centre.y) + ring > farthest) break;
    const BestMatch best = searchRing(plan, table, centre, ring, false);
    *search.bestScore = best.score;
    if (best.shift != centre && std::abs(best.shift.y) + maxSteps < search.height / 2 - 1 &&
        std::abs(best.shift.x) + maxSteps < search.width / 2 - 1) {
      centre = best.shift;
      ring = 0;
    }
  }
  return toVector(centre);
}

}  // namespace kvl
