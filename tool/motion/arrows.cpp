#include "motion/arrows.h"

#include <algorithm>
#include <cmath>

namespace kvl::tool {
namespace {

struct Colour {
  uint8_t blue, green, red;
};

constexpr Colour kLine{0, 230, 255};
constexpr Colour kOutline{0, 0, 0};

void drawDot(Dib& picture, double x, double y, int radius, Colour colour) {
  const auto column = static_cast<int32_t>(std::lround(x));
  const auto row = static_cast<int32_t>(std::lround(y));
  const auto [width, height] = picture.size();
  for (int32_t v = std::max(row - radius, 0); v <= std::min(row + radius, height - 1); ++v) {
    for (int32_t u = std::max(column - radius, 0); u <= std::min(column + radius, width - 1); ++u) {
      uint8_t* pixel = picture.rowFromTop(v) + size_t{3} * static_cast<size_t>(u);
      pixel[0] = colour.blue;
      pixel[1] = colour.green;
      pixel[2] = colour.red;
    }
  }
}

void drawLine(Dib& picture, double x, double y, double toX, double toY, int radius, Colour colour) {
  const int steps =
      std::max(1, static_cast<int>(std::ceil(std::max(std::abs(toX - x), std::abs(toY - y)))));
  for (int i = 0; i <= steps; ++i) {
    const double share = static_cast<double>(i) / steps;
    drawDot(picture, x + share * (toX - x), y + share * (toY - y), radius, colour);
  }
}

void drawArrow(Dib& picture, double x, double y, Displacement moved, int radius, Colour colour) {
  const double length = std::hypot(moved.x, moved.y);
  const double toX = x + moved.x;
  const double toY = y + moved.y;
  drawLine(picture, x, y, toX, toY, radius, colour);
  if (length < 4) return;
  const double barb = std::min(4.0, length / 3) / length;
  const double backX = moved.x * barb;
  const double backY = moved.y * barb;
  for (const double side : {-0.6, 0.6}) {
    drawLine(picture, toX, toY, toX - backX - side * backY, toY - backY + side * backX, radius,
             colour);
  }
}

}  // namespace

// All outlines first, so that none covers a neighbour's line.
void drawArrows(const std::vector<BlockMotion>& blocks, int block, Dib& picture) {
  const double middle = (block - 1) / 2.0;
  for (const auto& [radius, colour] : {std::pair{1, kOutline}, {0, kLine}}) {
    for (const BlockMotion& motion : blocks) {
      drawArrow(picture, motion.x + middle, motion.y + middle, motion.moved, radius, colour);
    }
  }
}

}  // namespace kvl::tool
