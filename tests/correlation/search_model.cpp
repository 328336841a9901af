#include "correlation/search_model.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace kvl::test {
namespace {

// Total times whole over part, wrapping as the integers of the family do.
template <class Integer, class Unsigned>
Integer correct(Integer total, int64_t whole, int64_t part) {
  if (part >= whole || part < 1) return total;
  const auto product =
      static_cast<Integer>(static_cast<Unsigned>(total) * static_cast<Unsigned>(whole));
  return product / static_cast<Integer>(part);
}

// Calls term(a, b, mask) for every pixel that counts; gives the numbers of columns and rows that
// both images have.
struct Cut {
  int64_t columns = 0;
  int64_t rows = 0;
};

Cut forEachPixel(const Scene& s, ModelOptions options, int64_t x, int64_t y,
                 const std::function<void(int, int, int)>& term) {
  const int64_t dx = x, dy = -y, w = s.width(), h = s.height();
  const int64_t firstOfBlock = h - s.block.bottom, endOfBlock = h - s.block.top;
  const auto inBoth = [](int64_t at, int64_t shift, int64_t size) {
    return at >= 0 && at < size && at + shift >= 0 && at + shift < size;
  };
  std::vector<int64_t> columns, rows;
  for (int64_t c = 0; c < w; ++c) {
    if (c >= s.block.left && c < s.block.right && inBoth(c, dx, w)) columns.push_back(c);
  }
  for (int64_t r = 0; r < h; ++r) {
    if (r >= firstOfBlock && r < endOfBlock && inBoth(r, dy, h)) rows.push_back(r);
  }
  const Cut cut{static_cast<int64_t>(columns.size()), static_cast<int64_t>(rows.size())};
  if (columns.empty() || rows.empty()) return {};
  if (options.field) {
    const bool odd = (h - rows.front() - 1) % 2 == 1;
    const int64_t raise = odd == options.parity ? 1 : 0;
    const int64_t from = rows.front() + raise, to = rows.back() + raise;
    rows.clear();
    for (int64_t r = from; r <= to; r += 2) {
      if (inBoth(r, dy, h)) rows.push_back(r);
    }
  }
  for (const int64_t r : rows) {
    for (const int64_t c : columns) {
      const auto rowB = static_cast<int32_t>(r + dy);
      term(s.a.row(static_cast<int32_t>(r))[c], s.b.row(rowB)[c + dx],
           options.masked ? s.mask.row(rowB)[c + dx] : 254);
    }
  }
  return cut;
}

int64_t indexOf(const Scene& s, int64_t x, int64_t y) {
  return (y + s.height() / 2) * s.width() + (x + s.width() / 2);
}

using Score = std::function<int64_t(int64_t x, int64_t y)>;

struct Ring {
  POINT best;
  int64_t score;
};

// The ring step; `signedEntry` is what an entry means as a score.
Ring ringStep(const Scene& s, std::vector<int64_t>& table, const Score& score, POINT v, int ring,
              bool columnByColumn) {
  const auto entry = [&](int64_t x, int64_t y) -> int64_t* {
    const int64_t index = indexOf(s, x, y);
    return index >= 0 && index < static_cast<int64_t>(table.size())
               ? &table[static_cast<size_t>(index)]
               : nullptr;
  };
  std::vector<POINT> candidates;
  for (int outer = -ring; outer <= ring; ++outer) {
    for (int inner = -ring; inner <= ring; ++inner) {
      candidates.push_back(columnByColumn ? POINT{v.x + outer, v.y + inner}
                                          : POINT{v.x + inner, v.y + outer});
    }
  }
  for (const POINT& c : candidates) {
    int64_t* e = entry(c.x, c.y);
    if (e != nullptr && *e == 0) *e = score(c.x, c.y);
  }
  const auto value = [&](const POINT& c) {
    const int64_t* e = entry(c.x, c.y);
    return e != nullptr ? *e : score(c.x, c.y);
  };
  Ring result{v, value(v)};
  for (const POINT& c : candidates) {
    const int64_t of = value(c);
    if (of > result.score) result = {c, of};
  }
  return result;
}

bool isFarFromEdge(const Scene& s, const POINT& best, int steps) {
  return std::abs(best.y) + steps < s.height() / 2 - 1 &&
         std::abs(best.x) + steps < s.width() / 2 - 1;
}

POINT searchSquared(const Scene& s, const Score& score, POINT v, int maxSteps, int limit,
                    Outcome& outcome) {
  for (int ring = 1; ring <= maxSteps; ++ring) {
    if (std::abs(v.x) + ring > 4 * limit || std::abs(v.y) + ring > 4 * limit) return v;
    const Ring step = ringStep(s, outcome.table, score, v, ring, false);
    outcome.score = static_cast<double>(step.score);
    const bool moved = step.best.x != v.x || step.best.y != v.y;
    if (moved && isFarFromEdge(s, step.best, maxSteps)) {
      return searchSquared(s, score, step.best, maxSteps, limit, outcome);
    }
  }
  return v;
}

POINT searchBrightening(const Scene& s, const Score& score, POINT v, int range, bool stopAtLimit,
                        uint32_t blockId, Outcome& outcome) {
  for (int ring = 1; ring <= range / 2; ++ring) {
    if (stopAtLimit && (std::abs(v.x + ring) > 2 * range || std::abs(v.y + ring) > 2 * range)) {
      outcome.limitHit = 1;
      if (outcome.firstLimitBlock == 0xFFFFFFFF) outcome.firstLimitBlock = blockId;
      return v;
    }
    const Ring step = ringStep(s, outcome.table, score, v, ring, true);
    const bool moved = step.best.x != v.x || step.best.y != v.y;
    if (!moved) outcome.score = static_cast<double>(step.score);
    if (moved && isFarFromEdge(s, step.best, range)) {
      return searchBrightening(s, score, step.best, range, stopAtLimit, blockId, outcome);
    }
  }
  return v;
}

void searchSquare(const Score& score, int range, Outcome& outcome,
                  const std::function<void(int, int, int64_t)>& store) {
  bool first = true;
  for (int y = -range; y <= range; ++y) {
    for (int x = -range; x <= range; ++x) {
      const int64_t of = score(x, y);
      store(x, y, of);
      if (first || static_cast<double>(of) > outcome.score) {
        outcome.x = x;
        outcome.y = y;
        outcome.score = static_cast<double>(of);
      }
      first = false;
    }
  }
}

}  // namespace

