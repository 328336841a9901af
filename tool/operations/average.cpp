#include "operation.h"
#include "operations/transposed_lines.h"
#include "options.h"

namespace kvl::tool {
namespace {

class Average final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addInteger(command, "--radius", radius_, {"pixels", 1, 2055},
               "Radius of the box; above 128 the brightness drifts");
  }

  void prepare(const Dib& frame, Dib& result) override {
    Operation::prepare(frame, result);
    work_.resize(frame.size());
    presetColumn(frame, whole(), transposedWork());
  }

  void run(const Dib&, Dib& result) override {
    KVL_AveragingBlur(&work_.header, work_.bits.data(), &result.header, result.bits.data(),
                      radius_);
  }

  void finish(Dib& result) override { takeRow(transposedWork(), whole(), result); }

 private:
  Area whole() const { return {0, 0, work_.size().width, work_.size().height}; }

  TransposedRows transposedWork() {
    const auto [width, height] = work_.size();
    const size_t stride = work_.stride() * static_cast<size_t>(height) / static_cast<size_t>(width);
    return {work_.bits.data(), stride};
  }

  int radius_ = 5;
  Dib work_;
};

const RegisterOperation<Average> g_average("average", "Box blur of the whole picture");

}  // namespace
}  // namespace kvl::tool
