#include <string>

#include "error.h"
#include "operation.h"
#include "options.h"

namespace kvl::tool {
namespace {

// The weights add up to neighbours * threshold. The library divides it into 65536 in integers, and
// beyond that every pixel would be black.
constexpr int kLargestWeight = 65536;

class SelectiveBlur final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addInteger(command, "--threshold", threshold_, {"levels", 1, 255},
               "Difference from which a neighbour no longer counts");
    addInteger(command, "--radius", radius_, {"pixels", 1, 127}, "Radius of the neighbourhood");
    addSwitch(command, "--separable", separable_,
              "Blur the rows, then the columns: faster for large radii, less smooth");
  }

  void prepare(const Dib& frame, Dib& result) override {
    requireUsableWeights();
    if (separable_) {
      Operation::prepare(frame, result);
      work_.resize(frame.size());
    } else {
      result.resize(frame.size());
    }
  }

  void run(const Dib& frame, Dib& result) override {
    if (separable_) {
      KVL_ModifiedSelectiveBlur(&work_.header, work_.bits.data(), &result.header,
                                result.bits.data(), threshold_, radius_);
    } else {
      KVL_SelectiveBlur(&frame.header, frame.bits.data(), &result.header, result.bits.data(),
                        threshold_, radius_);
    }
  }

 private:
  void requireUsableWeights() const {
    const int side = 2 * radius_ + 1;
    const int neighbours = separable_ ? 2 * radius_ : side * side - 1;
    const int highest = kLargestWeight / neighbours;
    if (threshold_ <= highest) return;
    throw Error("--threshold",
                std::to_string(threshold_) + " is above " + std::to_string(highest) +
                    ", the highest with a --radius of " + std::to_string(radius_),
                usage);
  }

  int threshold_ = 20;
  int radius_ = 5;
  bool separable_ = false;
  Dib work_;
};

const RegisterOperation<SelectiveBlur> g_selectiveBlur(
    "selective-blur", "Blur that smooths areas and keeps their edges");

}  // namespace
}  // namespace kvl::tool
