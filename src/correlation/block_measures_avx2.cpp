#include "correlation/block_measures_vector.h"

namespace kvl {

void addBlockMeasuresAvx2(BlockMeasures& measures) {
  measures = vectorMeasures();
}

}  // namespace kvl
