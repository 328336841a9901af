// The vector bodies of the conversions from RGB, at the width of the file that includes it.
#pragma once

#include "convert/convert_vector.h"
#include "convert/rgb_blocks.h"

namespace kvl {
namespace {

// A vector holds 8 pixels a lane, as 16-bit words.
constexpr ptrdiff_t laneBytes = 16;
constexpr ptrdiff_t pixelsPerLane = 8;
constexpr ptrdiff_t lanes = vectorBytes / laneBytes;
constexpr ptrdiff_t pixelsPerVector = lanes * pixelsPerLane;

struct RgbWords {
  Vector red;
  Vector green;
  Vector blue;
};

// Where the bytes of a component lie in the 16 bytes at a lane's first pixel, and in those 8 bytes
// on.
struct Triples {
  static constexpr ptrdiff_t bytesPerPixel = 3;

  Vector order[3][2];

  Triples() {
    for (int c = 0; c < 3; ++c) {
      for (int half = 0; half < 2; ++half) {
        int8_t bytes[laneBytes];
        for (int i = 0; i < pixelsPerLane; ++i) {
          // The first 16 bytes hold whole pixels 0 .. 4.
          const bool here = (i < 5) == (half == 0);
          bytes[2 * i] = static_cast<int8_t>(here ? 3 * i + c - 8 * half : -1);
          bytes[2 * i + 1] = -1;
        }
        order[c][half] = repeatLane(bytes);
      }
    }
  }

  // The second lane's pixels begin `laneStep` bytes after the first's.
  RgbWords operator()(const uint8_t* p, ptrdiff_t laneStep) const {
    const Vector first = loadLanes(p, p + laneStep);
    const Vector second = loadLanes(p + 8, p + laneStep + 8);
    const auto component = [&](int c) {
      return either(shuffleBytes(first, order[c][0]), shuffleBytes(second, order[c][1]));
    };
    return {component(2), component(1), component(0)};
  }
};

struct Quads {
  static constexpr ptrdiff_t bytesPerPixel = 4;

  Vector order;

  Quads() {
    int8_t bytes[laneBytes];
    for (int i = 0; i < laneBytes; ++i) bytes[i] = static_cast<int8_t>(i % 4 * 4 + i / 4);
    order = repeatLane(bytes);
  }

  RgbWords operator()(const uint8_t* p, ptrdiff_t laneStep) const {
    const Vector first = shuffleBytes(loadLanes(p, p + laneStep), order);
    const Vector second = shuffleBytes(loadLanes(p + 16, p + laneStep + 16), order);
    const Vector blueGreen = unpackLow32(first, second), redRest = unpackHigh32(first, second);
    const Vector zero = zeroVector();
    return {unpackLow8(redRest, zero), unpackHigh8(blueGreen, zero), unpackLow8(blueGreen, zero)};
  }
};

struct Factors {
  Vector red;
  Vector green;
  Vector blue;

  explicit Factors(const RgbFactors<int16_t>& f)
      : red(splat16(f.red)), green(splat16(f.green)), blue(splat16(f.blue)) {}