Scene::Scene(int32_t width, int32_t height, size_t padding, GuardAt guard, uint64_t seed)
    : a(width, height, 8, guard, static_cast<size_t>(width) + padding),
      b(width, height, 8, guard, static_cast<size_t>(width) + 2 * padding),
      mask(width, height, 8, guard, static_cast<size_t>(width)) {
  a.fillRandom(seed);
  b.fillRandom(seed + 1);
  mask.fillRandom(seed + 2);
}

CorrelationOptions Scene::options() const {
  CorrelationOptions options = {};
  options.width = width();
  options.height = height();
  options.blockLeft = block.left;
  options.blockTop = block.top;
  options.blockRight = block.right;
  options.blockBottom = block.bottom;
  return options;
}

RECT randomBlock(Random& random, int32_t width, int32_t height) {
  RECT block;
  block.left = random.range(-3, width);
  block.top = random.range(-3, height);
  block.right = random.range(block.left - 1, width + 4);
  block.bottom = random.range(block.top - 1, height + 4);
  return block;
}

int64_t modelSquaredScore(const Scene& scene, ModelOptions options, int64_t x, int64_t y) {
  int64_t total = 0;
  const Cut cut = forEachPixel(scene, options, x, y, [&](int a, int b, int mask) {
    total -= int64_t{255 - mask} * (b - a) * (b - a);
  });
  if (cut.columns == 0) return 0;
  total =
      correct<int64_t, uint64_t>(total, int64_t{scene.block.right} - scene.block.left, cut.columns);
  return correct<int64_t, uint64_t>(total, int64_t{scene.block.bottom} - scene.block.top, cut.rows);
}

int32_t modelBrighteningScore(const Scene& scene, ModelOptions options, int64_t x, int64_t y) {
  uint32_t sum = 0;
  const Cut cut = forEachPixel(scene, options, x, y, [&](int a, int b, int) {
    if (b > a) sum += static_cast<uint32_t>(b - a);
  });
  if (cut.columns == 0) return 0;
  auto total = static_cast<int32_t>(0 - sum);
  total =
      correct<int32_t, uint32_t>(total, int64_t{scene.block.right} - scene.block.left, cut.columns);
  return correct<int32_t, uint32_t>(total, int64_t{scene.block.bottom} - scene.block.top, cut.rows);
}

std::string describe(const Outcome& outcome) {
  std::ostringstream text;
  text << "(" << outcome.x << ", " << outcome.y << ") score " << outcome.score << " limit "
       << outcome.limitHit << " first " << outcome.firstLimitBlock << " table";
  for (const int64_t entry : outcome.table) text << ' ' << entry;
  return text.str();
}

Outcome modelNormal(const Scene& scene, ModelOptions options, int range) {
  Outcome outcome;
  searchSquare([&](int64_t x, int64_t y) { return modelSquaredScore(scene, options, x, y); }, range,
               outcome, [](int, int, int64_t) {});
  return outcome;
}

Outcome modelIterativ(const Scene& scene, ModelOptions options, POINT start, int maxSteps,
                      int limit, std::vector<int64_t> table) {
  Outcome outcome;
  outcome.table = std::move(table);
  const POINT v = searchSquared(
      scene, [&](int64_t x, int64_t y) { return modelSquaredScore(scene, options, x, y); }, start,
      maxSteps, limit, outcome);
  outcome.x = v.x;
  outcome.y = v.y;
  return outcome;
}

Outcome modelNorm(const Scene& scene, ModelOptions options, int range, std::vector<int64_t> table) {
  Outcome outcome;
  outcome.table = std::move(table);
  searchSquare([&](int64_t x, int64_t y) { return modelBrighteningScore(scene, options, x, y); },
               range, outcome,
               [&](int x, int y, int64_t score) {
                 const int64_t index = indexOf(scene, x, y);
                 if (index < 0 || index >= static_cast<int64_t>(outcome.table.size())) return;
                 outcome.table[static_cast<size_t>(index)] = score;
               });
  return outcome;
}

Outcome modelIt(const Scene& scene, ModelOptions options, int range, bool stopAtLimit,
                uint32_t blockId, uint32_t firstLimitBlock, std::vector<int64_t> table) {
  Outcome outcome;
  outcome.table = std::move(table);
  outcome.firstLimitBlock = firstLimitBlock;
  const POINT v = searchBrightening(
      scene, [&](int64_t x, int64_t y) { return modelBrighteningScore(scene, options, x, y); },
      {0, 0}, range, stopAtLimit, blockId, outcome);
  outcome.x = v.x;
  outcome.y = v.y;
  return outcome;
}

}  // namespace kvl::test
