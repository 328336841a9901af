#include <string>

#include "operation.h"
#include "options.h"

namespace kvl::tool {
namespace {

class SelectiveSharpen final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addChoice(command, "--form", form_, "form", {"simple", "modified", "smooth"},
              "Sharpen all or nothing, the same with one rounding, or by degrees");
    addInteger(command, "--threshold", threshold_, {"levels", 1, 255},
               "Difference from the neighbours from which a pixel is sharpened");
    addReal(command, "--gain", gain_, {"times", 1, 100}, "Strength; 1 copies the picture");
  }

  void prepare(const Dib& frame, Dib& result) override { result.resize(frame.size()); }

  void run(const Dib& frame, Dib& result) override {
    const auto sharpen = form_ == "smooth"     ? KVL_SelectiveSharpen
                         : form_ == "modified" ? KVL_ModifiedSelectiveSharpenSimple
                                               : KVL_SelectiveSharpenSimple;
    sharpen(&frame.header, frame.bits.data(), &result.header, result.bits.data(), threshold_,
            static_cast<float>(gain_));
  }

 private:
  std::string form_ = "simple";
  int threshold_ = 10;
  double gain_ = 2;
};

const RegisterOperation<SelectiveSharpen> g_selectiveSharpen(
    "selective-sharpen", "Sharpen that leaves even areas alone");

}  // namespace
}  // namespace kvl::tool
