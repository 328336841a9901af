#include "jpeg/component_rows.h"

namespace kvl {
namespace {

constexpr uint64_t alignment = 64;

uint64_t aligned(uint64_t bytes) {
  return (bytes + alignment - 1) / alignment * alignment;
}

// The pointers to the rows of one row of MCUs, and those to them.
uint64_t pointersPerMcuRow(const JpegLayout& layout) {
  uint64_t count = jpegMaxComponents;
  for (int c = 0; c < layout.componentCount; ++c) {
    count += static_cast<uint64_t>(layout.components[c].rowsPerMcu);
  }
  return count;
}

}  // namespace

bool ScratchMemory::allocate(uint64_t bytes) {
  if (bytes > PTRDIFF_MAX) return false;
  block_ = g_platform.allocate(static_cast<size_t>(bytesTaken(bytes)));
  return block_ != nullptr;
}

uint8_t* ScratchMemory::data() const {
  const auto at = reinterpret_cast<uintptr_t>(block_);
  return static_cast<uint8_t*>(block_) + (aligned(at) - at);
}

uint64_t ScratchMemory::bytesTaken(uint64_t bytes) {
  return bytes + alignment;
}

uint64_t ComponentRows::bytes(const JpegLayout& layout, int32_t mcuRows) {
  const auto count = static_cast<uint64_t>(mcuRows);
  uint64_t total = aligned(count * pointersPerMcuRow(layout) * sizeof(uint8_t*));
  for (int c = 0; c < layout.componentCount; ++c) {
    const JpegComponent& component = layout.components[c];
    total += (count * static_cast<uint64_t>(component.rowsPerMcu) + 1) *
             static_cast<uint64_t>(marginedStride(component.paddedWidth));
  }
  return total;
}

void ComponentRows::place(const JpegLayout& layout, int32_t mcuRows, uint8_t* memory) {
  for (int c = 0; c < layout.componentCount; ++c) {
    const JpegComponent& component = layout.components[c];
    stride_[c] = marginedStride(component.paddedWidth);
    first_[c] = memory + rowMargin + stride_[c];
    memory += (ptrdiff_t{mcuRows} * component.rowsPerMcu + 1) * stride_[c];
  }
  pointers_ = reinterpret_cast<uint8_t* const**>(memory);
  memory += ptrdiff_t{mcuRows} * jpegMaxComponents * static_cast<ptrdiff_t>(sizeof *pointers_);
  auto** rows = reinterpret_cast<uint8_t**>(memory);
  for (int32_t mcu = 0; mcu < mcuRows; ++mcu) {
    for (int c = 0; c < jpegMaxComponents; ++c) {
      pointers_[ptrdiff_t{mcu} * jpegMaxComponents + c] = rows;
      if (c >= layout.componentCount) continue;
      const int32_t perMcu = layout.components[c].rowsPerMcu;
      for (int32_t r = 0; r < perMcu; ++r) *rows++ = row(c, mcu * perMcu + r);
    }
  }
}

}  // namespace kvl
