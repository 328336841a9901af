#include "operations/raw_image.h"

namespace kvl::tool {
namespace {

class RadialBlur final : public CentredBlur {
 public:
  RadialBlur() : CentredBlur(KVL_BlurRadial, 5) {}

 private:
  void addAmount(CLI::App& command, double& degrees) override {
    addReal(command, "--angle", degrees, {"degrees", 0, 360},
            "Length of the smear, the angle of the whole arc");
  }
};

const RegisterOperation<RadialBlur> g_radialBlur("radial-blur", "Smear along arcs round a centre");

}  // namespace
}  // namespace kvl::tool
