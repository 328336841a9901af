#include "correlation/brightening_search.h"

#include <algorithm>
#include <cstdlib>

#include "core/bitmap.h"
#include "correlation/candidates.h"
#include "correlation/ring_search.h"

namespace kvl {
namespace {

constexpr uint32_t oneFieldMode = 3;
constexpr uint32_t noBlock = 0xFFFFFFFF;

bool hasPointers(const BrighteningSearch& search, const uint32_t* scoreTable) {
  return search.result != nullptr && search.imageA != nullptr && search.imageB != nullptr &&
         search.options != nullptr && scoreTable != nullptr;
}

bool isAddressable(const BrighteningSearch& search, const uint32_t* scoreTable) {
  const int64_t width = std::max(search.options->width, 0);
  const int64_t height = std::max(search.options->height, 0);
  return kvl::isAddressable(search.imageA, width, height) &&
         kvl::isAddressable(search.imageB, width, height) &&
         kvl::isAddressable(scoreTable, width * int64_t{sizeof(uint32_t)}, height);
}

MatchPlan planOf(const BrighteningSearch& search) {
  const CorrelationOptions& options = *search.options;
  return {Block::fromRect(options.width, options.height, options.blockLeft, options.blockTop,
                          options.blockRight, options.blockBottom),
          search.imageA,
          options.width,
          search.imageB,
          options.width,
          nullptr,
          blockMeasures(instructionSet()).brightening,
          ScoreWidth::bits32,
          options.fieldRepairMode == oneFieldMode && options.fieldRepair != 0,
          options.fieldParity != 0};
}

ScoreTable<uint32_t> tableOf(const BrighteningSearch& search, uint32_t* entries) {
  return {entries, search.options->width, search.options->height};
}

CorrelationVector toVector(Shift shift) {
  return {static_cast<double>(shift.x), static_cast<double>(shift.y)};
}

}  // namespace

CorrelationVector correlationNorm(const BrighteningSearch& search, int32_t range,
                                  uint32_t* scoreTable) {
  if (!hasPointers(search, scoreTable)) return {0, 0};
  search.result->score = 0;
  if (range < 0 || !isAddressable(search, scoreTable)) return {0, 0};
  const MatchPlan plan = planOf(search);
  const ScoreTable<uint32_t> table = tableOf(search, scoreTable);
  const Shift first{-int64_t{range}, -int64_t{range}};
  BestMatch best{first, matchScore(plan, first), -1};
  const int64_t reach = std::min<int64_t>(range, farthestRing(plan.block));
  const CandidateGrid grid{{-reach, -reach}, 2 * reach + 1, 2 * reach + 1};
  scoreCandidates(
      plan, grid, [](Shift) { return true; },
      [&](const BestMatch& scored) {
        uint32_t* entry = table.at(scored.shift);
        if (entry != nullptr) *entry = static_cast<uint32_t>(scored.score);
        best.consider(scored);
      });
  search.result->score = static_cast<double>(best.score);
  return toVector(best.shift);
}

// Always ends, for the reason given at correlationIterativ.
CorrelationVector correlationIt(const BrighteningSearch& search, int32_t range, bool stopAtLimit,
                                uint32_t* scoreTable, uint32_t* firstLimitBlock) {
  if (!hasPointers(search, scoreTable)) return {0, 0};
  CorrelationBlockResult& result = *search.result;
  result.score = 0;
  if (!isAddressable(search, scoreTable)) return {0, 0};
  const MatchPlan plan = planOf(search);
  const ScoreTable<uint32_t> table = tableOf(search, scoreTable);
  const int64_t lastRing = std::min<int64_t>(range / 2, farthestRing(plan.block));
  const int64_t farthest = 2 * int64_t{range};

  Shift centre{0, 0};
  for (int64_t ring = 1; ring <= lastRing; ++ring) {
    if (stopAtLimit &&
        (std::abs(centre.x + ring) > farthest || std::abs(centre.y + ring) > farthest)) {
      result.limitHit = 1;
      if (firstLimitBlock != nullptr && *firstLimitBlock == noBlock) {
        *firstLimitBlock = result.blockId;
      }
      break;
    }
    const BestMatch best = searchRing(plan, table, centre, ring, true);
    if (best.shift == centre) {
      result.score = static_cast<double>(best.score);
    } else if (std::abs(best.shift.y) + range < plan.block.height / 2 - 1 &&
               std::abs(best.shift.x) + range < plan.block.width / 2 - 1) {
      centre = best.shift;
      ring = 0;
    }
  }
  return toVector(centre);
}

}  // namespace kvl
