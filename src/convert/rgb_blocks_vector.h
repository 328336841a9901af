// The vector bodies of the conversions from RGB, at the width of the file that includes it.
#pragma once

#include "convert/rgb_blocks.h"
#include "core/wide_vector.h"

namespace kvl {
namespace {

// A vector holds 8 pixels a lane, as 16-bit words.
constexpr ptrdiff_t laneBytes = 16;
constexpr ptrdiff_t pixelsPerLane = 8;
constexpr ptrdiff_t lanes = vectorBytes / laneBytes;
constexpr ptrdiff_t pixelsPerVector = lanes * pixelsPerLane;

// There are two ways to weigh pixels, with the same sums. Words hold any factors:

struct RgbWords {
  Vector red;
  Vector green;
  Vector blue;
};

class WordSum {
 public:
  explicit WordSum(const RgbFactors<int16_t>& f)
      : red_(splat16(f.red)), green_(splat16(f.green)), blue_(splat16(f.blue)) {}

  Vector operator()(const RgbWords& p) const {
    return add16(add16(multiplyLow16(p.red, red_), multiplyLow16(p.green, green_)),
                 multiplyLow16(p.blue, blue_));
  }

 private:
  Vector red_;
  Vector green_;
  Vector blue_;
};

// Pairs of bytes, blue with green and red with one whose factor is 0, are cheaper, for factors whose
// products do not saturate.

struct RgbPairs {
  Vector blueGreen;
  Vector red;
};

inline Vector splatPair(int low, int high) {
  return splat16(static_cast<int16_t>((low & 0xFF) | (high & 0xFF) << 8));
}

// For factors of a signed byte.
class PairSum {
 public:
  explicit PairSum(const RgbFactors<int16_t>& f)
      : blueGreen_(splatPair(f.blue, f.green)), red_(splatPair(f.red, 0)) {}

  Vector operator()(const RgbPairs& p) const {
    return add16(multiplyAddPairs8(p.blueGreen, blueGreen_), multiplyAddPairs8(p.red, red_));
  }

  static bool holds(const RgbFactors<int16_t>& f) {
    return isByte(f.red) && isByte(f.green) && isByte(f.blue) &&
           above0(f.blue) + above0(f.green) <= 128 && above0(-f.blue) + above0(-f.green) <= 128;
  }

 private:
  static bool isByte(int factor) { return factor >= -128 && factor <= 127; }
  static int above0(int factor) { return factor > 0 ? factor : 0; }

  Vector blueGreen_;
  Vector red_;
};

// For factors of an unsigned byte: the pixels are centred on 0, and what that takes off is put back.
class PairLumaSum {
 public:
  explicit PairLumaSum(const RgbFactors<int16_t>& f)
      : blueGreen_(splatPair(f.blue, f.green)),
        red_(splatPair(f.red, 0)),
        centre_(splat16(static_cast<int16_t>(128 * (f.red + f.green + f.blue)))) {}

  Vector operator()(const RgbPairs& p) const {
    const Vector half = splat8(-128);
    const Vector sum = add16(multiplyAddPairs8(blueGreen_, differing(p.blueGreen, half)),
                             multiplyAddPairs8(red_, differing(p.red, half)));
    return add16(sum, centre_);
  }

  static bool holds(const RgbFactors<int16_t>& f) {
    return f.red >= 0 && f.green >= 0 && f.blue >= 0 && f.red <= 255 && f.blue + f.green <= 255;
  }

 private:
  Vector blueGreen_;
  Vector red_;
  Vector centre_;
};

inline bool pairsHold(const RgbToYuv& colours) {
  return PairLumaSum::holds(colours.narrowLuma) && PairSum::holds(colours.narrowU) &&
         PairSum::holds(colours.narrowV);
}

// B, G, R triples, 8 a lane: the 16 bytes from a lane's first pixel on hold its first five pixels,
// those from byte 8 on the others. Where a lane's two components of a pixel go, or one and a 0:
class TripleOrder {
 public:
  TripleOrder(int low, int high) {
    for (int half = 0; half < 2; ++half) {
      int8_t bytes[laneBytes];
      for (int i = 0; i < pixelsPerLane; ++i) {
        const bool here = (i < 5) == (half == 0);
        const int pixel = 3 * i - 8 * half;
        bytes[2 * i] = static_cast<int8_t>(here ? pixel + low : -1);
        bytes[2 * i + 1] = static_cast<int8_t>(here && high >= 0 ? pixel + high : -1);
      }
      order_[half] = repeatLane(bytes);
    }
  }

  Vector operator()(Vector first, Vector second) const {
    return either(shuffleBytes(first, order_[0]), shuffleBytes(second, order_[1]));
  }

