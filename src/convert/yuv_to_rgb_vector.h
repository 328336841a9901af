// The vector bodies of the conversion from YUV to RGB, at the width of the file that includes them.
#pragma once

#include "convert/yuv_to_rgb_kernels.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

// A sample s less its centre is multiplied as a word of 256 * (s - centre): then the rounded high
// part of a product is (256 * (s - centre) * f + 2^14) >> 15 = ((s - centre) * f + 64) >> 7.
#if defined(__AVX2__)
// Half a vector of bytes, half of them in the low half of each lane.
inline Vector loadHalf(const uint8_t* p) {
  const __m128i half = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  return _mm256_permute4x64_epi64(_mm256_castsi128_si256(half), 0x10);
}
// Lane i of the result is lane 2 * i, or 2 * i + 1, of the four.
inline Vector evenLanes(Vector a, Vector b) {
  return _mm256_permute2x128_si256(a, b, 0x20);
}
inline Vector oddLanes(Vector a, Vector b) {
  return _mm256_permute2x128_si256(a, b, 0x31);
}
#else
inline Vector loadHalf(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}
inline Vector evenLanes(Vector a, Vector) {
  return a;
}
inline Vector oddLanes(Vector, Vector b) {
  return b;
}
#endif

// Words of a vector's worth of pixels: of the first and of the last eight of each lane.
struct Words {
  Vector low;
  Vector high;
};

inline Words upperBytes(Vector bytes) {
  return {unpackLow8(zeroVector(), bytes), unpackHigh8(zeroVector(), bytes)};
}

struct Factors {
  explicit Factors(const YuvToRgbMatrix& m)
      : luma(splat16(m.lumaFactor)),
        redFromV(splat16(m.redFromV)),
        greenFromU(splat16(m.greenFromU)),
        greenFromV(splat16(m.greenFromV)),
        blueFromU(splat16(m.blueFromU)),
        bias(splat16(m.lumaBias)) {}

  Vector luma, redFromV, greenFromU, greenFromV, blueFromU, bias;
};

// What chroma adds to each component.
struct Colours {
  Vector blue, green, red;
};

inline Colours coloursOf(Vector u, Vector v, const Factors& f) {
  return {multiplyRounded16(u, f.blueFromU),
          addSigned16(multiplyRounded16(u, f.greenFromU), multiplyRounded16(v, f.greenFromV)),
          multiplyRounded16(v, f.redFromV)};
}

// Words of one sample for two pixels.
inline Words twice(Vector words) {
  return {unpackLow16(words, words), unpackHigh16(words, words)};
}

inline Vector component(const Words& luma, const Words& colour) {
  return packUnsigned16(shiftRight16<6>(addSigned16(luma.low, colour.low)),
                        shiftRight16<6>(addSigned16(luma.high, colour.high)));
}

// Places the bytes of three components in turn. A shuffle brings each byte of a component to where
// one of three vectors wants it, and each vector takes every third byte of each.
class Interleaver {
 public:
  void write(uint8_t* out, Vector blue, Vector green, Vector red) const {
    blue = shuffleBytes(blue, blue_);
    green = shuffleBytes(green, green_);
    red = shuffleBytes(red, red_);
    const Vector first = choose(third_, red, choose(second_, green, blue));
    const Vector middle = choose(third_, blue, choose(second_, red, green));
    const Vector last = choose(third_, green, choose(second_, blue, red));
#if defined(__AVX2__)
    store(out, evenLanes(first, middle));
    store(out + vectorBytes, _mm256_blend_epi32(last, first, 0xF0));
    store(out + 2 * vectorBytes, oddLanes(middle, last));
#else
    store(out, first);
    store(out + vectorBytes, middle);
    store(out + 2 * vectorBytes, last);
#endif
  }

 private:
  static constexpr int8_t blueOrder[] = {0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10, 5};
  static constexpr int8_t greenOrder[] = {5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10};
  static constexpr int8_t redOrder[] = {10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15};
  static constexpr int8_t second[] = {0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0};
  static constexpr int8_t third[] = {0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0};

  Vector blue_ = repeatLane(blueOrder), green_ = repeatLane(greenOrder),
         red_ = repeatLane(redOrder);
  Vector second_ = repeatLane(second), third_ = repeatLane(third);
};

// Luma in words, and chroma in words of one for two pixels.
struct SharedChroma {
  Words luma;
  Vector u, v;
};

// The layouts. Each loads the samples of the vectorBytes pixels from an even pixel x on.
class HalfPlanes {
 public:
  explicit HalfPlanes(const YuvToRgbMatrix& m)
      : y_(splat8(-128)),
        u_(splat8(static_cast<int8_t>(m.uCentre))),
        v_(splat8(static_cast<int8_t>(m.vCentre))) {}

  SharedChroma load(const YuvRow& row, ptrdiff_t x) const {
    return {upperBytes(subtract8(kvl::load(row.y + x), y_)),
            unpackLow8(zeroVector(), subtract8(loadHalf(row.u + x / 2), u_)),
            unpackLow8(zeroVector(), subtract8(loadHalf(row.v + x / 2), v_))};
  }

  static YuvToRgbKernel rest() { return scalarYuvToRgb().half; }
  static YuvRow from(const YuvRow& row, ptrdiff_t x) {
    return {row.y + x, row.u + x / 2, row.v + x / 2};
  }

 private:
  Vector y_, u_, v_;
};

class Nv12 {
 public:
  explicit Nv12(const YuvToRgbMatrix& m)
      : y_(splat8(-128)), uv_(splat16(static_cast<int16_t>(m.uCentre | m.vCentre << 8))) {}

