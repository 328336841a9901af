// The widest vector of the instruction set that a file is compiled for, AVX2 or SSSE3, so that one
// text serves both. For vector files only: everything here has internal linkage.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

// An intrinsic that both widths have under one name.
#if defined(__AVX2__)
#define KVL_WIDE(name) _mm256_##name
#else
#define KVL_WIDE(name) _mm_##name
#endif

namespace kvl {
namespace {

// A lane has 16 bytes. Unpacking, packing and shuffling work on each lane by itself, so that
// packing undoes unpacking.
#if defined(__AVX2__)

using Vector = __m256i;
using Floats = __m256;

inline Vector load(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const Vector*>(p));
}
inline Vector loadAligned(const uint8_t* p) {
  return _mm256_load_si256(reinterpret_cast<const Vector*>(p));
}
// The 16 bytes at `low` in the first lane, those at `high` in the second.
inline Vector loadLanes(const void* low, const void* high) {
  const __m128i first = _mm_loadu_si128(static_cast<const __m128i*>(low));
  const __m128i second = _mm_loadu_si128(static_cast<const __m128i*>(high));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
}
// The same lane everywhere.
inline Vector repeatLane(__m128i v) {
  return _mm256_broadcastsi128_si256(v);
}
inline void store(uint8_t* p, Vector v) {
  _mm256_storeu_si256(reinterpret_cast<Vector*>(p), v);
}
inline void storeLanes(uint8_t* low, uint8_t* high, Vector v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(low), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(high), _mm256_extracti128_si256(v, 1));
}
// The low 8 bytes of each lane, one after the other.
inline void storeLowHalves(uint8_t* p, Vector v) {
  const Vector halves = _mm256_permute4x64_epi64(v, 0x08);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(halves));
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
inline Vector zeroVector() {
  return _mm256_setzero_si256();
}
// Two vectors that were packed lane by lane, in the order of memory.
inline Vector inOrder(Vector v) {
  return _mm256_permute4x64_epi64(v, 0xD8);
}
inline Vector both(Vector a, Vector b) {
  return _mm256_and_si256(a, b);
}
inline Vector either(Vector a, Vector b) {
  return _mm256_or_si256(a, b);
}
inline Vector differing(Vector a, Vector b) {
  return _mm256_xor_si256(a, b);
}
// The bytes of `yes` where those of the mask are 255, of `no` where they are 0.
inline Vector choose(Vector mask, Vector yes, Vector no) {
  return _mm256_blendv_epi8(no, yes, mask);
}
// Each lane moved up by a byte as a whole.
inline Vector raiseByByte(Vector v) {
  return _mm256_slli_si256(v, 1);
}

#else

using Vector = __m128i;
using Floats = __m128;

inline Vector load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const Vector*>(p));
}
inline Vector loadAligned(const uint8_t* p) {
  return _mm_load_si128(reinterpret_cast<const Vector*>(p));
}
inline Vector loadLanes(const void* low, const void*) {
  return _mm_loadu_si128(static_cast<const Vector*>(low));
}
inline Vector repeatLane(__m128i v) {
  return v;
}
inline void store(uint8_t* p, Vector v) {
  _mm_storeu_si128(reinterpret_cast<Vector*>(p), v);
}
inline void storeLanes(uint8_t* low, uint8_t*, Vector v) {
  store(low, v);
}
inline void storeLowHalves(uint8_t* p, Vector v) {
  _mm_storel_epi64(reinterpret_cast<Vector*>(p), v);
}
inline void stream(uint8_t* p, Vector v) {
  _mm_stream_si128(reinterpret_cast<Vector*>(p), v);
}
inline Vector zeroVector() {
  return _mm_setzero_si128();
}
inline Vector inOrder(Vector v) {
  return v;
}
inline Vector both(Vector a, Vector b) {
  return _mm_and_si128(a, b);
}
inline Vector either(Vector a, Vector b) {
  return _mm_or_si128(a, b);
}
inline Vector differing(Vector a, Vector b) {
  return _mm_xor_si128(a, b);
}
inline Vector choose(Vector mask, Vector yes, Vector no) {
  return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}
inline Vector raiseByByte(Vector v) {
  return _mm_slli_si128(v, 1);
}

#endif

constexpr ptrdiff_t vectorBytes = sizeof(Vector);
constexpr ptrdiff_t laneCount = vectorBytes / 16;
// Where the second lane is `distance` away from the first: 0 where there is none.
constexpr ptrdiff_t toSecondLane(ptrdiff_t distance) {
  return (laneCount - 1) * distance;
}

inline Vector repeatLane(const void* bytes) {
  return repeatLane(_mm_loadu_si128(static_cast<const __m128i*>(bytes)));
}
inline Vector splat8(int8_t v) {
  return KVL_WIDE(set1_epi8)(v);
}
inline Vector splat16(int16_t v) {
  return KVL_WIDE(set1_epi16)(v);
}
inline Vector splat32(int32_t v) {
  return KVL_WIDE(set1_epi32)(v);
}
inline Floats splat(float v) {
  return KVL_WIDE(set1_ps)(v);
}

