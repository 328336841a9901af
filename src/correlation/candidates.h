// Walks through the candidates of a search, scoring many at a time.
#pragma once

#include <cstdint>

#include "correlation/match_score.h"

namespace kvl {

// The shifts of a rectangle in the order of a search: row by row or column by column.
struct CandidateGrid {
  Shift first;
  int64_t columns;
  int64_t rows;
  bool columnsFirst = false;

  int64_t count() const { return columns * rows; }
  Shift at(int64_t index) const {
    return columnsFirst ? Shift{first.x + index / rows, first.y + index % rows}
                        : Shift{first.x + index % columns, first.y + index / columns};
  }
};

// The best candidate so far: of equal scores the one that comes first in the search's order.
struct BestMatch {
  Shift shift;
  int64_t score;
  int64_t index;

  void consider(const BestMatch& other) {
    if (other.score > score || (other.score == score && other.index < index)) *this = other;
  }
};

// Candidates on the stack that wait to be scored together.
class CandidateBatch {
 public:
  bool full() const { return count_ == capacity; }

  void add(int64_t index, Shift shift) {
    indices_[count_] = index;
    shifts_[count_++] = shift;
  }

  // visit({shift, score, index}) for each one in the order in which it was added; empties the batch.
  template <class Visit>
  void scoreAndVisit(const MatchPlan& plan, const Visit& visit) {
    matchScores(plan, shifts_, count_, scores_);
    for (int32_t i = 0; i < count_; ++i) visit(BestMatch{shifts_[i], scores_[i], indices_[i]});
    count_ = 0;
  }

 private:
  static constexpr int32_t capacity = 1024;

  int32_t count_ = 0;
  int64_t indices_[capacity];
  Shift shifts_[capacity];
  int64_t scores_[capacity];
};

// visit({shift, score, index}) for those of the grid's shifts that `wanted` accepts, in its order.
template <class Wanted, class Visit>
void scoreCandidates(const MatchPlan& plan, const CandidateGrid& grid, const Wanted& wanted,
                     const Visit& visit) {
  CandidateBatch batch;
  for (int64_t i = 0; i < grid.count(); ++i) {
    const Shift shift = grid.at(i);
    if (!wanted(shift)) continue;
    if (batch.full()) batch.scoreAndVisit(plan, visit);
    batch.add(i, shift);
  }
  batch.scoreAndVisit(plan, visit);
}

}  // namespace kvl
