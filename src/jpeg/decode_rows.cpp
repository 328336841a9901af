#include "jpeg/decode_rows.h"

#include <algorithm>

namespace kvl {
namespace {

void doubleRowScalar(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    out[2 * i] = static_cast<uint8_t>((3 * in[i] + in[i - 1] + 1) >> 2);
    out[2 * i + 1] = static_cast<uint8_t>((3 * in[i] + in[i + 1] + 2) >> 2);
  }
}

void blendRowsScalar(const uint8_t* in, const uint8_t* other, int bias, uint8_t* out,
                     ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    out[i] = static_cast<uint8_t>((3 * in[i] + other[i] + bias) >> 2);
  }
}

void doubleBlendedScalar(const uint8_t* in, const uint8_t* other, uint8_t* out, ptrdiff_t count) {
  const auto t = [&](ptrdiff_t i) { return 3 * in[i] + other[i]; };
  for (ptrdiff_t i = 0; i < count; ++i) {
    out[2 * i] = static_cast<uint8_t>((3 * t(i) + t(i - 1) + 8) >> 4);
    out[2 * i + 1] = static_cast<uint8_t>((3 * t(i) + t(i + 1) + 7) >> 4);
  }
}

uint8_t toByte(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

void toRgbScalar(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* bgr,
                 ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i, bgr += 3) {
    const int u = cb[i] - 128, v = cr[i] - 128;
    bgr[0] = toByte(y[i] + ((116130 * u + 32768) >> 16));
    bgr[1] = toByte(y[i] + ((-22554 * u - 46802 * v + 32768) >> 16));
    bgr[2] = toByte(y[i] + ((91881 * v + 32768) >> 16));
  }
}

void interleaveScalar(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* bgr,
                      ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i, bgr += 3) {
    bgr[0] = b[i];
    bgr[1] = g[i];
    bgr[2] = r[i];
  }
}

}  // namespace

DecodeRowKernels decodeRowKernels(InstructionSet level) {
  DecodeRowKernels kernels{doubleRowScalar, blendRowsScalar, doubleBlendedScalar, toRgbScalar,
                           interleaveScalar};
  if (level >= InstructionSet::avx2) addDecodeRowsAvx2(kernels);
  return kernels;
}

}  // namespace kvl
