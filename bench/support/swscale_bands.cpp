#include "support/swscale_bands.h"

#ifdef KVL_BENCH_SWSCALE

#include <map>
#include <memory>
#include <utility>

#include "support/bench_image.h"

namespace kvl::bench {
namespace {

// Bands of whole 8 rows: none parts what shares a chroma sample, or makes one row of a half.
int firstRow(int rows, int part, int parts) {
  return rows / 8 * part / parts * 8;
}

}  // namespace

void addSwscale(const std::string& job, const std::string& variant, const SwsJob& sws) {
  auto contexts = std::make_shared<std::map<std::pair<int, int>, SwsContext*>>();
  for (const int parts : {1, 2}) {
    for (int part = 0; part < parts; ++part) {
      const auto rows = [&](int all) {
        return firstRow(all, part + 1, parts) - firstRow(all, part, parts);
      };
      const int fromRows = rows(sws.fromHeight);
      (*contexts)[{part, parts}] = sws_getContext(sws.fromWidth, fromRows, sws.from, sws.toWidth,
                                                  fromRows * sws.toHeight / sws.fromHeight, sws.to,
                                                  sws.flags, nullptr, nullptr, nullptr);
    }
  }
  addPeer(job, variant, "swscale", [contexts, sws](int part, int parts) {
    const int first = firstRow(sws.fromHeight, part, parts);
    const int last = firstRow(sws.fromHeight, part + 1, parts);
    const SwsImage from = sws.source(first);
    const SwsImage to = sws.destination(first * sws.toHeight / sws.fromHeight);
    sws_scale(contexts->at({part, parts}), from.planes.data(), from.strides.data(), 0, last - first,
              to.planes.data(), to.strides.data());
  });
}

}  // namespace kvl::bench

#endif
