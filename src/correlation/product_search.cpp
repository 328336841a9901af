#include "correlation/product_search.h"

#include <memory>
#include <new>

#include "core/parallel.h"
#include "correlation/product_kernels.h"

namespace kvl {
namespace {

constexpr int64_t mostSide = int64_t{1} << 20;
// Fewer candidates do not pay for the preparation.
constexpr int64_t fewestCandidates = 32;
// A product costs about an eighth of a squared difference.
constexpr int64_t productsPerDifference = 8;

template <class T>
std::unique_ptr<T[]> allocate(int64_t count) {
  return std::unique_ptr<T[]>(new (std::nothrow) T[static_cast<size_t>(count)]);
}

int64_t paddedTo(int64_t count, int64_t multiple) {
  return (count + multiple - 1) / multiple * multiple;
}

// An area of an image as 16-bit samples, with zeros around what the image has of it, and under it,
// for each column, the sums of the squares of all rows before: row r of `squares` covers the rows
// 0 .. r - 1. The sums wrap; differences between rows that are near enough are right.
class WideArea {
 public:
  WideArea(const Area& area, int64_t paddedColumns)
      : area_(area),
        columns_(paddedColumns),
        samples_(allocate<int16_t>(area.rows() * columns_)),
        squares_(allocate<uint32_t>((area.rows() + 1) * columns_)) {}

  bool isThere() const { return samples_ != nullptr && squares_ != nullptr; }

  void fill(const uint8_t* image, ptrdiff_t stride, const Area& inImage) {
    std::fill_n(squares_.get(), columns_, 0);
    for (int64_t r = area_.firstRow; r < area_.endRow; ++r) {
      const bool isInside = r >= inImage.firstRow && r < inImage.endRow;
      fillRow(isInside ? image + stride * r : nullptr, inImage, r - area_.firstRow);
    }
  }

  const int16_t* samples(int64_t row, int64_t column) const {
    return samples_.get() + (row - area_.firstRow) * columns_ + (column - area_.left);
  }
  int64_t stride() const { return columns_; }
  int64_t left() const { return area_.left; }
  int64_t columns() const { return area_.columns(); }

  // sums[c] = the sum of the squares in the area's first c columns and the rows [first, end).
  void addUp(int64_t first, int64_t end, uint64_t* sums) const {
    const uint32_t* from = squares_.get() + (first - area_.firstRow) * columns_;
    const uint32_t* to = squares_.get() + (end - area_.firstRow) * columns_;
    sums[0] = 0;
    for (int64_t c = 0; c < area_.columns(); ++c) sums[c + 1] = sums[c] + (to[c] - from[c]);
  }

 private:
  // `pixels` is null for a row that the image does not have.
  void fillRow(const uint8_t* pixels, const Area& inImage, int64_t row) {
    int16_t* samples = samples_.get() + row * columns_;
    const int64_t first = std::min(std::max(area_.left, inImage.left), area_.right) - area_.left;
    const int64_t last = pixels == nullptr
                             ? first
                             : std::max(std::min(area_.right, inImage.right) - area_.left, first);
    std::fill_n(samples, first, 0);
    for (int64_t c = first; c < last; ++c) samples[c] = pixels[area_.left + c];
    std::fill_n(samples + last, columns_ - last, 0);
    const uint32_t* before = squares_.get() + row * columns_;
    uint32_t* squares = squares_.get() + (row + 1) * columns_;
    for (int64_t c = 0; c < columns_; ++c) {
      squares[c] = before[c] + static_cast<uint32_t>(samples[c] * samples[c]);
    }
  }

