#include "warp/warp_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kvl::test {
namespace {

using Point = std::pair<double, double>;

struct Cell {
  std::array<uint32_t, 4> sums{};
  uint32_t weight = 0, keep = 0;
  std::array<double, 4> exactSums{};
  double exactWeight = 0, exactKeep = 0;
};

Point forward(const Matrix& m, double x, double y) {
  const double w = x * m[3] + y * m[7] + m[11] * 0.0 + m[15];
  const double r = 1 / w;
  return {(x * m[0] + y * m[4] + m[12]) * r, (x * m[1] + y * m[5] + m[13]) * r};
}

Point back(const Matrix& i, double x, double y) {
  const double z = -(x * i[2] + y * i[6] + i[14]) / i[10];
  const double w = x * i[3] + y * i[7] + z * i[11] + i[15];
  return {(x * i[0] + y * i[4] + z * i[8] + i[12]) / w,
          (x * i[1] + y * i[5] + z * i[9] + i[13]) / w};
}

double cross(Point a, Point b, Point c) {
  return (b.first - a.first) * (c.second - a.second) - (b.second - a.second) * (c.first - a.first);
}

double pixelArea(const Matrix& m, double x, double y) {
  const Point p0 = forward(m, x, y), p1 = forward(m, x + 1, y), p2 = forward(m, x, y + 1),
              p3 = forward(m, x + 1, y + 1);
  return 0.5 * (std::fabs(cross(p0, p1, p3)) + std::fabs(cross(p0, p2, p3)));
}

struct Doubles {
  double left, top, right, bottom;
};

int clampTo(double v, int low, int high) {
  return !(v > low) ? low : v >= high ? high : static_cast<int>(v);
}

// Enlarges lines of `count` samples that lie `step` apart.
void enlargeLine(const uint8_t* in, int count, size_t step, uint8_t* out, size_t outStep,
                 int level) {
  const int factor = 1 << level, h = factor / 2;
  size_t o = 0;
  for (int k = 0; k < h; ++k) out[outStep * o++] = in[0];
  for (int i = 0; i + 1 < count; ++i) {
    const int p = in[step * i], d = in[step * (i + 1)] - p;
    for (int k = 0; k < factor; ++k) {
      const int floorHalf = d >= 0 ? d / 2 : -((1 - d) / 2);
      out[outStep * o++] = static_cast<uint8_t>((h + p * factor + floorHalf + k * d) / factor);
    }
  }
  for (int k = 0; k < factor - h; ++k) out[outStep * o++] = in[step * (count - 1)];
}

Pixels enlarged(const Pixels& in, const RECT& box, int level) {
  const int width = box.right - box.left, height = box.bottom - box.top;
  Pixels rows(width << level, height, in.channels);
  Pixels all(width << level, height << level, in.channels);
  const size_t n = in.channels;
  for (int c = 0; c < in.channels; ++c) {
    for (int y = 0; y < height; ++y) {
      enlargeLine(&in.bytes[(static_cast<size_t>(box.top + y) * in.width + box.left) * n + c],
                  width, n, &rows.at(0, y, c), n, level);
    }
    for (int x = 0; x < rows.width; ++x) {
      enlargeLine(&rows.at(x, 0, c), height, n * rows.width, &all.at(x, 0, c), n * all.width,
                  level);
    }
  }
  return all;
}

// The integer weight of one sample for the pixel `offset` away (-1, 0 or 1) from its own.
double squared(double at, int offset, bool single) {
  const double own = std::floor(at);
  if (own == 0) offset += 1;
  if (single) {
    const float d = (static_cast<float>(own) + (offset + 0.5f)) - static_cast<float>(at);
    return d * d;
  }
  const double d = (own + offset + 0.5) - at;
  return d * d;
}

uint32_t integerWeight(double dx2, double dy2, Weights weights) {
  if (weights == Weights::single) {
    const float w = (1 - (static_cast<float>(dx2) + static_cast<float>(dy2))) * 256.0f;
    return w > 0 ? static_cast<uint32_t>(std::nearbyint(w)) : 0;
  }
  const double w = 1 - (dx2 + dy2);
  return w > 0 ? static_cast<uint32_t>(w * 256 + 0.5) : 0;
}

class Grid {
 public:
  Grid(const Pixels& destination) : width_(destination.width), height_(destination.height) {
    cells_.resize(static_cast<size_t>(width_) * height_);
  }
  Cell& at(int x, int y) { return cells_[static_cast<size_t>(y) * width_ + x]; }

  void splat(const Pixels& source, const RECT& range, const Matrix& m, Weights weights) {
    for (int j = range.top; j < range.bottom; ++j) {
      for (int i = range.left; i < range.right; ++i) {
        const auto [x, y] = forward(m, i + 0.5, j + 0.5);
        if (!(x >= 0 && x <= width_ && y >= 0 && y <= height_)) continue;
        add(x, y, source, i, j, weights);
      }
    }
  }