  SharedChroma load(const YuvRow& row, ptrdiff_t x) const {
    const Vector pairs = subtract8(kvl::load(row.u + x), uv_);
    return {upperBytes(subtract8(kvl::load(row.y + x), y_)), shiftLeft16<8>(pairs),
            both(pairs, splat16(-256))};
  }

  static YuvToRgbKernel rest() { return scalarYuvToRgb().nv12; }
  static YuvRow from(const YuvRow& row, ptrdiff_t x) { return {row.y + x, row.u + x, nullptr}; }

 private:
  Vector y_, uv_;
};

// Words of four bytes, luma at y and y + 2, chroma at u and v.
template <int y, int u, int v>
class Packed {
 public:
  explicit Packed(const YuvToRgbMatrix& m)
      : centres_(splat32(static_cast<int32_t>(128u << (8 * y) | 128u << (8 * y + 16) |
                                              uint32_t{m.uCentre} << (8 * u) |
                                              uint32_t{m.vCentre} << (8 * v)))),
        chroma_(repeatLane(chromaOrder)) {}

  SharedChroma load(const YuvRow& row, ptrdiff_t x) const {
    const Vector a = subtract8(kvl::load(row.y + 2 * x), centres_);
    const Vector b = subtract8(kvl::load(row.y + 2 * x + vectorBytes), centres_);
    const Vector low = evenLanes(a, b), high = oddLanes(a, b);
    const Vector chromaLow = shuffleBytes(low, chroma_), chromaHigh = shuffleBytes(high, chroma_);
    return {y == 0 ? Words{shiftLeft16<8>(low), shiftLeft16<8>(high)}
                   : Words{both(low, splat16(-256)), both(high, splat16(-256))},
            unpackLow64(chromaLow, chromaHigh), unpackHigh64(chromaLow, chromaHigh)};
  }

  static YuvToRgbKernel rest() {
    return y == 1 ? scalarYuvToRgb().uyvy : u == 1 ? scalarYuvToRgb().yuy2 : scalarYuvToRgb().yvyu;
  }
  static YuvRow from(const YuvRow& row, ptrdiff_t x) { return {row.y + 2 * x, nullptr, nullptr}; }

 private:
  static constexpr int8_t chromaOrder[] = {-1, u, -1, 4 + u, -1, 8 + u, -1, 12 + u,
                                           -1, v, -1, 4 + v, -1, 8 + v, -1, 12 + v};

  Vector centres_, chroma_;
};

// Every pixel by step(x), which does the vectorBytes pixels from x on, and, where they end on an odd
// pixel or are too few, by the layout's scalar kernel.
template <class Layout, class Step>
inline void inSteps(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& matrix,
                    const Step& step) {
  const ptrdiff_t even = width & ~ptrdiff_t{1};
  ptrdiff_t done = 0;
  if (even >= vectorBytes) {
    const ptrdiff_t last = even - vectorBytes;
    for (ptrdiff_t x = 0; x < last; x += vectorBytes) step(x);
    // The last step may repeat pixels of the one before.
    step(last);
    done = even;
  }
  if (done < width) {
    Layout::rest()(Layout::from(row, done), out + 3 * done, width - done, matrix);
  }
}

template <class Layout>
void convertShared(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& matrix) {
  const Layout layout(matrix);
  const Factors factors(matrix);
  const Interleaver interleaver;
  inSteps<Layout>(row, out, width, matrix, [&](ptrdiff_t x) {
    const SharedChroma samples = layout.load(row, x);
    const Words luma = {
        addSigned16(multiplyRounded16(samples.luma.low, factors.luma), factors.bias),
        addSigned16(multiplyRounded16(samples.luma.high, factors.luma), factors.bias)};
    const Colours colours = coloursOf(samples.u, samples.v, factors);
    interleaver.write(out + 3 * x, component(luma, twice(colours.blue)),
                      component(luma, twice(colours.green)), component(luma, twice(colours.red)));
  });
}

struct FullPlanes {
  static YuvToRgbKernel rest() { return scalarYuvToRgb().full; }
  static YuvRow from(const YuvRow& row, ptrdiff_t x) { return {row.y + x, row.u + x, row.v + x}; }
};

void convertFull(const YuvRow& row, uint8_t* out, ptrdiff_t width, const YuvToRgbMatrix& matrix) {
  const Factors factors(matrix);
  const Interleaver interleaver;
  const Vector yCentre = splat8(-128);
  const Vector uCentre = splat8(static_cast<int8_t>(matrix.uCentre));
  const Vector vCentre = splat8(static_cast<int8_t>(matrix.vCentre));
  inSteps<FullPlanes>(row, out, width, matrix, [&](ptrdiff_t x) {
    const Words y = upperBytes(subtract8(load(row.y + x), yCentre));
    const Words u = upperBytes(subtract8(load(row.u + x), uCentre));
    const Words v = upperBytes(subtract8(load(row.v + x), vCentre));
    const Words luma = {addSigned16(multiplyRounded16(y.low, factors.luma), factors.bias),
                        addSigned16(multiplyRounded16(y.high, factors.luma), factors.bias)};
    const Colours low = coloursOf(u.low, v.low, factors), high = coloursOf(u.high, v.high, factors);
    interleaver.write(out + 3 * x, component(luma, {low.blue, high.blue}),
                      component(luma, {low.green, high.green}),
                      component(luma, {low.red, high.red}));
  });
}

YuvToRgbKernels vectorKernels() {
  return {convertFull,
          convertShared<HalfPlanes>,
          convertShared<Nv12>,
          convertShared<Packed<0, 1, 3>>,
          convertShared<Packed<1, 0, 2>>,
          convertShared<Packed<0, 3, 1>>};
}

}  // namespace
}  // namespace kvl
