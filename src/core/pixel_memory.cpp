#include "core/pixel_memory.h"

#include <emmintrin.h>

#include <cstring>

#include "core/cpu_features.h"

namespace kvl {
namespace {

bool isAligned(const void* pointer) {
  return reinterpret_cast<uintptr_t>(pointer) % 16 == 0;
}

template <bool sourceAligned, bool destinationAligned>
void copyBlocks(uint8_t* destination, const uint8_t* source, uint64_t blocks) {
  const auto* from = reinterpret_cast<const __m128i*>(source);
  auto* to = reinterpret_cast<__m128i*>(destination);
  for (uint64_t i = 0; i < blocks; ++i) {
    const __m128i block = sourceAligned ? _mm_load_si128(from + i) : _mm_loadu_si128(from + i);
    if constexpr (destinationAligned) {
      _mm_stream_si128(to + i, block);
    } else {
      _mm_storeu_si128(to + i, block);
    }
  }
}

}  // namespace

uint8_t* FastFill(uint8_t* destination, int byteValue, uint64_t count) {
  if (destination == nullptr) return destination;
  if (count < 16 || !g_hasSSE2) {
    std::memset(destination, byteValue, count);
    return destination;
  }
  const uint64_t head = (16 - reinterpret_cast<uintptr_t>(destination) % 16) % 16;
  const uint64_t blocks = (count - head) / 16;
  std::memset(destination, byteValue, head);
  auto* to = reinterpret_cast<__m128i*>(destination + head);
  const __m128i block = _mm_set1_epi8(static_cast<char>(byteValue));
  for (uint64_t i = 0; i < blocks; ++i) _mm_stream_si128(to + i, block);
  _mm_sfence();
  std::memset(to + blocks, byteValue, count - head - blocks * 16);
  return destination;
}

uint8_t* FastCopy(uint8_t* destination, const uint8_t* source, uint64_t count) {
  if (destination == nullptr || source == nullptr || count == 0) return destination;
  if (count < 16 || !g_hasSSE2) {
    std::memcpy(destination, source, count);
    return destination;
  }
  const uint64_t blocks = count / 16;
  if (isAligned(source)) {
    isAligned(destination) ? copyBlocks<true, true>(destination, source, blocks)
                           : copyBlocks<true, false>(destination, source, blocks);
  } else {
    isAligned(destination) ? copyBlocks<false, true>(destination, source, blocks)
                           : copyBlocks<false, false>(destination, source, blocks);
  }
  // Streaming stores are weakly ordered: the next pass may run on another processor.
  _mm_sfence();
  std::memcpy(destination + blocks * 16, source + blocks * 16, count % 16);
  return destination;
}

}  // namespace kvl
