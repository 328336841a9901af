#include <CLI/App.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "error.h"
#include "operation.h"
#include "operations/exact_resize.h"
#include "options.h"

namespace kvl::tool {
namespace {

class Resize final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addSize(command, "--size", size_, "Size of the result", "--scale times the source rectangle");
    addReal(command, "--scale", scale_, {"factor", 0.0001, 10000},
            "Size of the result against the source rectangle");
    addEdges(command, "--source", source_,
             "Left, top, right and bottom edge of what to show; fractions count",
             "the whole picture");
    addEdges(command, "--source-end", sourceEnd_,
             "In a clip, where the edges move to, evenly over --frames", "--source");
    addInteger(command, "--frames", frames_, {"frames", 2, 1000000},
               "How many frames the move to --source-end takes");
    addEdges(command, "--into", into_,
             "Whole left, top, right and bottom edge of where to draw it; the rest is black",
             "the whole result");
    addSwitch(command, "--border", border_,
              "Enlarge across the edges of --source, with the pixels beyond them");
    addSwitch(command, "--exact", exact_,
              "Print the distance from the same resize in double precision");
    command.get_option("--scale")->excludes("--size");
    command.get_option("--exact")->excludes("--border");
  }

  void prepare(const Dib& frame, Dib& result) override {
    const auto [width, height] = frame.size();
    const Edges whole = {0, 0, static_cast<double>(width), static_cast<double>(height)};
    const Edges first = source_.value_or(whole);
    shown_ = at(first, sourceEnd_.value_or(first));
    result.resize(size_.value_or(scaledSize(first)));
    std::ranges::fill(result.bits, uint8_t{0});
    clip_ = drawnPart(result.size());
    if (shown_.left >= width || shown_.top >= height || shown_.right <= 0 || shown_.bottom <= 0) {
      throw Error("--source", "lies outside the picture");
    }
    const bool hangsOver =
        shown_.left < 0 || shown_.top < 0 || shown_.right > width || shown_.bottom > height;
    if (exact_ && hangsOver) throw Error("--exact", "needs a --source inside the picture");
  }

  void run(const Dib& frame, Dib& result) override {
    status_ = KVL_ResizeDIB_CPP(&frame.header, frame.bits.data(), &shown_.left, &result.header,
                                result.bits.data(), &clip_, border_ ? 1 : 0);
    frame_ = &frame;
  }

  void finish(Dib& result) override {
    if (status_ == KVL_E_OUTOFMEMORY) throw std::bad_alloc();
    if (status_ != KVL_S_OK) throw Error("resize", "the library refused the picture");
    if (exact_) comparison_.compare(*frame_, shown_, result, clip_);
    ++finished_;
  }

  void conclude() override {
    if (!exact_) return;
    std::fprintf(stderr, "kvl: resize PSNR %.2f dB, largest error %.3f levels\n",
                 comparison_.psnr(), comparison_.largestError());
    if (finished_ == 1) return;
    std::fprintf(stderr,
                 "kvl: resize largest jump of the error from frame to frame %.3f levels, of its "
                 "mean %.4f levels\n",
                 comparison_.largestJump(), comparison_.largestMeanJump());
  }

 private:
  // Where the edges are in this frame.
  Edges at(const Edges& first, const Edges& last) const {
    const double part = std::min(1.0, static_cast<double>(finished_) / (frames_ - 1));
    const auto between = [part](double a, double b) { return a + (b - a) * part; };
    return {between(first.left, last.left), between(first.top, last.top),
            between(first.right, last.right), between(first.bottom, last.bottom)};
  }

  Size scaledSize(const Edges& source) const {
    const auto side = [this](double length) {
      const double pixels = std::round(length * scale_);
      if (pixels > 32768) throw Error("--scale", "the result would have more than 32768 pixels");
      return std::max(1, static_cast<int32_t>(pixels));
    };
    return {side(source.right - source.left), side(source.bottom - source.top)};
  }

  RECT drawnPart(Size size) const {
    if (!into_) return {0, 0, size.width, size.height};
    const Edges& e = *into_;
    const double edges[] = {e.left, e.top, e.right, e.bottom};
    if (std::ranges::any_of(edges, [](double v) { return v != std::floor(v); })) {
      throw Error("--into", "needs whole numbers", usage);
    }
    if (e.left < 0 || e.top < 0 || e.right > size.width || e.bottom > size.height) {
      throw Error("--into", "lies outside the result of " + std::to_string(size.width) + "x" +
                                std::to_string(size.height) + " pixels");
    }
    const auto whole = [](double v) { return static_cast<int32_t>(v); };
    return {whole(e.left), whole(e.top), whole(e.right), whole(e.bottom)};
  }

  std::optional<Size> size_;
  double scale_ = 1;
  std::optional<Edges> source_;
  std::optional<Edges> sourceEnd_;
  int frames_ = 75;
  std::optional<Edges> into_;
  bool border_ = false;
  bool exact_ = false;

  Edges shown_{};
  RECT clip_{};
  int32_t status_ = KVL_S_OK;
  const Dib* frame_ = nullptr;
  int64_t finished_ = 0;
  ExactResize comparison_;
};

const RegisterOperation<Resize> g_resize("resize", "Scale the picture, or a part of it");

}  // namespace
}  // namespace kvl::tool
