#include "operations/raw_image.h"

namespace kvl::tool {
namespace {

class RadialBlur final : public RawImageOperation {
 public:
  void addOptions(CLI::App& command) override {
    addCentre(command, centre_);
    addReal(command, "--angle", angle_, {"degrees", 0, 360},
            "Length of the smear, the angle of the whole arc");
  }

  void prepare(const Dib& frame, Dib& result) override {
    RawImageOperation::prepare(frame, result);
    centreInMemory_ = centreInMemory(centre_, frame.size());
  }

  void run(const Dib& frame, Dib& result) override {
    const auto stride = static_cast<uint32_t>(frame.stride());
    KVL_BlurRadial(frame.bits.data(), stride, result.bits.data(), stride,
                   static_cast<uint32_t>(frame.size().width),
                   static_cast<uint32_t>(frame.size().height), centreInMemory_.x, centreInMemory_.y,
                   angle_, 3);
  }

 private:
  std::optional<Point> centre_;
  Point centreInMemory_{};
  double angle_ = 5;
};

const RegisterOperation<RadialBlur> g_radialBlur("radial-blur", "Smear along arcs round a centre");

}  // namespace
}  // namespace kvl::tool
