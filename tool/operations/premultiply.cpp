#include "operation.h"

namespace kvl::tool {
namespace {

class AlphaOperation : public Operation {
 public:
  void addOptions(CLI::App&) override {}
  bool keepsAlpha() const override { return true; }
};

class Premultiply final : public AlphaOperation {
 public:
  void run(const Dib&, Dib& result) override {
    const BITMAPINFOHEADER alpha = result.alphaHeader();
    KVL_PremultiplyAlpha(&result.header, result.bits.data(), &alpha, result.alpha.data());
  }
};

class Unpremultiply final : public AlphaOperation {
 public:
  void run(const Dib&, Dib& result) override {
    const BITMAPINFOHEADER alpha = result.alphaHeader();
    KVL_ReverseAlphaPremul(&result.header, result.bits.data(), &alpha, result.alpha.data());
  }
};

const RegisterOperation<Premultiply> g_premultiply(
    "premultiply", "Multiply the colour of a picture with alpha by it");
const RegisterOperation<Unpremultiply> g_unpremultiply("unpremultiply",
                                                       "Divide the colour by the alpha again");

}  // namespace
}  // namespace kvl::tool
