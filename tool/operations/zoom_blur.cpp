#include "operations/raw_image.h"

namespace kvl::tool {
namespace {

class ZoomBlur final : public CentredBlur {
 public:
  ZoomBlur() : CentredBlur(KVL_BlurZoom, 0.1) {}

 private:
  void addAmount(CLI::App& command, double& strength) override {
    addReal(command, "--strength", strength, {"fraction", 0, 2},
            "Length of the smear, as a fraction of the distance from the centre");
  }
};

const RegisterOperation<ZoomBlur> g_zoomBlur("zoom-blur", "Smear along rays from a centre");

}  // namespace
}  // namespace kvl::tool
