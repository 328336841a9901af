#pragma once

#include <algorithm>

#include "core/parallel.h"
#include "filters/line_pass.h"

namespace kvl {

// body(bundle) for every bundle of neighbouring lines of the pass, in one parallel region. Each
// bundle writes output columns of its own.
template <class Body>
void forEachBundle(const LinePass& pass, const Body& body) {
  if (pass.length <= 0 || pass.lines <= 0) return;
  const int64_t most = bundleBytes / pass.bytesPerPixel;
  const auto bundles = static_cast<int32_t>((pass.lines + most - 1) / most);
  parallelDynamic(bundles, neighboursPerClaim(bundles), [&](int32_t index, int) {
    const int64_t first = index * most;
    LinePass bundle = pass;
    bundle.in += first * pass.inStride;
    bundle.out += first * pass.bytesPerPixel;
    bundle.lines = std::min(most, pass.lines - first);
    body(bundle);
  });
}

}  // namespace kvl
