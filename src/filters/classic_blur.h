#pragma once

#include <cstdint>

namespace kvl {

// Rows of interleaved 8-bit samples as callers without a bitmap header describe them.
struct RawRows {
  uint8_t* bits;
  uint32_t stride;
};

// A picture of `width` x `height` pixels and its work rows, which hold it transposed.
void blurClassic(const RawRows& image, const RawRows& work, uint32_t width, uint32_t height,
                 int32_t threshold, float radius, int32_t components);

}  // namespace kvl
