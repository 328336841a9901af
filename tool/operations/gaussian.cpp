#include "operation.h"
#include "options.h"

namespace kvl::tool {
namespace {

class Gaussian final : public Operation {
 public:
  void addOptions(CLI::App& command) override {
    addInteger(command, "--radius", radius_, {"pixels", 1, 8}, "Radius of the kernel");
  }

  void prepare(const Dib& frame, Dib& result) override {
    Operation::prepare(frame, result);
    work_.resize(frame.size());
  }

  void run(const Dib&, Dib& result) override {
    KVL_GaussianBlur(&work_.header, work_.bits.data(), &result.header, result.bits.data(), radius_);
  }

 private:
  int radius_ = 3;
  Dib work_;
};

const RegisterOperation<Gaussian> g_gaussian("gaussian", "Gaussian blur");

}  // namespace
}  // namespace kvl::tool