  Area area_;
  int64_t columns_;
  std::unique_ptr<int16_t[]> samples_;
  std::unique_ptr<uint32_t[]> squares_;
};

struct ProductPlan {
  const MatchPlan& match;
  const CandidateGrid& grid;
  ProductKernel kernel;
  Area block;  // as far as image A has it
  const WideArea& a;
  const WideArea& b;
};

// The best of one row of candidates. `sumsA` and `sumsB` are scratch for the sums of squares.
BestMatch searchRow(const ProductPlan& plan, int64_t row, uint64_t* sumsA, uint64_t* sumsB) {
  const int64_t y = plan.grid.first.y + row;
  const Area& block = plan.block;
  const Area rowsInB = plan.match.block.overlap({0, y});
  if (rowsInB.firstRow < rowsInB.endRow) {
    plan.a.addUp(rowsInB.firstRow, rowsInB.endRow, sumsA);
  } else {
    std::fill_n(sumsA, block.columns() + 1, 0);
  }
  plan.b.addUp(block.firstRow - y, block.endRow - y, sumsB);

  BestMatch best{{0, 0}, INT64_MIN, INT64_MAX};
  const int64_t groups = (plan.grid.columns + shiftsPerCall - 1) / shiftsPerCall;
  for (int64_t group = 0; group < groups; ++group) {
    // Groups of nearly equal size.
    const int64_t first = plan.grid.columns * group / groups;
    const int64_t end = plan.grid.columns * (group + 1) / groups;
    uint64_t products[shiftsPerCall];
    plan.kernel({plan.a.samples(block.firstRow, block.left), plan.a.stride(),
                 plan.b.samples(block.firstRow - y, block.left + plan.grid.first.x + first),
                 plan.b.stride(), paddedTo(block.columns(), productPadding), block.rows()},
                static_cast<int>(end - first), products);
    for (int64_t column = first; column < end; ++column) {
      const Shift shift{plan.grid.first.x + column, y};
      const Area overlap = plan.match.block.overlap(shift);
      int64_t score = 0;
      if (!overlap.empty()) {
        const uint64_t squares = sumsA[overlap.right - block.left] -
                                 sumsA[overlap.left - block.left] +
                                 sumsB[column + block.columns()] - sumsB[column];
        score = correctedScore(plan.match, overlap, squares - 2 * products[column - first]);
      }
      best.consider({shift, score, row * plan.grid.columns + column});
    }
  }
  return best;
}

}  // namespace

ProductKernel productKernel(InstructionSet level) {
  if (level >= InstructionSet::avx2) return productsAvx2;
  if (level >= InstructionSet::ssse3) return productsSsse3;
  return nullptr;
}

bool searchByProducts(const MatchPlan& plan, const CandidateGrid& grid, BestMatch& best) {
  const ProductKernel kernel = productKernel(instructionSet());
  const Area block = plan.block.insideImage();
  if (kernel == nullptr || plan.mask != nullptr || block.empty() || !sharesCandidates(plan) ||
      block.rows() > mostProductRows || grid.columns < shiftsPerCall ||
      grid.count() < fewestCandidates || block.columns() + grid.columns > mostSide ||
      block.rows() + grid.rows > mostSide) {
    return false;
  }
  // What of B the block meets at some candidate.
  const Area met{block.left + grid.first.x, block.right + grid.first.x + grid.columns - 1,
                 block.firstRow - (grid.first.y + grid.rows - 1), block.endRow - grid.first.y};
  const int64_t columnsOfA = paddedTo(block.columns(), productPadding);
  WideArea a(block, columnsOfA);
  WideArea b(met, paddedTo(columnsOfA + grid.columns - 1, productPadding));
  adoptTeamSize();
  const int64_t scratch = block.columns() + met.columns() + 2;
  const auto sums = allocate<uint64_t>(scratch * omp_get_max_threads());
  const auto bestOfRows = allocate<BestMatch>(grid.rows);
  if (!a.isThere() || !b.isThere() || !sums || !bestOfRows) return false;

  const Area image{0, plan.block.width, 0, plan.block.height};
  a.fill(plan.imageA, plan.strideA, image);
  b.fill(plan.imageB, plan.strideB, image);
  const ProductPlan products{plan, grid, kernel, block, a, b};
  BestMatch* const rowBests = bestOfRows.get();
  const auto search = [&](int32_t row, int thread) {
    uint64_t* sumsA = sums.get() + thread * scratch;
    rowBests[row] = searchRow(products, row, sumsA, sumsA + block.columns() + 1);
  };
  const auto rows = static_cast<int32_t>(grid.rows);
  const int64_t productsOfRow = block.columns() * block.rows() * grid.columns;
  if (isTooSmallToShare(productsOfRow / productsPerDifference * grid.rows)) {
    for (int32_t row = 0; row < rows; ++row) search(row, 0);
  } else {
    parallelDynamic(rows, 1, search);
  }
  for (int64_t row = 0; row < grid.rows; ++row) best.consider(rowBests[row]);
  return true;
}

}  // namespace kvl
