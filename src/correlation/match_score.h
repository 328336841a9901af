// How well a block of image A matches image B under a displacement.
#pragma once

#include <cstddef>
#include <cstdint>

#include "correlation/block.h"
#include "correlation/block_measures.h"

namespace kvl {

// In which arithmetic totals are kept and corrected for the area that was cut off.
enum class ScoreWidth { bits32, bits64 };

struct MatchPlan {
  Block block;
  const uint8_t* imageA;
  ptrdiff_t strideA;
  const uint8_t* imageB;
  ptrdiff_t strideB;
  // Packed rows over image B, or null.
  const uint8_t* mask;
  BlockMeasure measure;
  ScoreWidth scoreWidth;
  // Only every second row counts, from the first or the second of the overlap on by parity.
  bool oneField;
  bool fieldParity;
};

// The negated, corrected sum; 0 where the block lies off image B. On the calling thread.
int64_t matchScore(const MatchPlan& plan, Shift shift);

// scores[i] = matchScore(plan, shifts[i]), shared out over the team: candidate by candidate, or for
// a large block of more rows than a thread claims at once its rows, one candidate after the other.
void matchScores(const MatchPlan& plan, const Shift* shifts, int32_t count, int64_t* scores);

// Whether matchScores shares out candidates and not rows.
bool sharesCandidates(const MatchPlan& plan);

// Whether so few pixels cost less than waking the team.
bool isTooSmallToShare(int64_t pixels);

// `sum` negated, and scaled up where `overlap` is smaller than the block.
int64_t correctedScore(const MatchPlan& plan, const Area& overlap, uint64_t sum);

}  // namespace kvl
