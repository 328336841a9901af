#include <algorithm>
#include <string>

#include "error.h"
#include "operation.h"
#include "operations/yuv_frame.h"
#include "options.h"

namespace kvl::tool {
namespace {

constexpr uint32_t kInterlaced = 1, kAverage = 2;

// What halves without being cut to whole chroma samples.
bool isRgb(const std::string& layout) {
  return layout == "rgb24" || layout == "rgb32";
}

SIZE sizeOf(Size size) {
  return {size.width, size.height};
}

// What does not fit into the halves is left out at the picture's lower edge, where the rows in
// memory begin.
const uint8_t* firstRow(const Dib& frame, Size half) {
  return frame.rowFromTop(2 * half.height - 1);
}

void addFourthBytes(const Dib& picture, Size half, std::vector<uint8_t>& pixels) {
  pixels.clear();
  const Size size = picture.size();
  for (int32_t y = 0; y < 2 * half.height; ++y) {
    const uint8_t* pixel = firstRow(picture, half) + static_cast<size_t>(y) * picture.stride();
    for (int32_t x = 0; x < size.width; ++x, pixel += 3) {
      pixels.insert(pixels.end(), {pixel[0], pixel[1], pixel[2], 255});
    }
  }
}

void dropFourthBytes(const std::vector<uint8_t>& pixels, Dib& picture) {
  const uint8_t* pixel = pixels.data();
  for (int32_t y = 0; y < picture.size().height; ++y) {
    uint8_t* row = picture.bits.data() + static_cast<size_t>(y) * picture.stride();
    for (int32_t x = 0; x < picture.size().width; ++x, pixel += 4, row += 3) {
      std::copy_n(pixel, 3, row);
    }
  }
}

class Halve final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    std::vector<std::string> layouts = {"rgb24", "rgb32"};
    for (const YuvLayout& layout : yuvLayouts()) layouts.emplace_back(layout.name);
    addChoice(command, "--layout", layout_, "layout", layouts,
              "Layout of the frame that is halved; of YUV ones, blocks of two by two pixels "
              "remain");
    addSwitch(command, "--samples", samples_,
              "Take every second sample of planes instead of averaging");
    addSwitch(command, "--interlaced", interlaced_, "Halve each field by itself");
  }

  void prepare(const Dib& frame, Dib& result) override {
    const Size size = frame.size();
    Size half = {size.width / 2, size.height / 2};
    if (!isRgb(layout_)) half = {half.width / 2 * 2, half.height / 2 * 2};
    // The fields' rows come in pairs.
    if (interlaced_) half.height = half.height / 2 * 2;
    if (half.width == 0 || half.height == 0) {
      throw Error(std::to_string(size.width) + "x" + std::to_string(size.height),
                  "the picture is too small to be halved");
    }
    result.resize(half);
    if (layout_ == "rgb32") {
      addFourthBytes(frame, half, source_);
      halved_.resize(4 * static_cast<size_t>(half.width) * static_cast<size_t>(half.height));
    } else if (const YuvLayout* yuv = yuvLayout(layout_)) {
      frames_.fromDib(frame, *yuv, source_);
      halved_.resize(yuvFrameBytes(*yuv, half));
    }
  }

  void run(const Dib& frame, Dib& result) override {
    const uint32_t flags = (interlaced_ ? kInterlaced : 0) | (samples_ ? 0 : kAverage);
    const SIZE to = sizeOf(result.size());
    const SIZE used = {frame.size().width, 2 * to.cy};
    if (layout_ == "rgb24") {
      KVL_ShrinkToHalf(&KVL_SUBTYPE_RGB24, firstRow(frame, result.size()),
                       static_cast<int32_t>(frame.stride()), used, result.bits.data(),
                       static_cast<int32_t>(result.stride()), to, flags);
    } else {
      const YuvLayout* yuv = yuvLayout(layout_);
      KVL_ShrinkToHalf(yuv != nullptr ? yuv->subtype : &KVL_SUBTYPE_RGB32, source_.data(), 0,
                       yuv != nullptr ? sizeOf(frame.size()) : used, halved_.data(), 0, to, flags);
    }
  }

  void finish(Dib& result) override {
    if (layout_ == "rgb32") {
      dropFourthBytes(halved_, result);
    } else if (const YuvLayout* yuv = yuvLayout(layout_)) {
      YuvFrames::toDib(halved_, *yuv, result);
    }
  }

 private:
  std::string layout_ = "rgb24";
  bool samples_ = false;
  bool interlaced_ = false;
  std::vector<uint8_t> source_, halved_;
  YuvFrames frames_;
};

const RegisterOperation<Halve> g_halve("halve", "Half the width and half the height");

}  // namespace
}  // namespace kvl::tool
