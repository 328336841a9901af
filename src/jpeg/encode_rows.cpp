#include "jpeg/encode_rows.h"

#include "jpeg/colour.h"

namespace kvl {
namespace {

void coloursScalar(const uint8_t* bgr, ptrdiff_t count, uint8_t* y, uint8_t* cb, uint8_t* cr) {
  for (ptrdiff_t i = 0; i < count; ++i, bgr += 3) {
    const int b = bgr[0], g = bgr[1], r = bgr[2];
    // 128 and, short of one so that 255.5 stays 255, a half.
    constexpr int chromaBias = (128 << 16) + 32767;
    y[i] = lumaOf(r, g, b);
    cb[i] = static_cast<uint8_t>((-11059 * r - 21709 * g + 32768 * b + chromaBias) >> 16);
    cr[i] = static_cast<uint8_t>((32768 * r - 27439 * g - 5329 * b + chromaBias) >> 16);
  }
}

void halveScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    out[i] = static_cast<uint8_t>((in[2 * i] + in[2 * i + 1] + (i & 1)) >> 1);
  }
}

void quarterScalar(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const ptrdiff_t sum = a[2 * i] + a[2 * i + 1] + b[2 * i] + b[2 * i + 1];
    out[i] = static_cast<uint8_t>((sum + 1 + (i & 1)) >> 2);
  }
}

}  // namespace

EncodeRowKernels encodeRowKernels(InstructionSet level) {
  EncodeRowKernels kernels{coloursScalar, halveScalar, quarterScalar};
  if (level >= InstructionSet::avx2) addEncodeRowsAvx2(kernels);
  return kernels;
}

}  // namespace kvl
