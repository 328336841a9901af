#include "convert/halving_kernels.h"

namespace kvl {
namespace {

uint8_t down(int a, int b, int c, int d) {
  return static_cast<uint8_t>((a + b + c + d) >> 2);
}

uint8_t up(int a, int b) {
  return static_cast<uint8_t>((a + b + 1) >> 1);
}

uint8_t upTwice(int a0, int b0, int a1, int b1) {
  return up(up(a0, b0), up(a1, b1));
}

using Average = uint8_t(int a0, int b0, int a1, int b1);

// Units of `size` bytes that are averaged byte by byte.
template <Average average, ptrdiff_t size>
void averageUnits(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i, a += 2 * size, b += 2 * size, out += size) {
    for (ptrdiff_t c = 0; c < size; ++c) out[c] = average(a[c], b[c], a[size + c], b[size + c]);
  }
}

// Words Y0 U Y1 V: a word of the result takes its first luma from the first word, its second from
// the second, and its chroma from both.
template <Average average>
void averageYuy2(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i, a += 8, b += 8, out += 4) {
    out[0] = average(a[0], b[0], a[2], b[2]);
    out[1] = average(a[1], b[1], a[5], b[5]);
    out[2] = average(a[4], b[4], a[6], b[6]);
    out[3] = average(a[3], b[3], a[7], b[7]);
  }
}

void sample(const uint8_t* a, const uint8_t*, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) out[i] = a[2 * i];
}

// Blocks by one kernel, the rest by another, for units of `size` bytes.
template <HalvingKernel blocks, HalvingKernel rest, ptrdiff_t perBlock, ptrdiff_t size>
void inBlocks(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  const ptrdiff_t whole = count - count % perBlock;
  blocks(a, b, out, whole);
  rest(a + 2 * size * whole, b + 2 * size * whole, out + size * whole, count - whole);
}

}  // namespace

const HalvingKernels& scalarHalving() {
  static constexpr HalvingKernels kernels = {averageUnits<down, 1>, sample,
                                             averageUnits<down, 2>, averageYuy2<down>,
                                             averageUnits<down, 3>, averageUnits<down, 4>};
  return kernels;
}

HalvingKernels halvingKernels(InstructionSet level) {
  HalvingKernels kernels = scalarHalving();
  if (level >= InstructionSet::sse2) {
    // The plane's average, but not the others, waits for SSSE3.
    kernels.pairs = inBlocks<averageUnits<upTwice, 2>, averageUnits<down, 2>, 8, 2>;
    kernels.yuy2 = inBlocks<averageYuy2<upTwice>, averageYuy2<down>, 4, 4>;
    kernels.rgb32 = inBlocks<averageUnits<upTwice, 4>, averageUnits<down, 4>, 4, 4>;
  }
  if (level >= InstructionSet::ssse3) addHalvingSsse3(kernels);
  if (level >= InstructionSet::avx2) addHalvingAvx2(kernels);
  return kernels;
}

}  // namespace kvl
