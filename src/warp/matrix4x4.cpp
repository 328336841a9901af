#include "warp/matrix4x4.h"

#include <cmath>
#include <utility>

namespace kvl {
namespace {

constexpr size_t n = 4;

// Both factors in place, the lower one's unit diagonal implied; permutation[k] is the row that
// changed places with row k.
bool decomposeLu(Matrix4x4& m, std::array<size_t, n>& permutation) {
  for (size_t k = 0; k < n; ++k) {
    size_t pivotRow = k;
    for (size_t row = k + 1; row < n; ++row) {
      if (std::fabs(m[row * n + k]) > std::fabs(m[pivotRow * n + k])) pivotRow = row;
    }
    permutation[k] = pivotRow;
    for (size_t column = 0; column < n && pivotRow != k; ++column) {
      std::swap(m[k * n + column], m[pivotRow * n + column]);
    }
    const double pivot = m[k * n + k];
    if (pivot == 0.0) return false;
    for (size_t row = k + 1; row < n; ++row) {
      const double factor = m[row * n + k] /= pivot;
      for (size_t column = k + 1; column < n; ++column) {
        m[row * n + column] -= factor * m[k * n + column];
      }
    }
  }
  return true;
}

void solveLu(const Matrix4x4& factors, const std::array<size_t, n>& permutation,
             std::array<double, n>& b) {
  for (size_t k = 0; k < n; ++k) std::swap(b[k], b[permutation[k]]);
  for (size_t row = 1; row < n; ++row) {
    for (size_t column = 0; column < row; ++column) b[row] -= factors[row * n + column] * b[column];
  }
  for (size_t row = n; row-- > 0;) {
    for (size_t column = row + 1; column < n; ++column) {
      b[row] -= factors[row * n + column] * b[column];
    }
    b[row] /= factors[row * n + row];
  }
}

}  // namespace

Matrix4x4 identity4x4() {
  return scaling4x4(1.0);
}

Matrix4x4 scaling4x4(double factor) {
  return {factor, 0, 0, 0, 0, factor, 0, 0, 0, 0, factor, 0, 0, 0, 0, 1};
}

Matrix4x4 translation4x4(double x, double y) {
  return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, 0, 1};
}

void postMultiply(Matrix4x4& a, const Matrix4x4& b) {
  const Matrix4x4 left = a;
  for (size_t row = 0; row < n; ++row) {
    for (size_t column = 0; column < n; ++column) {
      double sum = left[row * n] * b[column];
      for (size_t k = 1; k < n; ++k) sum += left[row * n + k] * b[k * n + column];
      a[row * n + column] = sum;
    }
  }
}

bool invert(Matrix4x4& matrix) {
  Matrix4x4 factors = matrix;
  std::array<size_t, n> permutation{};
  if (!decomposeLu(factors, permutation)) return false;
  for (size_t column = 0; column < n; ++column) {
    std::array<double, n> b{};
    b[column] = 1.0;
    solveLu(factors, permutation, b);
    for (size_t row = 0; row < n; ++row) matrix[row * n + column] = b[row];
  }
  return true;
}

Point2D projectBack(const Matrix4x4& i, Point2D p) {
  const double z = -((p.x * i[2] + p.y * i[6]) + i[14]) / i[10];
  const double w = ((p.x * i[3] + p.y * i[7]) + z * i[11]) + i[15];
  return {(((p.x * i[0] + p.y * i[4]) + z * i[8]) + i[12]) / w,
          (((p.x * i[1] + p.y * i[5]) + z * i[9]) + i[13]) / w};
}

double projectedPixelArea(const Projection& projection, double x, double y) {
  const Point2D origin = projection(x, y);
  const Point2D along = projection(x + 1, y) - origin;
  const Point2D down = projection(x, y + 1) - origin;
  const Point2D diagonal = projection(x + 1, y + 1) - origin;
  return 0.5 * (std::fabs(cross(along, diagonal)) + std::fabs(cross(down, diagonal)));
}

}  // namespace kvl