 private:
  Vector order_[2];
};

// Each loads the pixels of a vector; the second lane's begin `laneStep` bytes after the first's.
struct TripleWords {
  static constexpr ptrdiff_t bytesPerPixel = 3;
  TripleOrder blue{0, -1}, green{1, -1}, red{2, -1};

  RgbWords operator()(const uint8_t* p, ptrdiff_t laneStep) const {
    const Vector first = loadLanes(p, p + laneStep);
    const Vector second = loadLanes(p + 8, p + laneStep + 8);
    return {red(first, second), green(first, second), blue(first, second)};
  }
};

struct TriplePairs {
  static constexpr ptrdiff_t bytesPerPixel = 3;
  TripleOrder blueGreen{0, 1}, red{2, -1};

  RgbPairs operator()(const uint8_t* p, ptrdiff_t laneStep) const {
    const Vector first = loadLanes(p, p + laneStep);
    const Vector second = loadLanes(p + 8, p + laneStep + 8);
    return {blueGreen(first, second), red(first, second)};
  }
};

struct QuadWords {
  static constexpr ptrdiff_t bytesPerPixel = 4;

  RgbWords operator()(const uint8_t* p, ptrdiff_t laneStep) const {
    static constexpr int8_t byComponent[] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
    const Vector order = repeatLane(byComponent);
    const Vector first = shuffleBytes(loadLanes(p, p + laneStep), order);
    const Vector second = shuffleBytes(loadLanes(p + 16, p + laneStep + 16), order);
    const Vector blueGreen = unpackLow32(first, second), redRest = unpackHigh32(first, second);
    const Vector zero = zeroVector();
    return {unpackLow8(redRest, zero), unpackHigh8(blueGreen, zero), unpackLow8(blueGreen, zero)};
  }
};

struct QuadPairs {
  static constexpr ptrdiff_t bytesPerPixel = 4;

  RgbPairs operator()(const uint8_t* p, ptrdiff_t laneStep) const {
    static constexpr int8_t byPair[] = {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15};
    const Vector order = repeatLane(byPair);
    const Vector first = shuffleBytes(loadLanes(p, p + laneStep), order);
    const Vector second = shuffleBytes(loadLanes(p + 16, p + laneStep + 16), order);
    return {unpackLow64(first, second), unpackHigh64(first, second)};
  }
};

template <class LoadPixels>
struct ByWords {
  using Pixels = RgbWords;
  using Load = LoadPixels;
  using LumaSum = WordSum;
  using ChromaSum = WordSum;
};

template <class LoadPixels>
struct ByPairs {
  using Pixels = RgbPairs;
  using Load = LoadPixels;
  using LumaSum = PairLumaSum;
  using ChromaSum = PairSum;
};

inline Vector roundedHigh8(Vector sum) {
  return shiftRight16<8>(add16(sum, splat16(128)));
}

// U, V, U, V ... of the pairs of a vector's pixels, each centred on 128.
inline Vector chromaOfPairs(Vector u, Vector v) {
  const Vector ones = splat16(1);
  const Vector uMean = shiftRight32<1>(multiplyAddPairs16(u, ones));
  const Vector vMean = shiftRight32<1>(multiplyAddPairs16(v, ones));
  return add32(add32(uMean, shiftLeft32<16>(vMean)), splat16(128));
}

template <class Way, bool lumaFirst, bool streaming>
void convertPairs(uint8_t* out, const uint8_t* in, ptrdiff_t pixels, const RgbToYuv& colours) {
  const typename Way::Load loadPixels;
  const typename Way::LumaSum luma(colours.narrowLuma);
  const typename Way::ChromaSum u(colours.narrowU), v(colours.narrowV);
  constexpr ptrdiff_t laneStep = pixelsPerLane * Way::Load::bytesPerPixel;
  for (ptrdiff_t x = 0; x < pixels; x += pixelsPerVector) {
    const auto p = loadPixels(in, laneStep);
    in += lanes * laneStep;
    const Vector y = add16(roundedHigh8(luma(p)), splat16(16));
    const Vector chroma = chromaOfPairs(roundedHigh8(u(p)), roundedHigh8(v(p)));
    // What a bright luma has above its byte is added to the neighbours, deliberately.
    const Vector words =
        lumaFirst ? add16(y, shiftLeft16<8>(chroma)) : add16(chroma, raiseByByte(y));
    if constexpr (streaming) {
      stream(out, words);
    } else {
      store(out, words);
    }
    out += vectorBytes;
  }
}

template <class Way>
void yuv422By(uint8_t* out, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours,
              Yuv422Order order) {
  const ptrdiff_t pixels = blocks * pixelsPerBlock;
  const bool aligned = reinterpret_cast<uintptr_t>(out) % 16 == 0;
  if (order == Yuv422Order::yuy2) {
    aligned ? convertPairs<Way, true, true>(out, in, pixels, colours)
            : convertPairs<Way, true, false>(out, in, pixels, colours);
  } else {
    aligned ? convertPairs<Way, false, true>(out, in, pixels, colours)
            : convertPairs<Way, false, false>(out, in, pixels, colours);
  }
  // Streaming stores are weakly ordered: the next pass may run on another processor.
  if (aligned) _mm_sfence();
}

template <class Words, class Pairs>
void yuv422(uint8_t* out, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours,
            Yuv422Order order) {
  pairsHold(colours) ? yuv422By<ByPairs<Pairs>>(out, in, blocks, colours, order)
                     : yuv422By<ByWords<Words>>(out, in, blocks, colours, order);
}

// Calls step(at, laneStep, whole) for every two vectors of words, whose packed bytes fill a vector,
// `at` counting outputs. The second vector begins a lane after the first, so that packing leaves
// the outputs in order. Where the blocks do not fill the last two vectors, its one vector has its
// lanes side by side.
template <class Step>
inline void forEachVectorOfBytes(ptrdiff_t blocks, const Step& step) {
  const ptrdiff_t outputs = blocks * pixelsPerBlock;
  ptrdiff_t at = 0;
  for (; at + vectorBytes <= outputs; at += vectorBytes) step(at, 2 * pixelsPerLane, true);
  if (at < outputs) step(at, pixelsPerLane, false);
}

inline void storePacked(uint8_t* out, Vector packed, bool whole) {
  if (whole) {
    store(out, packed);
  } else {
    storeLowHalves(out, packed);
  }
}

// The luma of planes: saturated where the packed pairs wrap.
template <class Way>
class PlaneLuma {
 public:
  explicit PlaneLuma(const RgbToYuv& colours)
      : sum_(colours.narrowLuma), offset_(splat8(static_cast<int8_t>(colours.lumaOffset))) {}