  void weighRim(const RECT& box, const Matrix& inverse) {
    for (int y = 0; y < height_; ++y) {
      const auto empty = [&](int x) { return static_cast<int32_t>(at(x, y).weight) <= 0; };
      int stop = 0;
      while (stop < width_ && empty(stop)) ++stop;
      while (stop < width_ && !isInterior(stop, y, box, inverse)) ++stop;
      int x = width_ - 1;
      while (x > stop && empty(x)) --x;
      while (x > stop && !isInterior(x, y, box, inverse)) --x;
    }
  }

  void resolve(ModelResult& result) {
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        const Cell& cell = at(x, y);
        for (int c = 0; c < result.picture.channels; ++c) {
          uint8_t& out = result.picture.at(x, y, c);
          const double own = out;
          if (cell.weight != 0) {
            const uint64_t t = uint64_t{cell.weight} + cell.keep;
            const uint64_t sum = cell.sums[c] + uint64_t{out} * cell.keep + t / 2;
            out = static_cast<uint8_t>(std::min<uint64_t>(sum / t, 255));
          }
          const double t = cell.exactWeight + cell.exactKeep;
          result.exact.push_back(
              cell.exactWeight > 0 ? (cell.exactSums[c] + own * cell.exactKeep) / t : own);
        }
      }
    }
  }

 private:
  void add(double x, double y, const Pixels& source, int i, int j, Weights weights) {
    const int ownX = static_cast<int>(std::floor(x)), ownY = static_cast<int>(std::floor(y));
    for (int row = std::max(ownY - 1, 0); row <= std::min(ownY + 1, height_ - 1); ++row) {
      for (int column = std::max(ownX - 1, 0); column <= std::min(ownX + 1, width_ - 1); ++column) {
        const double dx2 = squared(x, column - ownX, weights == Weights::single);
        const double dy2 = squared(y, row - ownY, weights == Weights::single);
        const uint32_t q = integerWeight(dx2, dy2, weights);
        const double w = std::max(0.0, 1 - (dx2 + dy2));
        Cell& cell = at(column, row);
        cell.weight += q;
        cell.exactWeight += w;
        for (int c = 0; c < source.channels; ++c) {
          cell.sums[c] += source.at(i, j, c) * q;
          cell.exactSums[c] += source.at(i, j, c) * w;
        }
      }
    }
  }

  bool isInterior(int x, int y, const RECT& box, const Matrix& inverse) {
    Cell& cell = at(x, y);
    const Point p = back(inverse, x - 0.5, y - 0.5);
    Doubles all{p.first, p.second, p.first, p.second};
    for (const auto& [cx, cy] : {Point{x + 1.5, y - 0.5}, {x - 0.5, y + 1.5}, {x + 1.5, y + 1.5}}) {
      const Point q = back(inverse, cx, cy);
      all = {std::min(all.left, q.first), std::min(all.top, q.second), std::max(all.right, q.first),
             std::max(all.bottom, q.second)};
    }
    Doubles part = all;
    if (part.left < box.left) part.left = box.left;
    if (part.top < box.top) part.top = box.top;
    if (part.right > box.right) part.right = box.right;
    if (part.bottom > box.bottom) part.bottom = box.bottom;
    const bool same = !(all.left < part.left || all.top < part.top || all.right > part.right ||
                        all.bottom > part.bottom);
    if (same) return true;
    const double width = part.right - part.left, height = part.bottom - part.top;
    const double a = width > 0 && height > 0 ? width * height : 0;
    const double whole = (all.right - all.left) * (all.bottom - all.top);
    if (a > 0 && whole > 0) {
      const double share = a / whole;
      const double keep = ((1 - share) * cell.weight) / share;
      cell.keep = keep >= 2147483647.0 ? 2147483647u : static_cast<uint32_t>(keep + 0.5);
      cell.exactKeep = (1 - share) * cell.exactWeight / share;
    } else {
      cell.weight = cell.keep = 0;
      cell.exactWeight = 0;
    }
    return false;
  }

  int width_, height_;
  std::vector<Cell> cells_;
};

}  // namespace

Matrix product(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (int row = 0; row < 4; ++row) {
    for (int column = 0; column < 4; ++column) {
      for (int k = 0; k < 4; ++k) c[4 * row + column] += a[4 * row + k] * b[4 * k + column];
    }
  }
  return c;
}

