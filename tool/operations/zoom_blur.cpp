#include "operations/raw_image.h"

namespace kvl::tool {
namespace {

class ZoomBlur final : public RawImageOperation {
 public:
  void addOptions(CLI::App& command) override {
    addCentre(command, centre_);
    addReal(command, "--strength", strength_, {"fraction", 0, 2},
            "Length of the smear, as a fraction of the distance from the centre");
  }

  void prepare(const Dib& frame, Dib& result) override {
    RawImageOperation::prepare(frame, result);
    centreInMemory_ = centreInMemory(centre_, frame.size());
  }

  void run(const Dib& frame, Dib& result) override {
    const auto stride = static_cast<uint32_t>(frame.stride());
    KVL_BlurZoom(frame.bits.data(), stride, result.bits.data(), stride,
                 static_cast<uint32_t>(frame.size().width),
                 static_cast<uint32_t>(frame.size().height), centreInMemory_.x, centreInMemory_.y,
                 strength_, 3);
  }

 private:
  std::optional<Point> centre_;
  Point centreInMemory_{};
  double strength_ = 0.1;
};

const RegisterOperation<ZoomBlur> g_zoomBlur("zoom-blur", "Smear along rays from a centre");

}  // namespace
}  // namespace kvl::tool
