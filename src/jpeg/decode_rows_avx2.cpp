#include <cstring>

#include "core/wide_vector.h"
#include "jpeg/decode_rows.h"

namespace kvl {
namespace {

constexpr ptrdiff_t blockPixels = 32;
constexpr ptrdiff_t bytesPerPixel = 3;

// 16-bit lanes, ordered as the byte unpacks leave them.
struct Words {
  __m256i low, high;
};

inline Words threeToOne(__m256i three, __m256i one) {
  const __m256i weights = _mm256_set1_epi16(1 << 8 | 3);
  return {_mm256_maddubs_epi16(_mm256_unpacklo_epi8(three, one), weights),
          _mm256_maddubs_epi16(_mm256_unpackhi_epi8(three, one), weights)};
}

inline __m256i interleavedBytes(__m256i even, __m256i odd) {
  return _mm256_or_si256(even, _mm256_slli_epi16(odd, 8));
}

// 64 bytes out of lanes that hold two each.
inline void storePairs(uint8_t* out, __m256i low, __m256i high) {
  store(out, _mm256_permute2x128_si256(low, high, 0x20));
  store(out + 32, _mm256_permute2x128_si256(low, high, 0x31));
}

template <int shift>
inline __m256i rounded(__m256i sum, int bias) {
  return _mm256_srli_epi16(_mm256_add_epi16(sum, _mm256_set1_epi16(static_cast<short>(bias))),
                           shift);
}

void doubleRow(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += 32) {
    const __m256i here = load(in + i);
    const Words left = threeToOne(here, load(in + i - 1));
    const Words right = threeToOne(here, load(in + i + 1));
    storePairs(out + 2 * i, interleavedBytes(rounded<2>(left.low, 1), rounded<2>(right.low, 2)),
               interleavedBytes(rounded<2>(left.high, 1), rounded<2>(right.high, 2)));
  }
}

void blendRows(const uint8_t* in, const uint8_t* other, int bias, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += 32) {
    const Words sum = threeToOne(load(in + i), load(other + i));
    store(out + i, _mm256_packus_epi16(rounded<2>(sum.low, bias), rounded<2>(sum.high, bias)));
  }
}

inline __m256i doubledLanes(__m256i left, __m256i here, __m256i right) {
  const __m256i three = _mm256_add_epi16(here, _mm256_add_epi16(here, here));
  return interleavedBytes(rounded<4>(_mm256_add_epi16(three, left), 8),
                          rounded<4>(_mm256_add_epi16(three, right), 7));
}

void doubleBlended(const uint8_t* in, const uint8_t* other, uint8_t* out, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; i += 32) {
    const Words left = threeToOne(load(in + i - 1), load(other + i - 1));
    const Words here = threeToOne(load(in + i), load(other + i));
    const Words right = threeToOne(load(in + i + 1), load(other + i + 1));
    storePairs(out + 2 * i, doubledLanes(left.low, here.low, right.low),
               doubledLanes(left.high, here.high, right.high));
  }
}

// Byte k of 48 is component k % 3 of pixel k / 3: where `component` comes from in register `part`.
template <int component, int part>
inline __m256i spreadMask() {
  struct Mask {
    int8_t at[16];
  };
  static constexpr Mask mask = [] {
    Mask m{};
    for (int j = 0; j < 16; ++j) {
      const int k = 16 * part + j;
      m.at[j] = static_cast<int8_t>(k % 3 == component ? k / 3 : -1);
    }
    return m;
  }();
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(mask.at)));
}

template <int part>
inline __m256i interleavePart(__m256i b, __m256i g, __m256i r) {
  return _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(b, spreadMask<0, part>()),
                                         _mm256_shuffle_epi8(g, spreadMask<1, part>())),
                         _mm256_shuffle_epi8(r, spreadMask<2, part>()));
}

inline void storePixels(uint8_t* bgr, __m256i b, __m256i g, __m256i r) {
  const __m256i first = interleavePart<0>(b, g, r);
  const __m256i second = interleavePart<1>(b, g, r);
  const __m256i third = interleavePart<2>(b, g, r);
  store(bgr, _mm256_permute2x128_si256(first, second, 0x20));
  store(bgr + 32, _mm256_permute2x128_si256(third, first, 0x30));
  store(bgr + 64, _mm256_permute2x128_si256(second, third, 0x31));
}

