#include "operations/grey_plane.h"
#include "operations/raw_image.h"

namespace kvl::tool {
namespace {

constexpr int32_t kInterleaved = 1;

class Sharpen final : public RawImageOperation {
 public:
  void addOptions(CLI::App& command) override {
    addReal(command, "--amount", amount_, {"times", 0, 127},
            "Increase of the difference from the neighbours; 0 copies the picture");
    addInteger(command, "--threshold", threshold_, {"levels", 0, 255},
               "Smallest difference from the neighbours that is sharpened");
    addSwitch(command, "--grey", grey_, "Sharpen the brightness alone, and write a grey picture");
  }

  void prepare(const Dib& frame, Dib& result) override {
    RawImageOperation::prepare(frame, result);
    if (!grey_) return;
    toGrey(frame, plane_);
    sharpened_.size = plane_.size;
    sharpened_.samples.resize(plane_.samples.size());
  }

  void run(const Dib& frame, Dib& result) override {
    const auto width = static_cast<uint32_t>(frame.size().width);
    const auto height = static_cast<uint32_t>(frame.size().height);
    const auto stride = static_cast<uint32_t>(frame.stride());
    const auto amount = static_cast<float>(amount_);
    if (grey_) {
      KVL_SharpenSimpleUni(plane_.samples.data(), plane_.stride(), sharpened_.samples.data(),
                           sharpened_.stride(), width, height, threshold_, amount);
    } else {
      KVL_SharpenSimpleUni_MultiComp(frame.bits.data(), stride, result.bits.data(), stride, width,
                                     height, threshold_, amount, 3, kInterleaved);
    }
  }

  void finish(Dib& result) override {
    if (grey_) fromGrey(sharpened_, result);
  }

 private:
  double amount_ = 1;
  int threshold_ = 0;
  bool grey_ = false;
  GreyPlane plane_;
  GreyPlane sharpened_;
};

const RegisterOperation<Sharpen> g_sharpen("sharpen",
                                           "Sharpen against the mean of the eight neighbours");

}  // namespace
}  // namespace kvl::tool
