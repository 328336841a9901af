// The kernels of the resize: they know of lines of bytes, and of nothing else.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

constexpr int weightBits = 22;
constexpr int32_t wholeWeight = 1 << weightBits;
constexpr int shareBits = 14;
constexpr int32_t wholeShare = 1 << shareBits;

// Where the left edge of a sample falls among the outputs, in 1/2^22 of an output and modulo 1024
// outputs. Packed, as a host's work buffer may begin anywhere.
struct [[gnu::packed]] SampleEdge {
  uint32_t position;
};
static_assert(sizeof(SampleEdge) == 4 && alignof(SampleEdge) == 1);

// The share of an output that lies to the right of an edge within it, in 1/16384, halves to even so
// that mirrored edges stay mirrored.
static constexpr int32_t shareAfter(SampleEdge edge) {
  const int32_t weight = wholeWeight - static_cast<int32_t>(edge.position % wholeWeight);
  return (weight + 127 + ((weight >> 8) & 1)) >> 8;
}

// A line of outputs as a weighted sum of lines of samples.
struct ResizeLine {
  const uint8_t* first;
  const uint8_t* second;    // where count is 2
  ptrdiff_t step;           // from one line of samples to the next where count is above 2
  const SampleEdge* edges;  // of the samples; the first does not count
  int32_t count;
  int32_t share;  // of the second where count is 2, 1 .. 16383
};

// The two passes round halves opposite ways, so that they do not brighten together.
enum class Halves { up, down };

// 8192 more than the sum of shares times samples rounds halves up, 8191 more rounds them down.
static constexpr int32_t roundingTerm(Halves halves) {
  return halves == Halves::up ? wholeShare / 2 : wholeShare / 2 - 1;
}

// Eight neighbouring bytes of a line of outputs, each between a byte of the line of samples and that
// of the next pixel.
struct InterpolatedBytes {
  ptrdiff_t first;       // where in the line positions count from
  uint8_t positions[8];  // at most 12
  int16_t shares[8];     // of the next pixel, 0 .. 16383
};

// Bytes from the first of a group that are read, whatever its positions are.
constexpr ptrdiff_t interpolationReach = 16;
// Tables of such groups fill whole vectors of the widest kind.
constexpr ptrdiff_t maxVectorBytes = 32;

struct ResizeKernels {
  // The bytes [offset, offset + bytes) of `count` lines of outputs, outStride apart.
  void (*blend)(const ResizeLine* lines, ptrdiff_t count, Halves halves, ptrdiff_t offset,
                ptrdiff_t bytes, uint8_t* out, ptrdiff_t outStride);
  // Turns blockLines lines of 16 bytes each into 16 lines of blockLines bytes.
  void (*transpose)(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride);
  int32_t blockLines;
  // `bytes` bytes of `count` lines of outputs from as many lines of samples, halves down.
  void (*interpolate)(const InterpolatedBytes* table, ptrdiff_t components, ptrdiff_t bytes,
                      const uint8_t* in, ptrdiff_t inStride, ptrdiff_t count, uint8_t* out,
                      ptrdiff_t outStride);
  // `count` pixels, each from two of either line: (a + b + 1) / 2 of the lines, and of two of these
  // (u + v) / 2, both rounded down.
  void (*halveGrey)(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count);
  void (*halveRgb24)(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count);
};

constexpr int32_t maxBlockLines = 32;
constexpr ptrdiff_t blockBytes = 16;

ResizeKernels resizeKernels(InstructionSet level);
const ResizeKernels& scalarResize();
void addResizeSsse3(ResizeKernels& kernels);
void addResizeAvx2(ResizeKernels& kernels);

}  // namespace kvl
