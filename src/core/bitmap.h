// The bitmap descriptor: which headers are accepted and how large their rows are.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

// Set when a row size would overflow; never cleared, and read by nothing but tests.
extern std::atomic<uint8_t> g_strideOverflow;

bool IsSupportedBitmapFormat(const BITMAPINFOHEADER* header);

// Bytes of a row of `width` pixels, rounded up to whole 32-bit words; 0 for a negative width or a
// bit count of 0.
int64_t CalcStrideFromBitCount(int32_t width, uint16_t bitCount);

// The same from a header; 0 also for a null or unsupported one.
uint64_t CalcDibStride(const BITMAPINFOHEADER* header);

// Bytes of a 24-bit row, ((width + 1) * 3) & ~3, for routines that ignore the bit count. 0 when the
// width is not positive or the result does not fit in a signed 32-bit integer.
int32_t rgb24Stride(int32_t width);

// True when `rows` rows of `stride` bytes from `bits` lie within the user part of the 64-bit
// address space. Headers come from the host's files: sizes that fail this cannot be real buffers.
bool isAddressable(const void* bits, int64_t stride, int64_t rows);

}  // namespace kvl