inline Vector unpackLow8(Vector a, Vector b) {
  return KVL_WIDE(unpacklo_epi8)(a, b);
}
inline Vector unpackHigh8(Vector a, Vector b) {
  return KVL_WIDE(unpackhi_epi8)(a, b);
}
inline Vector unpackLow16(Vector a, Vector b) {
  return KVL_WIDE(unpacklo_epi16)(a, b);
}
inline Vector unpackHigh16(Vector a, Vector b) {
  return KVL_WIDE(unpackhi_epi16)(a, b);
}
inline Vector unpackLow32(Vector a, Vector b) {
  return KVL_WIDE(unpacklo_epi32)(a, b);
}
inline Vector unpackHigh32(Vector a, Vector b) {
  return KVL_WIDE(unpackhi_epi32)(a, b);
}
inline Vector unpackLow64(Vector a, Vector b) {
  return KVL_WIDE(unpacklo_epi64)(a, b);
}
inline Vector unpackHigh64(Vector a, Vector b) {
  return KVL_WIDE(unpackhi_epi64)(a, b);
}
inline Vector packSigned16(Vector a, Vector b) {
  return KVL_WIDE(packs_epi16)(a, b);
}
inline Vector packUnsigned16(Vector a, Vector b) {
  return KVL_WIDE(packus_epi16)(a, b);
}
inline Vector packSigned32(Vector a, Vector b) {
  return KVL_WIDE(packs_epi32)(a, b);
}
// Bytes of `order` from 128 on give 0.
inline Vector shuffleBytes(Vector v, Vector order) {
  return KVL_WIDE(shuffle_epi8)(v, order);
}

// Unless named Signed or Unsigned, which saturate, sums and differences wrap.
inline Vector add8(Vector a, Vector b) {
  return KVL_WIDE(add_epi8)(a, b);
}
inline Vector addUnsigned8(Vector a, Vector b) {
  return KVL_WIDE(adds_epu8)(a, b);
}
inline Vector subtract8(Vector a, Vector b) {
  return KVL_WIDE(sub_epi8)(a, b);
}
inline Vector subtractUnsigned8(Vector a, Vector b) {
  return KVL_WIDE(subs_epu8)(a, b);
}
// Halves are rounded up.
inline Vector average8(Vector a, Vector b) {
  return KVL_WIDE(avg_epu8)(a, b);
}
inline Vector equal8(Vector a, Vector b) {
  return KVL_WIDE(cmpeq_epi8)(a, b);
}
// a[2 i] * b[2 i] + a[2 i + 1] * b[2 i + 1], a unsigned and b signed, saturated to 16 signed bits.
inline Vector multiplyAddPairs8(Vector a, Vector b) {
  return KVL_WIDE(maddubs_epi16)(a, b);
}
// The highest bit of each byte.
inline uint32_t signsOfBytes(Vector v) {
  return static_cast<uint32_t>(KVL_WIDE(movemask_epi8)(v));
}
inline bool allAre(Vector v, int8_t value) {
  constexpr uint32_t all = vectorBytes == 32 ? 0xFFFFFFFFu : 0xFFFFu;
  return signsOfBytes(equal8(v, splat8(value))) == all;
}

inline Vector add16(Vector a, Vector b) {
  return KVL_WIDE(add_epi16)(a, b);
}
inline Vector addSigned16(Vector a, Vector b) {
  return KVL_WIDE(adds_epi16)(a, b);
}
inline Vector addUnsigned16(Vector a, Vector b) {
  return KVL_WIDE(adds_epu16)(a, b);
}
inline Vector subtract16(Vector a, Vector b) {
  return KVL_WIDE(sub_epi16)(a, b);
}
inline Vector multiplyLow16(Vector a, Vector b) {
  return KVL_WIDE(mullo_epi16)(a, b);
}
inline Vector multiplyHigh16(Vector a, Vector b) {
  return KVL_WIDE(mulhi_epi16)(a, b);
}
inline Vector multiplyHighUnsigned16(Vector a, Vector b) {
  return KVL_WIDE(mulhi_epu16)(a, b);
}
// a * b / 2^15, rounded to nearest, halves up.
inline Vector multiplyRounded16(Vector a, Vector b) {
  return KVL_WIDE(mulhrs_epi16)(a, b);
}
inline Vector multiplyAddPairs16(Vector a, Vector b) {
  return KVL_WIDE(madd_epi16)(a, b);
}
// a where `sign` is above 0, -a where it is below, 0 where it is 0.
inline Vector withSign16(Vector a, Vector sign) {
  return KVL_WIDE(sign_epi16)(a, sign);
}
template <int bits>
inline Vector shiftLeft16(Vector v) {
  return KVL_WIDE(slli_epi16)(v, bits);
}
template <int bits>
inline Vector shiftRight16(Vector v) {
  return KVL_WIDE(srai_epi16)(v, bits);
}
template <int bits>
inline Vector shiftRightUnsigned16(Vector v) {
  return KVL_WIDE(srli_epi16)(v, bits);
}

inline Vector add32(Vector a, Vector b) {
  return KVL_WIDE(add_epi32)(a, b);
}
inline Vector subtract32(Vector a, Vector b) {
  return KVL_WIDE(sub_epi32)(a, b);
}
inline Vector equal32(Vector a, Vector b) {
  return KVL_WIDE(cmpeq_epi32)(a, b);
}
template <int bits>
inline Vector shiftLeft32(Vector v) {
  return KVL_WIDE(slli_epi32)(v, bits);
}
template <int bits>
inline Vector shiftRight32(Vector v) {
  return KVL_WIDE(srai_epi32)(v, bits);
}
inline Floats toFloats(Vector v) {
  return KVL_WIDE(cvtepi32_ps)(v);
}
// Halves to even.
inline Vector toNearest32(Floats v) {
  return KVL_WIDE(cvtps_epi32)(v);
}
inline Vector add64(Vector a, Vector b) {
  return KVL_WIDE(add_epi64)(a, b);
}
template <int bits>
inline Vector shiftRightUnsigned64(Vector v) {
  return KVL_WIDE(srli_epi64)(v, bits);
}

}  // namespace
}  // namespace kvl