  Vector operator()(const typename Way::Pixels& first, const typename Way::Pixels& second) const {
    return addUnsigned8(packUnsigned16(words(first), words(second)), offset_);
  }

 private:
  Vector words(const typename Way::Pixels& p) const {
    return shiftRightUnsigned16<8>(addUnsigned16(sum_(p), splat16(128)));
  }

  typename Way::LumaSum sum_;
  Vector offset_;
};

template <class Way>
class PlaneChroma {
 public:
  PlaneChroma(const RgbFactors<int16_t>& factors, int16_t offset)
      : sum_(factors), offset_(splat16(static_cast<int16_t>(centred(offset)))) {}

  Vector operator()(const typename Way::Pixels& first, const typename Way::Pixels& second) const {
    return packUnsigned16(words(first), words(second));
  }

 private:
  // As far as 16 bits go; beyond, every sum saturates.
  static int centred(int16_t offset) { return offset + 128 < 32767 ? offset + 128 : 32767; }

  Vector words(const typename Way::Pixels& p) const {
    const Vector sum = sum_(p);
    const Vector rounded = addSigned16(sum, withSign16(splat16(128), sum));
    return addSigned16(shiftRight16<8>(rounded), offset_);
  }

  typename Way::ChromaSum sum_;
  Vector offset_;
};

// store(at, first, second, whole) for the pixels of every vector of outputs.
template <class Way, class Store>
inline void forEachVectorOfPixels(const uint8_t* in, ptrdiff_t blocks, const Store& storeOutputs) {
  const typename Way::Load loadPixels;
  forEachVectorOfBytes(blocks, [&](ptrdiff_t at, ptrdiff_t laneStep, bool whole) {
    const uint8_t* p = in + 3 * at;
    const auto first = loadPixels(p, 3 * laneStep);
    const auto second = whole ? loadPixels(p + 3 * pixelsPerLane, 3 * laneStep) : first;
    storeOutputs(at, first, second, whole);
  });
}

template <class Way>
void lumaBy(uint8_t* y, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours) {
  const PlaneLuma<Way> lumaOfPixels(colours);
  using Pixels = typename Way::Pixels;
  forEachVectorOfPixels<Way>(
      in, blocks, [&](ptrdiff_t at, const Pixels& first, const Pixels& second, bool whole) {
        storePacked(y + at, lumaOfPixels(first, second), whole);
      });
}

template <class Way>
void planesBy(uint8_t* y, uint8_t* u, uint8_t* v, const uint8_t* in, ptrdiff_t blocks,
              const RgbToYuv& colours) {
  const PlaneLuma<Way> lumaOfPixels(colours);
  const PlaneChroma<Way> uOfPixels(colours.narrowU, colours.uOffset);
  const PlaneChroma<Way> vOfPixels(colours.narrowV, colours.vOffset);
  using Pixels = typename Way::Pixels;
  forEachVectorOfPixels<Way>(
      in, blocks, [&](ptrdiff_t at, const Pixels& first, const Pixels& second, bool whole) {
        storePacked(y + at, lumaOfPixels(first, second), whole);
        storePacked(u + at, uOfPixels(first, second), whole);
        storePacked(v + at, vOfPixels(first, second), whole);
      });
}

void luma(uint8_t* y, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours) {
  PairLumaSum::holds(colours.narrowLuma) ? lumaBy<ByPairs<TriplePairs>>(y, in, blocks, colours)
                                         : lumaBy<ByWords<TripleWords>>(y, in, blocks, colours);
}

void planes(uint8_t* y, uint8_t* u, uint8_t* v, const uint8_t* in, ptrdiff_t blocks,
            const RgbToYuv& colours) {
  pairsHold(colours) ? planesBy<ByPairs<TriplePairs>>(y, u, v, in, blocks, colours)
                     : planesBy<ByWords<TripleWords>>(y, u, v, in, blocks, colours);
}

void average2x2(uint8_t* out, const uint8_t* a, const uint8_t* b, ptrdiff_t blocks) {
  const Vector ones = splat8(1), two = splat16(2);
  const auto means = [&](ptrdiff_t at, ptrdiff_t laneStep) {
    const Vector sumA = multiplyAddPairs8(loadLanes(a + at, a + at + laneStep), ones);
    const Vector sumB = multiplyAddPairs8(loadLanes(b + at, b + at + laneStep), ones);
    return shiftRightUnsigned16<2>(add16(add16(sumA, sumB), two));
  };
  forEachVectorOfBytes(blocks, [&](ptrdiff_t at, ptrdiff_t laneStep, bool whole) {
    const Vector first = means(2 * at, 2 * laneStep);
    const Vector second = whole ? means(2 * at + laneBytes, 2 * laneStep) : first;
    storePacked(out + at, packUnsigned16(first, second), whole);
  });
}

// The even bytes of the vectors that columns(at, laneStep) gives.
template <class Columns>
inline void packEvenColumns(uint8_t* out, ptrdiff_t blocks, const Columns& columns) {
  const Vector even = splat16(0xFF);
  forEachVectorOfBytes(blocks, [&](ptrdiff_t at, ptrdiff_t laneStep, bool whole) {
    const Vector first = both(columns(2 * at, 2 * laneStep), even);
    const Vector second = whole ? both(columns(2 * at + laneBytes, 2 * laneStep), even) : first;
    storePacked(out + at, packUnsigned16(first, second), whole);
  });
}

void evenColumns(uint8_t* out, const uint8_t* in, ptrdiff_t blocks) {
  packEvenColumns(out, blocks, [&](ptrdiff_t at, ptrdiff_t laneStep) {
    return loadLanes(in + at, in + at + laneStep);
  });
}

void averageEven(uint8_t* out, const uint8_t* a, const uint8_t* b, ptrdiff_t blocks) {
  packEvenColumns(out, blocks, [&](ptrdiff_t at, ptrdiff_t laneStep) {
    return average8(loadLanes(a + at, a + at + laneStep), loadLanes(b + at, b + at + laneStep));
  });
}

void expand(uint8_t* out, const uint8_t* in, ptrdiff_t blocks) {
  // Four pixels begin at byte 0 of a lane, or for the last of a block, which ends with its load, at
  // byte 4.
  static constexpr int8_t fromStart[] = {0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1};
  static constexpr int8_t fromFourth[] = {4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1};
#if defined(__AVX2__)
  const Vector order = repeatLane(fromStart);
  const Vector lastOrder = loadLanes(fromStart, fromFourth);
  for (ptrdiff_t i = 0; i < blocks; ++i, in += 48, out += 64) {
    store(out, shuffleBytes(loadLanes(in, in + 12), order));
    store(out + 32, shuffleBytes(loadLanes(in + 24, in + 32), lastOrder));
  }
#else
  const Vector order = repeatLane(fromStart), lastOrder = repeatLane(fromFourth);
  for (ptrdiff_t i = 0; i < blocks; ++i, in += 48, out += 64) {
    for (ptrdiff_t part = 0; part < 3; ++part) {
      store(out + 16 * part, shuffleBytes(load(in + 12 * part), order));
    }
    store(out + 48, shuffleBytes(load(in + 32), lastOrder));
  }
#endif
}

RgbBlocks vectorBlocks() {
  return {yuv422<TripleWords, TriplePairs>,
          yuv422<QuadWords, QuadPairs>,
          luma,
          planes,
          average2x2,
          evenColumns,
          averageEven,
          expand};
}

}  // namespace
}  // namespace kvl
