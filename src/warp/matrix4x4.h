// Homogeneous 4 x 4 matrices, row-major, for points that are row vectors on the left.
#pragma once

#include <array>

namespace kvl {

using Matrix4x4 = std::array<double, 16>;

struct Point2D {
  double x;
  double y;
};

Matrix4x4 identity4x4();
Matrix4x4 scaling4x4(double factor);  // diagonal (factor, factor, factor, 1)
Matrix4x4 translation4x4(double x, double y);
// a := a * b
void postMultiply(Matrix4x4& a, const Matrix4x4& b);

// By LU decomposition with partial pivoting; fails, leaving the matrix as it was, where a pivot is
// exactly 0.
bool invert(Matrix4x4& matrix);

// What of a matrix carries the plane z = 0. `wz` is the z-term of w: 0 unless that coefficient is
// infinite or not a number, and then it spoils every point.
struct Projection {
  explicit Projection(const Matrix4x4& m)
      : xx(m[0]),
        xy(m[4]),
        x0(m[12]),
        yx(m[1]),
        yy(m[5]),
        y0(m[13]),
        wx(m[3]),
        wy(m[7]),
        wz(m[11] * 0.0),
        w0(m[15]) {}

  double xx, xy, x0;
  double yx, yy, y0;
  double wx, wy, wz, w0;

  double w(double x, double y) const { return ((x * wx + y * wy) + wz) + w0; }
  // The vector bodies repeat these operations in this order.
  Point2D operator()(double x, double y) const {
    const double reciprocal = 1.0 / w(x, y);
    return {((x * xx + y * xy) + x0) * reciprocal, ((x * yx + y * yy) + y0) * reciprocal};
  }
};

// The point of the plane z = 0 that the inverse of `inverse` carries to `point`.
Point2D projectBack(const Matrix4x4& inverse, Point2D point);

// The area of the image of the unit square at (x, y).
double projectedPixelArea(const Projection& projection, double x, double y);

// The z-component of a x b.
inline double cross(Point2D a, Point2D b) {
  return a.x * b.y - a.y * b.x;
}
inline Point2D operator-(Point2D a, Point2D b) {
  return {a.x - b.x, a.y - b.y};
}

}  // namespace kvl
