#include "alpha/premultiply.h"

#include "alpha/premultiply_kernels.h"

namespace kvl {
namespace {

void premultiplyPixels(uint8_t* colour, const uint8_t* alpha, int32_t count) {
  for (int32_t i = 0; i < count; ++i, colour += 3) {
    for (int c = 0; c < 3; ++c) {
      colour[c] = static_cast<uint8_t>((uint32_t{colour[c]} * alpha[i] + 127) / 255);
    }
  }
}

}  // namespace

PremultiplyKernels premultiplyKernels(InstructionSet level) {
  PremultiplyKernels kernels{nullptr};
  if (level >= InstructionSet::ssse3) addPremultiplySsse3(kernels);
  if (level >= InstructionSet::avx2) addPremultiplyAvx2(kernels);
  return kernels;
}

void premultiply(const ColourAndAlpha& image) {
  if (!isUsable(image)) return;
  forEachLine(image, premultiplyKernels(instructionSet()).blocks, premultiplyPixels);
}

}  // namespace kvl
