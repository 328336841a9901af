#include "operations/raw_image.h"

namespace kvl::tool {
namespace {

class DirectionalBlur final : public RawImageOperation {
 public:
  // In memory y grows towards the top of the picture, so that the library's angle is the one seen.
  void addOptions(CLI::App& command) override {
    addReal(command, "--angle", angle_, {"degrees", -360, 360},
            "Direction of the smear: 0 is level, 90 upright, 45 rises to the right");
    addReal(command, "--length", length_, {"pixels", 0, 1024}, "Length of the smear");
  }

  void run(const Dib& frame, Dib& result) override {
    const auto stride = static_cast<uint32_t>(frame.stride());
    KVL_BlurDirectional(frame.bits.data(), stride, result.bits.data(), stride,
                        static_cast<uint32_t>(frame.size().width),
                        static_cast<uint32_t>(frame.size().height), angle_, length_, 3);
  }

 private:
  double angle_ = 0;
  double length_ = 20;
};

const RegisterOperation<DirectionalBlur> g_directionalBlur("directional-blur",
                                                           "Smear along one direction");

}  // namespace
}  // namespace kvl::tool
