#include "operations/warp_matrix.h"

#include <cmath>

namespace kvl::tool {
namespace {

constexpr WarpMatrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// A turn that carries axis `from` towards axis `to`.
WarpMatrix rotation(size_t from, size_t to, double degrees) {
  const double radians = degrees * 3.14159265358979323846 / 180;
  const double c = std::cos(radians), s = std::sin(radians);
  WarpMatrix m = kIdentity;
  m[4 * from + from] = m[4 * to + to] = c;
  m[4 * from + to] = s;
  m[4 * to + from] = -s;
  return m;
}

}  // namespace

WarpMatrix multiply(const WarpMatrix& a, const WarpMatrix& b) {
  WarpMatrix product{};
  for (size_t row = 0; row < 4; ++row) {
    for (size_t column = 0; column < 4; ++column) {
      for (size_t k = 0; k < 4; ++k) {
        product[4 * row + column] += a[4 * row + k] * b[4 * k + column];
      }
    }
  }
  return product;
}

WarpMatrix translation(double x, double y) {
  WarpMatrix m = kIdentity;
  m[12] = x;
  m[13] = y;
  return m;
}

WarpMatrix turned(Size size, Turn turn, double distance) {
  constexpr size_t x = 0, y = 1, z = 2;  // to the right, down, away from the viewer
  WarpMatrix view = kIdentity;
  view[4 * z + 3] = 1 / distance;
  const double middleX = size.width / 2.0, middleY = size.height / 2.0;
  WarpMatrix m = translation(-middleX, -middleY);
  m = multiply(m, rotation(y, x, turn.z));
  m = multiply(m, rotation(z, y, turn.x));
  m = multiply(m, rotation(x, z, turn.y));
  m = multiply(m, view);
  return multiply(m, translation(middleX, middleY));
}

WarpMatrix pinned(Size size, const std::vector<double>& p) {
  // With (u, v) running from 0 to 1 across the picture, x = (a * u + b * v + x0) / (g * u + h * v
  // + 1), and the corner (1, 1) fixes g and h.
  const double x0 = p[0], y0 = p[1], x1 = p[2], y1 = p[3], x2 = p[4], y2 = p[5], x3 = p[6],
               y3 = p[7];
  const double sumX = x0 - x1 + x2 - x3, sumY = y0 - y1 + y2 - y3;
  const double dx1 = x1 - x2, dy1 = y1 - y2, dx3 = x3 - x2, dy3 = y3 - y2;
  const double determinant = dx1 * dy3 - dx3 * dy1;
  const double g = (sumX * dy3 - dx3 * sumY) / determinant;
  const double h = (dx1 * sumY - sumX * dy1) / determinant;
  const double w = size.width, height = size.height;
  return {(x1 - x0 + g * x1) / w,
          (y1 - y0 + g * y1) / w,
          0,
          g / w,
          (x3 - x0 + h * x3) / height,
          (y3 - y0 + h * y3) / height,
          0,
          h / height,
          0,
          0,
          1,
          0,
          x0,
          y0,
          0,
          1};
}

bool isBeforeViewer(const WarpMatrix& m, Size size) {
  for (const double x : {0.0, double{1} * size.width}) {
    for (const double y : {0.0, double{1} * size.height}) {
      if (!(x * m[3] + y * m[7] + m[15] > 0)) return false;
    }
  }
  return true;
}

}  // namespace kvl::tool
