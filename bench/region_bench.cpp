#include <omp.h>

#include "benches.h"
#include "core/parallel.h"
#include "support/bench_image.h"

namespace kvl::bench {

// What opening and closing a parallel region costs, whatever is done inside. Shown as megapixels a
// second like every row; the time column is the one to read.
void addRegion() {
  add(
      "region", "empty", "kvl", [](int threads) { omp_set_num_threads(threads); },
      [] { parallelBands(2, [](RowRange) {}); });
}

}  // namespace kvl::bench
