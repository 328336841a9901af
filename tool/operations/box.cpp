#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "error.h"
#include "operation.h"
#include "operations/transposed_lines.h"
#include "options.h"

namespace kvl::tool {
namespace {

constexpr RealRange kRadius = {"pixels", 0, 2055};

// The rectangle in memory, where rows begin with the picture's lowest, without what reaches beyond
// the picture.
Area areaInMemory(const Rectangle& rectangle, Size size) {
  if (rectangle.left >= size.width || rectangle.top >= size.height) {
    throw Error("--rect", "lies outside the picture of " + std::to_string(size.width) + "x" +
                              std::to_string(size.height) + " pixels");
  }
  const int32_t width = std::min(rectangle.width, size.width - rectangle.left);
  const int32_t height = std::min(rectangle.height, size.height - rectangle.top);
  return {rectangle.left, size.height - rectangle.top - height, width, height};
}

// The whole-number routine needs a pixel at least.
bool isWhole(double radius) {
  return radius >= 1 && radius == std::floor(radius);
}

class Box final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addReal(command, "--radius", radius_, kRadius,
            "Radius of the box, fractions count; above 128 the brightness drifts");
    addReal(command, "--radius-x", radiusX_, kRadius, "Radius along the rows", "--radius");
    addReal(command, "--radius-y", radiusY_, kRadius, "Radius along the columns", "--radius");
    addRectangle(command, "--rect", rectangle_,
                 "Left, top, width and height of what to blur; nothing outside is read or written",
                 "the whole picture");
  }

  void prepare(const Dib& frame, Dib& result) override {
    const Size size = frame.size();
    area_ = areaInMemory(rectangle_.value_or(Rectangle{0, 0, size.width, size.height}), size);
    Operation::prepare(frame, result);
    transposed_.resize({size.height, size.width});
    presetColumn(frame, area_, transposedRows());
  }

  void run(const Dib&, Dib& result) override {
    const double x = radiusX_.value_or(radius_), y = radiusY_.value_or(radius_);
    if (isWhole(x) && isWhole(y)) {
      KVL_AvgBlurUni(&result.header, result.bits.data(), &transposed_.header,
                     transposed_.bits.data(), area_.x, area_.y, area_.width, area_.height,
                     static_cast<int32_t>(x), static_cast<int32_t>(y));
    } else {
      KVL_AvgBlurUniFloat(&result.header, result.bits.data(), &transposed_.header,
                          transposed_.bits.data(), area_.x, area_.y, area_.width, area_.height,
                          static_cast<float>(x), static_cast<float>(y));
    }
  }

  void finish(Dib& result) override { takeRow(transposedRows(), area_, result); }

  int64_t pixels(const Dib&) const override { return int64_t{area_.width} * area_.height; }

 private:
  TransposedRows transposedRows() { return {transposed_.bits.data(), transposed_.stride()}; }

  double radius_ = 5;
  std::optional<double> radiusX_;
  std::optional<double> radiusY_;
  std::optional<Rectangle> rectangle_;
  Area area_{};
  Dib transposed_;
};

const RegisterOperation<Box> g_box("box", "Box blur of the picture or of a rectangle of it");

}  // namespace
}  // namespace kvl::tool
