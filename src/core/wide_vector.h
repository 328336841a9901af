// The widest integer vector of the instruction set that a file is compiled for, AVX2 or SSSE3, so
// that one text serves both. For vector files only: everything here has internal linkage.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kvl {
namespace {

// Unpacking and packing work on each 16-byte lane by itself, so that one undoes the other.
#if defined(__AVX2__)

using Vector = __m256i;

inline Vector load(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const Vector*>(p));
}
inline void store(uint8_t* p, Vector v) {
  _mm256_storeu_si256(reinterpret_cast<Vector*>(p), v);
}
inline Vector zeroVector() {
  return _mm256_setzero_si256();
}
inline Vector splat8(int8_t v) {
  return _mm256_set1_epi8(v);
}
inline Vector splat16(int16_t v) {
  return _mm256_set1_epi16(v);
}
inline Vector splat32(int32_t v) {
  return _mm256_set1_epi32(v);
}
inline Vector unpackLow8(Vector a, Vector b) {
  return _mm256_unpacklo_epi8(a, b);
}
inline Vector unpackHigh8(Vector a, Vector b) {
  return _mm256_unpackhi_epi8(a, b);
}
inline Vector unpackLow16(Vector a, Vector b) {
  return _mm256_unpacklo_epi16(a, b);
}
inline Vector unpackHigh16(Vector a, Vector b) {
  return _mm256_unpackhi_epi16(a, b);
}
inline Vector packSigned16(Vector a, Vector b) {
  return _mm256_packs_epi16(a, b);
}
inline Vector packUnsigned16(Vector a, Vector b) {
  return _mm256_packus_epi16(a, b);
}
inline Vector packSigned32(Vector a, Vector b) {
  return _mm256_packs_epi32(a, b);
}
inline Vector add8(Vector a, Vector b) {
  return _mm256_add_epi8(a, b);
}
inline Vector add32(Vector a, Vector b) {
  return _mm256_add_epi32(a, b);
}
inline Vector subtract16(Vector a, Vector b) {
  return _mm256_sub_epi16(a, b);
}
inline Vector multiplyHigh16(Vector a, Vector b) {
  return _mm256_mulhi_epi16(a, b);
}
inline Vector multiplyAddPairs8(Vector a, Vector b) {
  return _mm256_maddubs_epi16(a, b);
}
inline Vector multiplyAddPairs16(Vector a, Vector b) {
  return _mm256_madd_epi16(a, b);
}
template <int bits>
inline Vector shiftRight32(Vector v) {
  return _mm256_srai_epi32(v, bits);
}

#else

using Vector = __m128i;

inline Vector load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const Vector*>(p));
}
inline void store(uint8_t* p, Vector v) {
  _mm_storeu_si128(reinterpret_cast<Vector*>(p), v);
}
inline Vector zeroVector() {
  return _mm_setzero_si128();
}
inline Vector splat8(int8_t v) {
  return _mm_set1_epi8(v);
}
inline Vector splat16(int16_t v) {
  return _mm_set1_epi16(v);
}
inline Vector splat32(int32_t v) {
  return _mm_set1_epi32(v);
}
inline Vector unpackLow8(Vector a, Vector b) {
  return _mm_unpacklo_epi8(a, b);
}
inline Vector unpackHigh8(Vector a, Vector b) {
  return _mm_unpackhi_epi8(a, b);
}
inline Vector unpackLow16(Vector a, Vector b) {
  return _mm_unpacklo_epi16(a, b);
}
inline Vector unpackHigh16(Vector a, Vector b) {
  return _mm_unpackhi_epi16(a, b);
}
inline Vector packSigned16(Vector a, Vector b) {
  return _mm_packs_epi16(a, b);
}
inline Vector packUnsigned16(Vector a, Vector b) {
  return _mm_packus_epi16(a, b);
}
inline Vector packSigned32(Vector a, Vector b) {
  return _mm_packs_epi32(a, b);
}
inline Vector add8(Vector a, Vector b) {
  return _mm_add_epi8(a, b);
}
inline Vector add32(Vector a, Vector b) {
  return _mm_add_epi32(a, b);
}
inline Vector subtract16(Vector a, Vector b) {
  return _mm_sub_epi16(a, b);
}
inline Vector multiplyHigh16(Vector a, Vector b) {
  return _mm_mulhi_epi16(a, b);
}
inline Vector multiplyAddPairs8(Vector a, Vector b) {
  return _mm_maddubs_epi16(a, b);
}
inline Vector multiplyAddPairs16(Vector a, Vector b) {
  return _mm_madd_epi16(a, b);
}
template <int bits>
inline Vector shiftRight32(Vector v) {
  return _mm_srai_epi32(v, bits);
}

#endif

constexpr ptrdiff_t vectorBytes = sizeof(Vector);

}  // namespace
}  // namespace kvl
