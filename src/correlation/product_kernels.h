// Sums of products of a block with a row of shifted blocks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/instruction_set.h"

namespace kvl {

constexpr int shiftsPerCall = 8;
// Samples are padded with zeros to a multiple of this many.
constexpr int64_t productPadding = 16;
// More rows could overflow a sum.
constexpr int64_t mostProductRows = 1024;

struct ProductRows {
  const int16_t* a;
  ptrdiff_t strideA;  // in samples, like everything here
  const int16_t* b;
  ptrdiff_t strideB;
  ptrdiff_t samples;  // a multiple of productPadding
  ptrdiff_t rows;     // at most mostProductRows
};

// sums[k] = sum of a[i] * b[i + k] over all rows, for k = 0 .. shifts - 1 of at most shiftsPerCall.
// Samples are bytes, and i + k stays readable up to the padded end.
using ProductKernel = void (*)(const ProductRows& rows, int shifts, uint64_t* sums);

// Null where there is no vector body: without one the direct sums are faster.
ProductKernel productKernel(InstructionSet level);
void productsSsse3(const ProductRows& rows, int shifts, uint64_t* sums);
void productsAvx2(const ProductRows& rows, int shifts, uint64_t* sums);

}  // namespace kvl
