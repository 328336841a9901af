#include <algorithm>

#include "operation.h"
#include "options.h"

namespace kvl::tool {
namespace {

constexpr IntegerRange kTolerance = {"percent", 0, 100};

// Foreground and background are each multiplied by their share of the mask, and then added.
class Key final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addColour(command, "--colour", colour_, "Colour of the screen");
    addInteger(command, "--low", low_, kTolerance,
               "Up to this distance from it all is transparent");
    addInteger(command, "--high", high_, kTolerance, "From this distance on all is opaque");
    addInteger(command, "--spill", spill_, {"percent", 0, 100},
               "How much of the screen's hue is taken out of the foreground");
    addSwitch(command, "--mask", mask_, "Write the mask alone; takes no background");
  }

  const char* secondInput() const override { return "background"; }
  bool wantsSecondInput() const override { return !mask_; }
  void useSecond(const Dib& frame) override { background_ = &frame; }

  void prepare(const Dib& frame, Dib& result) override {
    Operation::prepare(frame, result);
    result.addAlpha();
    if (mask_) return;
    behind_ = *background_;
    behind_.addAlpha();
  }

  void run(const Dib&, Dib& result) override {
    const auto [width, height] = result.size();
    KVL_CalcAlphaBmpForMix_ColorBox(result.alpha.data(), static_cast<int32_t>(result.alphaStride()),
                                    result.bits.data(), static_cast<int32_t>(result.stride()),
                                    width, height, colour_.red, colour_.green, colour_.blue, low_,
                                    high_, static_cast<uint32_t>(spill_));
    if (mask_) return;
    const BITMAPINFOHEADER alpha = result.alphaHeader();
    std::ranges::transform(result.alpha, behind_.alpha.begin(),
                           [](uint8_t a) { return static_cast<uint8_t>(255 - a); });
    KVL_PremultiplyAlpha(&result.header, result.bits.data(), &alpha, result.alpha.data());
    KVL_PremultiplyAlpha(&behind_.header, behind_.bits.data(), &alpha, behind_.alpha.data());
  }

  void finish(Dib& result) override {
    const Size size = result.size();
    for (int32_t y = 0; y < size.height; ++y) {
      const uint8_t* alpha = result.alphaFromTop(y);
      uint8_t* pixel = result.rowFromTop(y);
      const uint8_t* behind = mask_ ? nullptr : behind_.rowFromTop(y);
      for (int32_t i = 0; i < 3 * size.width; ++i) {
        pixel[i] = mask_ ? alpha[i / 3] : static_cast<uint8_t>(std::min(pixel[i] + behind[i], 255));
      }
    }
    result.alpha.clear();
  }

 private:
  Colour colour_ = {0x00, 0xb1, 0x40};
  int low_ = 15;
  int high_ = 35;
  int spill_ = 100;
  bool mask_ = false;
  const Dib* background_ = nullptr;
  Dib behind_;
};

const RegisterOperation<Key> g_key("key", "Colour key: the foreground over a background");

}  // namespace
}  // namespace kvl::tool
