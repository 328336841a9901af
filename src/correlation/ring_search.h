// One step of the iterative searches: the square of candidates around a centre.
#pragma once

#include <cstdint>

#include "correlation/candidates.h"
#include "correlation/score_table.h"

namespace kvl {

// A ring this far out holds every shift at which image B covers anything of A, from any centre at
// which it does: farther rings would find and store nothing. Images without pixels need none.
inline int64_t farthestRing(const Block& block) {
  return block.width < 1 || block.height < 1 ? 0 : 2 * (block.width + block.height);
}

// Scores and stores every candidate of the ring whose entry is 0, then gives the best: the centre,
// unless a candidate is better, and of equal ones the first in the order asked for. Candidates that
// the table has no entry for are scored without being stored.
template <class Entry>
BestMatch searchRing(const MatchPlan& plan, const ScoreTable<Entry>& table, Shift centre,
                     int64_t ring, bool columnsFirst) {
  const int64_t side = 2 * ring + 1;
  const CandidateGrid grid{{centre.x - ring, centre.y - ring}, side, side, columnsFirst};
  scoreCandidates(
      plan, grid,
      [&](Shift shift) {
        const Entry* entry = table.at(shift);
        return entry != nullptr && *entry == 0;
      },
      // Two shifts of a ring wider than the table may share an entry: it keeps its first score.
      [&](const BestMatch& scored) {
        Entry* entry = table.at(scored.shift);
        if (*entry == 0) *entry = static_cast<Entry>(scored.score);
      });

  constexpr int64_t beforeAll = -1;
  const Entry* entry = table.at(centre);
  BestMatch best{centre, entry != nullptr ? scoreOfEntry(*entry) : matchScore(plan, centre),
                 beforeAll};
  scoreCandidates(
      plan, grid, [&](Shift shift) { return table.at(shift) == nullptr; },
      [&](const BestMatch& scored) { best.consider(scored); });
  for (int64_t i = 0; i < grid.count(); ++i) {
    const Shift shift = grid.at(i);
    if (const Entry* known = table.at(shift)) best.consider({shift, scoreOfEntry(*known), i});
  }
  return best;
}

}  // namespace kvl
