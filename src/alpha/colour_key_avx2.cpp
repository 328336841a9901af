#include <immintrin.h>

#include <cstring>

#include "alpha/colour_key_kernels.h"

namespace kvl {
namespace {

constexpr int32_t blockPixels = 16;
constexpr int32_t blockBytes = 48;

// Sixteen 16-bit lanes. What has 32 bits comes in two halves, as the unpacking instructions leave
// them, and packing restores the order.
using Words = __m256i;
struct Halves {
  __m256i low;
  __m256i high;
};

inline __m128i loadHalf(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void storeHalf(uint8_t* p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
inline Words splat16(int32_t v) {
  return _mm256_set1_epi16(static_cast<int16_t>(v));
}
inline Words select(Words mask, Words yes, Words no) {
  return _mm256_blendv_epi8(no, yes, mask);
}
inline bool isZero(Words v) {
  return _mm256_testz_si256(v, v) != 0;
}
inline Halves widenUnsigned(Words v) {
  const Words zero = _mm256_setzero_si256();
  return {_mm256_unpacklo_epi16(v, zero), _mm256_unpackhi_epi16(v, zero)};
}
inline __m128i toBytes(Words v) {
  return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// Byte j of the three vectors of a block belongs to the components j % 3, (j + 1) % 3 and
// (j + 2) % 3, so each component is spread over all bytes without a clash.
struct ComponentOrder {
  alignas(16) uint8_t isThird[3][16];  // bytes j with j % 3 of 0, 1 and 2
  alignas(16) uint8_t split[3][16];
  alignas(16) uint8_t join[3][16];
};

constexpr ComponentOrder componentOrder() {
  ComponentOrder order{};
  for (int j = 0; j < 16; ++j) {
    for (int c = 0; c < 3; ++c) {
      order.isThird[c][j] = j % 3 == c ? 0xFF : 0;
      order.split[c][j] = static_cast<uint8_t>((3 * j + c) % 16);
      const int vector = (c - j % 3 + 3) % 3;
      order.join[c][j] = static_cast<uint8_t>((16 * vector + j) / 3);
    }
  }
  return order;
}

constexpr ComponentOrder order = componentOrder();

inline __m128i pick(__m128i third0, __m128i third1, __m128i third2) {
  const __m128i two = _mm_blendv_epi8(third0, third1, loadHalf(order.isThird[1]));
  return _mm_blendv_epi8(two, third2, loadHalf(order.isThird[2]));
}

// A byte a pixel.
struct Planes {
  __m128i blue;
  __m128i green;
  __m128i red;
};

inline Planes splitPixels(const uint8_t* pixels) {
  const __m128i a = loadHalf(pixels), b = loadHalf(pixels + 16), c = loadHalf(pixels + 32);
  return {_mm_shuffle_epi8(pick(a, c, b), loadHalf(order.split[0])),
          _mm_shuffle_epi8(pick(b, a, c), loadHalf(order.split[1])),
          _mm_shuffle_epi8(pick(c, b, a), loadHalf(order.split[2]))};
}

inline void joinPixels(const Planes& planes, uint8_t* pixels) {
  const __m128i b = _mm_shuffle_epi8(planes.blue, loadHalf(order.join[0]));
  const __m128i g = _mm_shuffle_epi8(planes.green, loadHalf(order.join[1]));
  const __m128i r = _mm_shuffle_epi8(planes.red, loadHalf(order.join[2]));
  storeHalf(pixels, pick(b, g, r));
  storeHalf(pixels + 16, pick(g, r, b));
  storeHalf(pixels + 32, pick(r, b, g));
}

struct Colours {
  Words blue;
  Words green;
  Words red;
};

inline Colours widen(const Planes& planes) {
  return {_mm256_cvtepu8_epi16(planes.blue), _mm256_cvtepu8_epi16(planes.green),
          _mm256_cvtepu8_epi16(planes.red)};
}

// 32-bit lanes in single precision.
struct Reals {
  __m256 low;
  __m256 high;
};

inline Reals toReals(const Halves& v) {
  return {_mm256_cvtepi32_ps(v.low), _mm256_cvtepi32_ps(v.high)};
}
inline Reals times(const Reals& v, float factor) {
  return {_mm256_mul_ps(v.low, _mm256_set1_ps(factor)),
          _mm256_mul_ps(v.high, _mm256_set1_ps(factor))};
}

// Truncated. The quotient of integers below 2^16 by one below 2^9 cannot round up to the next
// integer, which is at least 2^-9 away.
inline Words divide(const Reals& numerator, const Reals& denominator) {
  return _mm256_packs_epi32(_mm256_cvttps_epi32(_mm256_div_ps(numerator.low, denominator.low)),
                            _mm256_cvttps_epi32(_mm256_div_ps(numerator.high, denominator.high)));
}

// Both are exact for all 16 bits.
inline Words divideBy255(Words v) {
  return _mm256_srli_epi16(_mm256_mulhi_epu16(v, splat16(0x8081)), 7);
}
inline Words divideBy30(Words v) {
  return _mm256_srli_epi16(_mm256_mulhi_epu16(v, splat16(0x8889)), 4);
}

struct Thresholds {
  Words keyBlue, keyGreen, keyRed;
  __m256i low, high, range;
  __m256 inverseRange;
};

inline Thresholds thresholds(const ColourKey& key) {
  const int32_t range = key.high > key.low ? key.high - key.low : 1;
  return {splat16(key.key.blue),
          splat16(key.key.green),
          splat16(key.key.red),
          _mm256_set1_epi32(key.low),
          _mm256_set1_epi32(key.high),
          _mm256_set1_epi32(range),
          _mm256_set1_ps(1 / static_cast<float>(range))};
}

inline Halves squaredDistances(const Colours& c, const Thresholds& t) {
  const Words blue = _mm256_sub_epi16(t.keyBlue, c.blue);
  const Words green = _mm256_sub_epi16(t.keyGreen, c.green);
  const Words red = _mm256_sub_epi16(t.keyRed, c.red);
  const auto squares = [](__m256i pairs) { return _mm256_madd_epi16(pairs, pairs); };
  const Words zero = _mm256_setzero_si256();
  return {_mm256_add_epi32(squares(_mm256_unpacklo_epi16(blue, green)),
                           squares(_mm256_unpacklo_epi16(red, zero))),
          _mm256_add_epi32(squares(_mm256_unpackhi_epi16(blue, green)),
                           squares(_mm256_unpackhi_epi16(red, zero)))};
}

// (distance - low) * 255 / range where it is 0 .. 255. The product with the reciprocal may be one
// off.
inline __m256i ramp(__m256i distance, const Thresholds& t) {
  const __m256i above = _mm256_sub_epi32(distance, t.low);
  const __m256i numerator = _mm256_sub_epi32(_mm256_slli_epi32(above, 8), above);
  const __m256i guess =
      _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(numerator), t.inverseRange));
  const __m256i rest = _mm256_sub_epi32(numerator, _mm256_mullo_epi32(guess, t.range));
  const __m256i tooLarge = _mm256_srai_epi32(rest, 31);
  const __m256i tooSmall = _mm256_cmpgt_epi32(t.range, rest);
  return _mm256_add_epi32(_mm256_add_epi32(guess, tooLarge),
                          _mm256_add_epi32(tooSmall, _mm256_set1_epi32(1)));
}

inline Words alphas(const Halves& distance, const Thresholds& t) {
  const Halves keyed = {_mm256_cmpgt_epi32(distance.low, t.low),
                        _mm256_cmpgt_epi32(distance.high, t.low)};
  const Halves below = {_mm256_cmpgt_epi32(t.high, distance.low),
                        _mm256_cmpgt_epi32(t.high, distance.high)};
  const Words opaque = _mm256_packs_epi32(_mm256_andnot_si256(below.low, keyed.low),
                                          _mm256_andnot_si256(below.high, keyed.high));
  const Words alpha = _mm256_srli_epi16(opaque, 8);
  const Halves soft = {_mm256_and_si256(below.low, keyed.low),
                       _mm256_and_si256(below.high, keyed.high)};
  if (isZero(_mm256_or_si256(soft.low, soft.high))) return alpha;
  return _mm256_or_si256(alpha,
                         _mm256_packs_epi32(_mm256_and_si256(soft.low, ramp(distance.low, t)),
                                            _mm256_and_si256(soft.high, ramp(distance.high, t))));
}

// `spread` is 1 where there is none.
inline Words hueOf(const Colours& c, Words highest, const Reals& spread) {
  const Words isRed = _mm256_cmpeq_epi16(c.red, highest);
  const Words isGreen = _mm256_cmpeq_epi16(c.green, highest);
  const Words other =
      select(isGreen, _mm256_sub_epi16(c.blue, c.red), _mm256_sub_epi16(c.red, c.green));
  const Words difference = select(isRed, _mm256_sub_epi16(c.green, c.blue), other);
  const Words sector = _mm256_andnot_si256(isRed, select(isGreen, splat16(120), splat16(240)));
  // Unpacked without a sign, which the product restores.
  const Halves words = widenUnsigned(difference);
  const Reals sixtieths = toReals(
      {_mm256_madd_epi16(words.low, splat16(60)), _mm256_madd_epi16(words.high, splat16(60))});
  const Words hue = _mm256_add_epi16(divide(sixtieths, spread), sector);
  return _mm256_add_epi16(hue, _mm256_and_si256(_mm256_srai_epi16(hue, 15), splat16(hues)));
}

inline Words distanceFromKey(Words hue, const SpillRamp& ramp) {
  const Words apart = _mm256_abs_epi16(_mm256_sub_epi16(hue, splat16(ramp.keyHue)));
  return _mm256_min_epi16(apart, _mm256_sub_epi16(splat16(hues), apart));
}

// For distances below the reach; others may get any factor. A shuffle gives 0 where its index has
// the top bit, which here all have that lie outside its sixteen distances.
inline Words spillFactors(Words distance, const SpillRamp& ramp) {
  const __m256i at = _mm256_broadcastsi128_si256(toBytes(distance));
  __m256i bytes = _mm256_setzero_si256();
  for (int32_t i = 0; i < SpillRamp::blocks; ++i) {
    const __m256i inBlock = _mm256_sub_epi8(at, _mm256_set1_epi8(static_cast<int8_t>(16 * i)));
    const __m256i index = _mm256_adds_epu8(inBlock, _mm256_set1_epi8(0x70));
    const __m256i block = _mm256_load_si256(reinterpret_cast<const __m256i*>(ramp.bytes[i]));
    bytes = _mm256_or_si256(bytes, _mm256_shuffle_epi8(block, index));
  }
  const Words low = _mm256_cvtepu8_epi16(_mm256_castsi256_si128(bytes));
  const Words high = _mm256_cvtepu8_epi16(_mm256_extracti128_si256(bytes, 1));
  return _mm256_or_si256(low, _mm256_slli_epi16(high, 8));
}

// p + (q - p) * w / 60 with q - p = 2 * u, where w rises from 0 to 60 and falls again with the
// distance between the hue and that of the pure channel.
inline Words channel(Words hueDistance, Words p, Words u) {
  const Words w = _mm256_min_epi16(_mm256_subs_epu16(splat16(120), hueDistance), splat16(60));
  return _mm256_add_epi16(p, divideBy30(_mm256_mullo_epi16(u, w)));
}

inline Planes fromHsl(Words hue, Words saturation, Words lightness) {
  // q = L + u and p = L - u, with u the share of the saturation that the lightness has room for.
  const Words isLight = _mm256_cmpgt_epi16(lightness, splat16(128));
  const Words product = divideBy255(_mm256_mullo_epi16(saturation, lightness));
  const Words u = select(isLight, _mm256_sub_epi16(saturation, product), product);
  const Words p = _mm256_sub_epi16(lightness, u);
  const Words fromRed = _mm256_min_epi16(hue, _mm256_sub_epi16(splat16(hues), hue));
  const Words fromGreen = _mm256_abs_epi16(_mm256_sub_epi16(hue, splat16(120)));
  const Words fromBlue = _mm256_abs_epi16(_mm256_sub_epi16(hue, splat16(240)));
  return {toBytes(channel(fromBlue, p, u)), toBytes(channel(fromGreen, p, u)),
          toBytes(channel(fromRed, p, u))};
}

inline void suppressSpill(const Planes& planes, const Colours& c, Words alpha,
                          const SpillRamp& ramp, uint8_t* pixels) {
  const Words highest =
      _mm256_cvtepu8_epi16(_mm_max_epu8(_mm_max_epu8(planes.blue, planes.green), planes.red));
  const Words lowest =
      _mm256_cvtepu8_epi16(_mm_min_epu8(_mm_min_epu8(planes.blue, planes.green), planes.red));
  const Words spread = _mm256_sub_epi16(highest, lowest);
  const Reals divisor = toReals(widenUnsigned(_mm256_max_epi16(spread, splat16(1))));
  const Words hue = hueOf(c, highest, divisor);
  const Words distance = distanceFromKey(hue, ramp);
  // Greys stay as they are anyway.
  const Words isOpen = _mm256_cmpgt_epi16(_mm256_min_epi16(alpha, spread), _mm256_setzero_si256());
  const Words spilt = _mm256_and_si256(_mm256_cmpgt_epi16(splat16(ramp.reach), distance), isOpen);
  if (isZero(spilt)) return;

  const Words sum = _mm256_add_epi16(highest, lowest);
  const Words lightness = _mm256_srli_epi16(sum, 1);
  const Words isLight = _mm256_cmpgt_epi16(lightness, splat16(128));
  const Words room = select(isLight, _mm256_sub_epi16(splat16(510), sum), sum);
  // White alone has no room, and no spread.
  const Reals roomOrOne = toReals(widenUnsigned(_mm256_max_epi16(room, splat16(1))));
  const Words saturation = divide(times(divisor, 255), roomOrOne);
  const Words kept = _mm256_mulhi_epu16(spillFactors(distance, ramp), saturation);
  const Planes clean = fromHsl(hue, kept, lightness);
  const __m128i mask =
      _mm_packs_epi16(_mm256_castsi256_si128(spilt), _mm256_extracti128_si256(spilt, 1));
  joinPixels({_mm_blendv_epi8(planes.blue, clean.blue, mask),
              _mm_blendv_epi8(planes.green, clean.green, mask),
              _mm_blendv_epi8(planes.red, clean.red, mask)},
             pixels);
}

inline void keyBlock(uint8_t* mask, uint8_t* pixels, const Thresholds& t, const SpillRamp& ramp) {
  const Planes planes = splitPixels(pixels);
  const Colours colours = widen(planes);
  const Words alpha = alphas(squaredDistances(colours, t), t);
  storeHalf(mask, toBytes(alpha));
  if (ramp.reach > 0 && !isZero(alpha)) suppressSpill(planes, colours, alpha, ramp, pixels);
}

void keyRow(uint8_t* mask, uint8_t* pixels, int32_t count, const ColourKey& key) {
  const Thresholds t = thresholds(key);
  int32_t x = 0;
  for (; x <= count - blockPixels; x += blockPixels) {
    keyBlock(mask + x, pixels, t, key.ramp);
    pixels += blockBytes;
  }
  if (x == count) return;
  const auto rest = static_cast<size_t>(count - x);
  uint8_t restOfPixels[blockBytes] = {}, restOfMask[blockPixels];
  std::memcpy(restOfPixels, pixels, 3 * rest);
  keyBlock(restOfMask, restOfPixels, t, key.ramp);
  std::memcpy(pixels, restOfPixels, 3 * rest);
  std::memcpy(mask + x, restOfMask, rest);
}

}  // namespace

void addColourKeyAvx2(ColourKeyKernels& kernels) {
  kernels = {keyRow};
}

}  // namespace kvl
