#include "correlation/block_measures.h"

#include <algorithm>

namespace kvl {
namespace {

template <class Term>
uint64_t sumOverRows(const PixelRows& rows, Term term) {
  uint64_t sum = 0;
  for (ptrdiff_t y = 0; y < rows.rows; ++y) {
    const uint8_t* a = rows.a + y * rows.strideA;
    const uint8_t* b = rows.b + y * rows.strideB;
    for (ptrdiff_t x = 0; x < rows.pixels; ++x) sum += term(a[x], b[x], x, y);
  }
  return sum;
}

uint64_t squaredDifferences(const PixelRows& rows) {
  return sumOverRows(rows, [](int a, int b, ptrdiff_t, ptrdiff_t) {
    return static_cast<uint32_t>((b - a) * (b - a));
  });
}

uint64_t maskedSquaredDifferences(const PixelRows& rows) {
  return sumOverRows(rows, [&](int a, int b, ptrdiff_t x, ptrdiff_t y) {
    const int weight = 255 - rows.mask[y * rows.strideMask + x];
    return static_cast<uint32_t>(weight * (b - a) * (b - a));
  });
}

uint64_t brightening(const PixelRows& rows) {
  return sumOverRows(rows, [](int a, int b, ptrdiff_t, ptrdiff_t) {
    return static_cast<uint32_t>(std::max(0, b - a));
  });
}

}  // namespace

BlockMeasures blockMeasures(InstructionSet level) {
  BlockMeasures measures{squaredDifferences, maskedSquaredDifferences, brightening};
  if (level >= InstructionSet::ssse3) addBlockMeasuresSsse3(measures);
  if (level >= InstructionSet::avx2) addBlockMeasuresAvx2(measures);
  return measures;
}

}  // namespace kvl
