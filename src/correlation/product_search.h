#pragma once

#include "correlation/candidates.h"

namespace kvl {

// The exhaustive search by squared differences without a mask, by way of
//
//   sum of (b - a)^2 = sum of a^2 + sum of b^2 - 2 * sum of a * b
//
// where neighbouring candidates share the squares, and the loads of the products. Improves `best` by
// every candidate of the grid and returns true; false, with nothing done, where the direct sums are
// to be taken: at low instruction levels, for few candidates or large blocks, or without memory.
bool searchByProducts(const MatchPlan& plan, const CandidateGrid& grid, BestMatch& best);

}  // namespace kvl