struct Pixels {
  __m256i b, g, r;
};

// ((factor * chroma + 32768) >> 16) for a factor of 16 signed bits: the product's half is kept as
// one more bit and rounded away.
inline __m256i scaled(__m256i chroma, int factor) {
  const __m256i product = _mm256_mulhi_epi16(_mm256_add_epi16(chroma, chroma),
                                             _mm256_set1_epi16(static_cast<short>(factor)));
  return _mm256_srai_epi16(_mm256_add_epi16(product, _mm256_set1_epi16(1)), 1);
}

inline __m256i greenOf(__m256i pairs) {
  const __m256i factors = _mm256_set1_epi32(18734 << 16 | (-22554 & 0xFFFF));
  const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(pairs, factors), _mm256_set1_epi32(32768));
  return _mm256_srai_epi32(sum, 16);
}

// The factors of the formula less the whole ones: 91881 = 65536 + 26345, 116130 = 131072 - 14942,
// -46802 = -65536 + 18734.
inline Pixels convertSixteen(__m256i y, __m256i cb, __m256i cr) {
  const __m256i middle = _mm256_set1_epi16(128);
  const __m256i u = _mm256_sub_epi16(cb, middle);
  const __m256i v = _mm256_sub_epi16(cr, middle);
  const __m256i red = _mm256_add_epi16(_mm256_add_epi16(y, v), scaled(v, 26345));
  const __m256i blue =
      _mm256_add_epi16(_mm256_add_epi16(y, _mm256_add_epi16(u, u)), scaled(u, -14942));
  const __m256i mixed = _mm256_packs_epi32(greenOf(_mm256_unpacklo_epi16(u, v)),
                                           greenOf(_mm256_unpackhi_epi16(u, v)));
  const __m256i green = _mm256_add_epi16(_mm256_sub_epi16(y, v), mixed);
  return {blue, green, red};
}

inline void convertBlock(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* bgr) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i luma = load(y), u = load(cb), v = load(cr);
  const Pixels low = convertSixteen(_mm256_unpacklo_epi8(luma, zero), _mm256_unpacklo_epi8(u, zero),
                                    _mm256_unpacklo_epi8(v, zero));
  const Pixels high = convertSixteen(_mm256_unpackhi_epi8(luma, zero),
                                     _mm256_unpackhi_epi8(u, zero), _mm256_unpackhi_epi8(v, zero));
  storePixels(bgr, _mm256_packus_epi16(low.b, high.b), _mm256_packus_epi16(low.g, high.g),
              _mm256_packus_epi16(low.r, high.r));
}

void toRgb(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* bgr, ptrdiff_t count) {
  ptrdiff_t i = 0;
  for (; i + blockPixels <= count; i += blockPixels) {
    convertBlock(y + i, cb + i, cr + i, bgr + i * bytesPerPixel);
  }
  if (i == count) return;
  uint8_t rest[blockPixels * bytesPerPixel];
  convertBlock(y + i, cb + i, cr + i, rest);
  memcpy(bgr + i * bytesPerPixel, rest, static_cast<size_t>((count - i) * bytesPerPixel));
}

void interleave(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* bgr,
                ptrdiff_t count) {
  ptrdiff_t i = 0;
  for (; i + blockPixels <= count; i += blockPixels) {
    storePixels(bgr + i * bytesPerPixel, load(b + i), load(g + i), load(r + i));
  }
  if (i == count) return;
  uint8_t rest[blockPixels * bytesPerPixel];
  storePixels(rest, load(b + i), load(g + i), load(r + i));
  memcpy(bgr + i * bytesPerPixel, rest, static_cast<size_t>((count - i) * bytesPerPixel));
}

}  // namespace

void addDecodeRowsAvx2(DecodeRowKernels& kernels) {
  kernels = {doubleRow, blendRows, doubleBlended, toRgb, interleave};
}

}  // namespace kvl
