#include "operation.h"
#include "operations/grey_plane.h"
#include "options.h"

namespace kvl::tool {
namespace {

constexpr int32_t kInterleaved = 1;

class ClassicBlur final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addInteger(command, "--threshold", threshold_, {"levels", 1, 255},
               "Difference from which a neighbour no longer counts; 255 is the plain box");
    addReal(command, "--radius", radius_, {"pixels", 0.1, 128},
            "Radius of the blur; only the plain box knows fractions");
    addSwitch(command, "--grey", grey_, "Blur the brightness alone, and write a grey picture");
  }

  void prepare(const Dib& frame, Dib& result) override {
    Operation::prepare(frame, result);
    if (grey_) toGrey(frame, plane_);
    work_.resize(static_cast<size_t>(workStride(frame.size())) *
                 static_cast<size_t>(frame.size().width));
  }

  void run(const Dib&, Dib& result) override {
    const Size size = result.size();
    const auto width = static_cast<uint32_t>(size.width);
    const auto height = static_cast<uint32_t>(size.height);
    const auto radius = static_cast<float>(radius_);
    if (grey_) {
      KVL_BlurClassicUni_MultiComp(plane_.samples.data(), plane_.stride(), work_.data(),
                                   workStride(size), width, height, threshold_, radius,
                                   components(), kInterleaved);
    } else {
      KVL_BlurClassicUni(result.bits.data(), static_cast<uint32_t>(result.stride()), work_.data(),
                         workStride(size), width, height, threshold_, radius);
    }
  }

  void finish(Dib& result) override {
    if (grey_) fromGrey(plane_, result);
  }

 private:
  int32_t components() const { return grey_ ? 1 : 3; }

  uint32_t workStride(Size size) const {
    return static_cast<uint32_t>(size.height) * static_cast<uint32_t>(components());
  }

  int threshold_ = 20;
  double radius_ = 5;
  bool grey_ = false;
  GreyPlane plane_;
  std::vector<uint8_t> work_;
};

const RegisterOperation<ClassicBlur> g_classicBlur(
    "classic-blur", "Separable blur that keeps edges, or plain box blur with darker borders");

}  // namespace
}  // namespace kvl::tool