  Vector sum(const RgbWords& p) const {
    return add16(add16(multiplyLow16(p.red, red), multiplyLow16(p.green, green)),
                 multiplyLow16(p.blue, blue));
  }
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

template <class Load, bool lumaFirst, bool streaming>
void convertPairs(uint8_t* out, const uint8_t* in, ptrdiff_t pixels, const RgbToYuv& colours) {
  const Load loadPixels;
  const Factors luma(colours.narrowLuma), u(colours.narrowU), v(colours.narrowV);
  constexpr ptrdiff_t laneStep = pixelsPerLane * Load::bytesPerPixel;
  for (ptrdiff_t x = 0; x < pixels; x += pixelsPerVector) {
    const RgbWords p = loadPixels(in, laneStep);
    in += lanes * laneStep;
    const Vector y = add16(roundedHigh8(luma.sum(p)), splat16(16));
    const Vector chroma = chromaOfPairs(roundedHigh8(u.sum(p)), roundedHigh8(v.sum(p)));
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

template <class Load>
void yuv422(uint8_t* out, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours,
            Yuv422Order order) {
  const ptrdiff_t pixels = blocks * pixelsPerBlock;
  const bool aligned = reinterpret_cast<uintptr_t>(out) % 16 == 0;
  if (order == Yuv422Order::yuy2) {
    aligned ? convertPairs<Load, true, true>(out, in, pixels, colours)
            : convertPairs<Load, true, false>(out, in, pixels, colours);
  } else {
    aligned ? convertPairs<Load, false, true>(out, in, pixels, colours)
            : convertPairs<Load, false, false>(out, in, pixels, colours);
  }
  // Streaming stores are weakly ordered: the next pass may run on another processor.
  if (aligned) _mm_sfence();
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
class PlaneLuma {
 public:
  explicit PlaneLuma(const RgbToYuv& colours)
      : factors_(colours.narrowLuma), offset_(splat8(static_cast<int8_t>(colours.lumaOffset))) {}

  Vector operator()(const RgbWords& first, const RgbWords& second) const {
    return addUnsigned8(packUnsigned16(words(first), words(second)), offset_);
  }

 private:
  Vector words(const RgbWords& p) const {
    return shiftRightUnsigned16<8>(addUnsigned16(factors_.sum(p), splat16(128)));
  }

  Factors factors_;
  Vector offset_;
};

class PlaneChroma {
 public:
  PlaneChroma(const RgbFactors<int16_t>& factors, int16_t offset)
      : factors_(factors), offset_(splat16(static_cast<int16_t>(centred(offset)))) {}

  Vector operator()(const RgbWords& first, const RgbWords& second) const {
    return packUnsigned16(words(first), words(second));
  }

 private:
  // As far as 16 bits go; beyond, every sum saturates.
  static int centred(int16_t offset) { return offset + 128 < 32767 ? offset + 128 : 32767; }

  Vector words(const RgbWords& p) const {
    const Vector sum = factors_.sum(p);
    const Vector rounded = addSigned16(sum, withSign16(splat16(128), sum));
    return addSigned16(shiftRight16<8>(rounded), offset_);
  }

  Factors factors_;
  Vector offset_;
};

void luma(uint8_t* y, const uint8_t* in, ptrdiff_t blocks, const RgbToYuv& colours) {
  const Triples loadPixels;
  const PlaneLuma lumaOfPixels(colours);
  forEachVectorOfBytes(blocks, [&](ptrdiff_t at, ptrdiff_t laneStep, bool whole) {
    const uint8_t* p = in + 3 * at;
    const RgbWords first = loadPixels(p, 3 * laneStep);
    const RgbWords second = whole ? loadPixels(p + 3 * pixelsPerLane, 3 * laneStep) : first;
    storePacked(y + at, lumaOfPixels(first, second), whole);
  });
}

void planes(uint8_t* y, uint8_t* u, uint8_t* v, const uint8_t* in, ptrdiff_t blocks,
            const RgbToYuv& colours) {
  const Triples loadPixels;
  const PlaneLuma lumaOfPixels(colours);
  const PlaneChroma uOfPixels(colours.narrowU, colours.uOffset);
  const PlaneChroma vOfPixels(colours.narrowV, colours.vOffset);
  forEachVectorOfBytes(blocks, [&](ptrdiff_t at, ptrdiff_t laneStep, bool whole) {
    const uint8_t* p = in + 3 * at;
    const RgbWords first = loadPixels(p, 3 * laneStep);
    const RgbWords second = whole ? loadPixels(p + 3 * pixelsPerLane, 3 * laneStep) : first;
    storePacked(y + at, lumaOfPixels(first, second), whole);
    storePacked(u + at, uOfPixels(first, second), whole);
    storePacked(v + at, vOfPixels(first, second), whole);
  });
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
  const Vector lastOrder = loadLanes(reinterpret_cast<const uint8_t*>(fromStart),
                                     reinterpret_cast<const uint8_t*>(fromFourth));
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
  return {yuv422<Triples>, yuv422<Quads>, luma,        planes,
          average2x2,      evenColumns,   averageEven, expand};
}

}  // namespace
}  // namespace kvl
