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
// The 16 bytes at `low` in the first lane, those at `high` in the second.
inline Vector loadLanes(const void* low, const void* high) {
  const __m128i first = _mm_loadu_si128(static_cast<const __m128i*>(low));
  const __m128i second = _mm_loadu_si128(static_cast<const __m128i*>(high));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
}
// The same 16 bytes in each lane.
inline Vector repeatLane(__m128i v) {
  return _mm256_broadcastsi128_si256(v);
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
// Two vectors that were joined half by half in each lane, in the order of memory.
inline Vector inOrder(Vector v) {
  return _mm256_permute4x64_epi64(v, 0xD8);
}
inline void storeLanes(uint8_t* low, uint8_t* high, Vector v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(low), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(high), _mm256_extracti128_si256(v, 1));
}
inline Vector subtract8(Vector a, Vector b) {
  return _mm256_sub_epi8(a, b);
}
// a * b / 2^15, rounded to nearest, halves up.
inline Vector multiplyRounded16(Vector a, Vector b) {
  return _mm256_mulhrs_epi16(a, b);
}
inline Vector subtractUnsigned8(Vector a, Vector b) {
  return _mm256_subs_epu8(a, b);
}
inline Vector add64(Vector a, Vector b) {
  return _mm256_add_epi64(a, b);
}
// The bytes of `yes` where those of the mask are 255, of `no` where they are 0.
inline Vector choose(Vector mask, Vector yes, Vector no) {
  return _mm256_blendv_epi8(no, yes, mask);
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
inline Vector loadLanes(const void* low, const void*) {
  return _mm_loadu_si128(static_cast<const Vector*>(low));
}
inline Vector repeatLane(__m128i v) {
  return v;
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
inline Vector inOrder(Vector v) {
  return v;
}
inline void storeLanes(uint8_t* low, uint8_t*, Vector v) {
  store(low, v);
}
inline Vector subtract8(Vector a, Vector b) {
  return _mm_sub_epi8(a, b);
}
inline Vector multiplyRounded16(Vector a, Vector b) {
  return _mm_mulhrs_epi16(a, b);
}
inline Vector subtractUnsigned8(Vector a, Vector b) {
  return _mm_subs_epu8(a, b);
}
inline Vector add64(Vector a, Vector b) {
  return _mm_add_epi64(a, b);
}
inline Vector choose(Vector mask, Vector yes, Vector no) {
  return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

#endif

constexpr ptrdiff_t vectorBytes = sizeof(Vector);

inline Vector repeatLane(const int8_t* bytes) {
  return repeatLane(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
}

}  // namespace
}  // namespace kvl
