#include "operation.h"
#include "options.h"

namespace kvl::tool {
namespace {

constexpr RealRange kAmount = {"strength", -1, 1};

class Tint final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addReal(command, "--red", red_, kAmount, "Less red below 0, more above");
    addReal(command, "--green", green_, kAmount, "Less green below 0, more above");
    addReal(command, "--blue", blue_, kAmount, "Less blue below 0, more above");
    addChoice(command, "--preserve", preserve_, "way", {"ratio", "difference"},
              "Restore the luminance by scaling the pixel, or by adding to it");
  }

  void run(const Dib&, Dib& result) override {
    KVL_ApplyRGBColorShift(&result.header, result.bits.data(), static_cast<float>(red_),
                           static_cast<float>(green_), static_cast<float>(blue_),
                           preserve_ == "ratio" ? 1 : 0);
  }

 private:
  double red_ = 0;
  double green_ = 0;
  double blue_ = 0;
  std::string preserve_ = "ratio";
};

const RegisterOperation<Tint> g_tint("tint", "Shift of the colour balance at equal luminance");

}  // namespace
}  // namespace kvl::tool
