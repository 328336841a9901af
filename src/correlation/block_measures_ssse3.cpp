#include "correlation/block_measures_vector.h"

namespace kvl {

void addBlockMeasuresSsse3(BlockMeasures& measures) {
  measures = vectorMeasures();
}

}  // namespace kvl