Matrix inverseOf(const Matrix& matrix) {
  double a[4][8] = {};
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) a[r][c] = matrix[4 * r + c];
    a[r][4 + r] = 1;
  }
  for (int k = 0; k < 4; ++k) {
    int pivot = k;
    for (int r = k + 1; r < 4; ++r) {
      if (std::fabs(a[r][k]) > std::fabs(a[pivot][k])) pivot = r;
    }
    std::swap_ranges(a[k], a[k] + 8, a[pivot]);
    for (int r = k + 1; r < 4; ++r) {
      const double factor = a[r][k] / a[k][k];
      for (int c = k; c < 8; ++c) a[r][c] -= factor * a[k][c];
    }
  }
  Matrix inverse{};
  for (int column = 0; column < 4; ++column) {
    for (int r = 3; r >= 0; --r) {
      double b = a[r][4 + column];
      for (int c = r + 1; c < 4; ++c) b -= a[r][c] * inverse[4 * c + column];
      inverse[4 * r + column] = b / a[r][r];
    }
  }
  return inverse;
}

ModelResult warpModel(const Pixels& destination, const Pixels& source, const ModelCall& call) {
  const Matrix& m = call.matrix;
  const Matrix inverse = inverseOf(m);
  const RECT &s = call.sourceRect, &d = call.destinationRect;
  ModelResult result{destination, {}, 0, {}, false};

  Doubles box{double(s.left), double(s.top), double(s.right), double(s.bottom)};
  const std::array<Point, 4> corners{forward(m, box.left, box.top), forward(m, box.right, box.top),
                                     forward(m, box.right, box.bottom),
                                     forward(m, box.left, box.bottom)};
  const bool inside = std::ranges::all_of(corners, [&](Point p) {
    return p.first >= d.left && p.first < d.right && p.second >= d.top && p.second < d.bottom;
  });
  for (const Point& corner :
       {Point{d.left, d.top}, {d.right, d.top}, {d.left, d.bottom}, {d.right, d.bottom}}) {
    int positive = 0, negative = 0;
    for (int i = 0; i < 4; ++i) {
      const double side = cross(corners[i], corners[(i + 1) % 4], corner);
      positive += side > 0;
      negative += side < 0;
    }
    result.cut = result.cut || (!inside && (positive == 4 || negative == 4));
  }
  for (const Point& p : corners) {
    for (const double dx : {-1.0, 1.0}) {
      for (const double dy : {-1.0, 1.0}) {
        const auto [x, y] = back(inverse, p.first + dx, p.second + dy);
        if (x < box.left) box.left = x;
        if (y < box.top) box.top = y;
        if (x > box.right) box.right = x;
        if (y > box.bottom) box.bottom = y;
      }
    }
  }
  RECT& whole = result.box;
  whole.left = clampTo(std::floor(box.left), s.left, s.right);
  whole.top = clampTo(std::floor(box.top), s.top, s.bottom);
  whole.right = clampTo(std::ceil(box.right) + 1, s.left, s.right);
  whole.bottom = clampTo(std::ceil(box.bottom) + 1, s.top, s.bottom);

  int level = std::clamp(call.level, 0, 15);
  if (call.automatic) {
    double largest = 0;
    for (const double x : {box.left, box.right - 1}) {
      for (const double y : {box.top, box.bottom - 1}) {
        largest = std::max(largest, pixelArea(m, x, y));
      }
    }
    double factor = 1 / largest / std::pow(4.0, level);
    for (level = 0; factor < 0.75 && level < 15; ++level) factor *= 4;
  }
  const auto bytes = [&](int l) {
    const int64_t width = int64_t{whole.right - whole.left} << l;
    return (width * source.channels + 3) / 4 * 4 * (int64_t{whole.bottom - whole.top} << l);
  };
  while (level > 0 && bytes(level) > 200 * 1024 * 1024) --level;
  result.level = level;

  Grid grid(destination);
  if (level == 0) {
    RECT range = whole;
    range.left = clampTo(std::floor(box.left), whole.left, whole.right);
    range.top = clampTo(std::floor(box.top), whole.top, whole.bottom);
    range.right = clampTo(std::floor(box.right) + 1, whole.left, whole.right);
    range.bottom = clampTo(std::floor(box.bottom) + 1, whole.top, whole.bottom);
    grid.splat(source, range, m, call.weights);
    grid.weighRim(whole, inverse);
  } else {
    const double f = 1 << level;
    const auto scale = [](double k) {
      return Matrix{k, 0, 0, 0, 0, k, 0, 0, 0, 0, k, 0, 0, 0, 0, 1};
    };
    const auto shift = [](double x, double y) {
      return Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, 0, 1};
    };
    const Pixels image = enlarged(source, whole, level);
    RECT range{};
    range.right = image.width;
    range.bottom = image.height;
    grid.splat(image, range, product(product(scale(1 / f), shift(whole.left, whole.top)), m),
               call.weights);
    grid.weighRim(
        range, product(product(inverse, shift(-double(whole.left), -double(whole.top))), scale(f)));
  }
  grid.resolve(result);
  return result;
}

}  // namespace kvl::test
