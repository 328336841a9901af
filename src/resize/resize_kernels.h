// The row kernels of the resize: they know of lines of bytes, and of nothing else.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

// The left edge of a sample among the outputs: in which output it falls, and how much of that
// output lies to the right of it, in 1/2^22. Where an entry's output is not that of the entry
// before, the sample before it straddles the two. Packed, as a host's work buffer may begin anywhere.
struct [[gnu::packed]] WeightEntry {
  int32_t weight;
  int32_t output;
};
static_assert(sizeof(WeightEntry) == 8);

constexpr int32_t wholeWeight = 1 << 22;
constexpr int shareBits = 14;
constexpr int32_t wholeShare = 1 << shareBits;

// A weight in 1/16384, halves to even so that mirrored weights stay mirrored.
static constexpr int32_t roundedShare(int32_t weight) {
  return (weight + 127 + ((weight >> 8) & 1)) >> 8;
}

// A line of outputs as a weighted sum of lines of samples.
struct ResizeLine {
  const uint8_t* first;
  const uint8_t* second;       // used when count is 2
  ptrdiff_t step;              // from one line of samples to the next when count is above 2
  const WeightEntry* weights;  // of the samples' left edges; the first does not count
  int32_t count;
  int32_t share;  // of the second when count is 2, 1 .. 16383
};

// The two passes round halves opposite ways, so that they do not brighten together.
enum class Halves { up, down };

// Out of 16384: 8192 more rounds halves up, 8191 more rounds them down.
static constexpr int32_t roundingTerm(Halves halves) {
  return halves == Halves::up ? wholeShare / 2 : wholeShare / 2 - 1;
}

struct ResizeKernels {
  // Bytes [offset, offset + count) of a line of outputs.
  void (*blend)(const ResizeLine& line, Halves halves, ptrdiff_t offset, uint8_t* out,
                ptrdiff_t count);
  // Turns `blockLines` lines of 16 bytes each into 16 lines of blockLines bytes.
  void (*transpose)(const uint8_t* lines, ptrdiff_t stride, uint8_t* const* out);
  int32_t blockLines;
};

constexpr int32_t maxBlockLines = 32;
constexpr ptrdiff_t blockBytes = 16;

ResizeKernels resizeKernels(InstructionSet level);
void addResizeSsse3(ResizeKernels& kernels);
void addResizeAvx2(ResizeKernels& kernels);

}  // namespace kvl
