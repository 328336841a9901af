#include "alpha/reverse_premultiply.h"

#include <algorithm>

#include "alpha/reverse_premultiply_kernels.h"

namespace kvl {
namespace {

void reversePixels(uint8_t* colour, const uint8_t* alpha, int32_t count) {
  for (int32_t i = 0; i < count; ++i, colour += 3) {
    const uint32_t a = alpha[i];
    if (a == 0 || a == 255) continue;
    for (int c = 0; c < 3; ++c) {
      const uint32_t quotient = (uint32_t{colour[c]} * 255 + (a >> 1)) / a;
      colour[c] = static_cast<uint8_t>(std::min<uint32_t>(quotient, 255));
    }
  }
}

}  // namespace

ReversePremultiplyKernels reversePremultiplyKernels(InstructionSet level) {
  ReversePremultiplyKernels kernels{nullptr};
  if (level >= InstructionSet::ssse3) addReversePremultiplySsse3(kernels);
  if (level >= InstructionSet::avx2) addReversePremultiplyAvx2(kernels);
  return kernels;
}

void reversePremultiply(const ColourAndAlpha& image) {
  if (!isUsable(image)) return;
  forEachLine(image, reversePremultiplyKernels(instructionSet()).blocks, reversePixels);
}

}  // namespace kvl
