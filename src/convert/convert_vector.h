// More of core/wide_vector.h's operations, at the width of the file that includes it.
#pragma once

#include "core/wide_vector.h"

namespace kvl {
namespace {

#if defined(__AVX2__)

// The 16 bytes at `low` in the first lane, those at `high` in the second.
inline Vector loadLanes(const uint8_t* low, const uint8_t* high) {
  const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low));
  const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(high));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
}
// The same 16 bytes in each lane.
inline Vector repeatLane(const int8_t* bytes) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
}
// Past the cache; the address is a multiple of 16.
inline void stream(uint8_t* p, Vector v) {
  if (reinterpret_cast<uintptr_t>(p) % 32 == 0) {
    _mm256_stream_si256(reinterpret_cast<Vector*>(p), v);
  } else {
    _mm_stream_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(v));
    _mm_stream_si128(reinterpret_cast<__m128i*>(p + 16), _mm256_extracti128_si256(v, 1));
  }
}
// The low 8 bytes of each lane, as 16 bytes.
inline void storeLowHalves(uint8_t* p, Vector v) {
  const Vector halves = _mm256_permute4x64_epi64(v, 0x08);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(halves));
}
inline Vector shuffleBytes(Vector v, Vector order) {
  return _mm256_shuffle_epi8(v, order);
}
inline Vector unpackLow32(Vector a, Vector b) {
  return _mm256_unpacklo_epi32(a, b);
}
inline Vector unpackHigh32(Vector a, Vector b) {
  return _mm256_unpackhi_epi32(a, b);
}
inline Vector unpackLow64(Vector a, Vector b) {
  return _mm256_unpacklo_epi64(a, b);
}
inline Vector unpackHigh64(Vector a, Vector b) {
  return _mm256_unpackhi_epi64(a, b);
}
inline Vector either(Vector a, Vector b) {
  return _mm256_or_si256(a, b);
}
inline Vector differing(Vector a, Vector b) {
  return _mm256_xor_si256(a, b);
}
inline Vector both(Vector a, Vector b) {
  return _mm256_and_si256(a, b);
}
// Halves are rounded up.
inline Vector average8(Vector a, Vector b) {
  return _mm256_avg_epu8(a, b);
}
inline Vector add16(Vector a, Vector b) {
  return _mm256_add_epi16(a, b);
}
inline Vector addSigned16(Vector a, Vector b) {
  return _mm256_adds_epi16(a, b);
}
inline Vector addUnsigned16(Vector a, Vector b) {
  return _mm256_adds_epu16(a, b);
}
inline Vector addUnsigned8(Vector a, Vector b) {
  return _mm256_adds_epu8(a, b);
}
inline Vector multiplyLow16(Vector a, Vector b) {
  return _mm256_mullo_epi16(a, b);
}
// a where `sign` is above 0, -a where it is below, 0 where it is 0.
inline Vector withSign16(Vector a, Vector sign) {
  return _mm256_sign_epi16(a, sign);
}
template <int bits>
inline Vector shiftRight16(Vector v) {
  return _mm256_srai_epi16(v, bits);
}
template <int bits>
inline Vector shiftRightUnsigned16(Vector v) {
  return _mm256_srli_epi16(v, bits);
}
template <int bits>
inline Vector shiftLeft16(Vector v) {
  return _mm256_slli_epi16(v, bits);
}
template <int bits>
inline Vector shiftLeft32(Vector v) {
  return _mm256_slli_epi32(v, bits);
}
// Each lane moved up by a byte as a whole.
inline Vector raiseByByte(Vector v) {
  return _mm256_slli_si256(v, 1);
}

#else

inline Vector loadLanes(const uint8_t* low, const uint8_t*) {
  return load(low);
}
inline Vector repeatLane(const int8_t* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const Vector*>(bytes));
}
inline void stream(uint8_t* p, Vector v) {
  _mm_stream_si128(reinterpret_cast<Vector*>(p), v);
}
inline void storeLowHalves(uint8_t* p, Vector v) {
  _mm_storel_epi64(reinterpret_cast<Vector*>(p), v);
}
inline Vector shuffleBytes(Vector v, Vector order) {
  return _mm_shuffle_epi8(v, order);
}
inline Vector unpackLow32(Vector a, Vector b) {
  return _mm_unpacklo_epi32(a, b);
}
inline Vector unpackHigh32(Vector a, Vector b) {
  return _mm_unpackhi_epi32(a, b);
}
inline Vector unpackLow64(Vector a, Vector b) {
  return _mm_unpacklo_epi64(a, b);
}
inline Vector unpackHigh64(Vector a, Vector b) {
  return _mm_unpackhi_epi64(a, b);
}
inline Vector either(Vector a, Vector b) {
  return _mm_or_si128(a, b);
}
inline Vector differing(Vector a, Vector b) {
  return _mm_xor_si128(a, b);
}
inline Vector both(Vector a, Vector b) {
  return _mm_and_si128(a, b);
}
// Halves are rounded up.
inline Vector average8(Vector a, Vector b) {
  return _mm_avg_epu8(a, b);
}
inline Vector add16(Vector a, Vector b) {
  return _mm_add_epi16(a, b);
}
inline Vector addSigned16(Vector a, Vector b) {
  return _mm_adds_epi16(a, b);
}
inline Vector addUnsigned16(Vector a, Vector b) {
  return _mm_adds_epu16(a, b);
}
inline Vector addUnsigned8(Vector a, Vector b) {
  return _mm_adds_epu8(a, b);
}
inline Vector multiplyLow16(Vector a, Vector b) {
  return _mm_mullo_epi16(a, b);
}
inline Vector withSign16(Vector a, Vector sign) {
  return _mm_sign_epi16(a, sign);
}
template <int bits>
inline Vector shiftRight16(Vector v) {
  return _mm_srai_epi16(v, bits);
}
template <int bits>
inline Vector shiftRightUnsigned16(Vector v) {
  return _mm_srli_epi16(v, bits);
}
template <int bits>
inline Vector shiftLeft16(Vector v) {
  return _mm_slli_epi16(v, bits);
}
template <int bits>
inline Vector shiftLeft32(Vector v) {
  return _mm_slli_epi32(v, bits);
}
inline Vector raiseByByte(Vector v) {
  return _mm_slli_si128(v, 1);
}

#endif

}  // namespace
}  // namespace kvl
