#include <algorithm>
#include <optional>

#include "error.h"
#include "operation.h"
#include "operations/warp_matrix.h"
#include "options.h"
#include "read_picture.h"
#include "warp_host.h"

namespace kvl::tool {
namespace {

constexpr RealRange kDegrees = {"degrees", -36000, 36000};

// Room around the destination: the library hardly draws in a bitmap's first row and column.
constexpr int32_t kMargin = 1;

class Warp final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addReals(command, "--corners", corners_, 8, "X0,Y0,..", {"pixels", -100000, 100000},
             "Where the corners go, clockwise from the top left", "none");
    addReals(command, "--matrix", matrix_, 16, "M0,M1,..", {"coefficients", -1e12, 1e12},
             "4 x 4 matrix by rows, for row vectors; the picture is the plane z = 0", "none");
    addReal(command, "--rotate-x", turn_.x, kDegrees, "Turn that tips the top away");
    addReal(command, "--rotate-y", turn_.y, kDegrees, "Turn that tips the right side away");
    addReal(command, "--rotate-z", turn_.z, kDegrees, "Anticlockwise turn within the picture");
    addReal(command, "--distance", distance_, {"pixels", 1, 1000000},
            "From the viewer to the middle of the picture", "twice the longer side");
    addReal(command, "--spin", spin_, kDegrees, "What each frame adds to --rotate-y");
    addText(command, "--onto", background_, "PICTURE", "What to draw on, and the result's size",
            "black, of the input's size");
    addInteger(
        command, "--level", level_, {"doublings", 0, 15},
        "How often the picture is subdivided before it is drawn; or the bias of --auto-level");
    addSwitch(command, "--auto-level", automatic_, "Subdivide as finely as gapless results need");
  }

  void prepare(const Dib& frame, Dib& result) override {
    if (!canvas_) start(frame);
    const Turn turn{turn_.x, turn_.y + spin_ * static_cast<double>(framesDone_), turn_.z};
    const double distance =
        distance_.value_or(2.0 * std::max(frame.size().width, frame.size().height));
    WarpMatrix matrix = turned(frame.size(), turn, distance);
    if (corners_) matrix = pinned(frame.size(), *corners_);
    if (matrix_) std::ranges::copy(*matrix_, matrix.begin());
    requireSane(matrix, frame.size());
    toCanvas_ = multiply(matrix, translation(kMargin, kMargin));
    *canvas_ = blank_;
    result.resize(inner(blank_.size()));
  }

  void run(const Dib& frame, Dib&) override {
    const RECT from = {0, 0, frame.size().width, frame.size().height};
    const RECT to = {0, 0, canvas_->size().width, canvas_->size().height};
    KVL_CalcQvWarpPixel(&canvas_->header, canvas_->bits.data(), &to, &frame.header,
                        frame.bits.data(), &from, toCanvas_.data(), warpAllocator(), level_,
                        automatic_ ? 1 : 0);
  }

  void finish(Dib& result) override {
    for (int32_t y = 0; y < result.size().height; ++y) {
      const uint8_t* row = canvas_->rowFromTop(y + kMargin) + 3 * kMargin;
      std::copy(row, row + 3 * result.size().width, result.rowFromTop(y));
    }
    ++framesDone_;
  }

 private:
  static Size inner(Size canvas) {
    return {canvas.width - 2 * kMargin, canvas.height - 2 * kMargin};
  }

  // Lays the background out with its margin.
  void start(const Dib& frame) {
    const bool turns = turn_.x != 0 || turn_.y != 0 || turn_.z != 0 || distance_ || spin_ != 0;
    if (corners_.has_value() + matrix_.has_value() + turns > 1) {
      throw Error("--corners, --matrix and turns", "exclude each other", usage);
    }
    Dib background;
    if (background_.empty()) {
      background.resize(frame.size());
    } else {
      background = readPicture("--onto", background_);
    }
    const Size size = background.size();
    blank_.resize({size.width + 2 * kMargin, size.height + 2 * kMargin});
    for (int32_t y = 0; y < size.height; ++y) {
      const uint8_t* row = background.rowFromTop(y);
      std::copy(row, row + 3 * size.width, blank_.rowFromTop(y + kMargin) + 3 * kMargin);
    }
    canvas_ = blank_;
  }

  void requireSane(const WarpMatrix& matrix, Size size) const {
    if (matrix_ || isBeforeViewer(matrix, size)) return;
    if (corners_) throw Error("--corners", "are not those of a convex shape, clockwise", usage);
    throw Error("--distance", "the turned picture reaches behind the viewer", usage);
  }

  std::optional<std::vector<double>> corners_;
  std::optional<std::vector<double>> matrix_;
  Turn turn_{};
  std::optional<double> distance_;
  double spin_ = 0;
  std::string background_;
  int level_ = 0;
  bool automatic_ = false;

  Dib blank_;
  std::optional<Dib> canvas_;
  WarpMatrix toCanvas_{};
  int64_t framesDone_ = 0;
};

const RegisterOperation<Warp> g_warp("warp", "Draw in perspective: pin the corners, or turn");

}  // namespace
}  // namespace kvl::tool
