// Matrices for the warp: row-major, points being row vectors on the left.
#pragma once

#include <array>
#include <vector>

#include "dib.h"

namespace kvl::tool {

using WarpMatrix = std::array<double, 16>;

WarpMatrix multiply(const WarpMatrix& a, const WarpMatrix& b);
WarpMatrix translation(double x, double y);

// Degrees. A positive x tips the top away, y the right side, and z turns anticlockwise as one sees
// the picture.
struct Turn {
  double x, y, z;
};

// Turns a picture of that size about its middle, seen from `distance` pixels in front of it.
WarpMatrix turned(Size size, Turn turn, double distance);

// Carries the corners of a picture of that size, clockwise from the top left, to the four points
// x0, y0 .. x3, y3. Not regular where three of them lie on a line.
WarpMatrix pinned(Size size, const std::vector<double>& corners);

// Whether w is above 0 at every corner of a picture of that size.
bool isBeforeViewer(const WarpMatrix& matrix, Size size);

}  // namespace kvl::tool
