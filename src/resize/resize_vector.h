// The vector bodies of the resize, at the width of the file that includes this.
#pragma once

#include <cstring>

#include "core/rgb24_halves_vector.h"
#include "core/wide_vector.h"
#include "resize/resize_kernels.h"

namespace kvl {
namespace {

// Bits that differ between a and b, of each byte the lowest.
inline Vector oddBits8(Vector a, Vector b) {
  return both(differing(a, b), splat8(1));
}

// out[i] for every i of [0, count), of at least a vector, from a functor that gives a whole one.
// The last vector ends with the line and may repeat outputs of the one before.
template <class VectorAt>
inline void fillLine(uint8_t* out, ptrdiff_t count, const VectorAt& vectorAt) {
  const ptrdiff_t last = count - vectorBytes;
  for (ptrdiff_t i = 0; i < last; i += vectorBytes) store(out + i, vectorAt(i));
  store(out + last, vectorAt(last));
}

// (a + b) / 2
inline void blendHalf(const uint8_t* a, const uint8_t* b, Halves halves, uint8_t* out,
                      ptrdiff_t count) {
  if (halves == Halves::up) {
    fillLine(out, count, [=](ptrdiff_t i) { return average8(load(a + i), load(b + i)); });
    return;
  }
  fillLine(out, count, [=](ptrdiff_t i) {
    const Vector u = load(a + i), v = load(b + i);
    return subtract8(average8(u, v), oddBits8(u, v));
  });
}

// a + (b - a) * share / 16384. The rounding of the product is that of halves up; from the other
// end it rounds them down.
template <Halves halves>
inline void blendTwo(const uint8_t* a, const uint8_t* b, int32_t share, uint8_t* out,
                     ptrdiff_t count) {
  const Vector factor = splat16(static_cast<int16_t>(2 * share));
  const Vector zero = zeroVector();
  const auto blended = [=](Vector u, Vector v) {
    if (halves == Halves::up) return add16(u, multiplyRounded16(subtract16(v, u), factor));
    return subtract16(u, multiplyRounded16(subtract16(u, v), factor));
  };
  fillLine(out, count, [=](ptrdiff_t i) {
    const Vector u = load(a + i), v = load(b + i);
    return packUnsigned16(blended(unpackLow8(u, zero), unpackLow8(v, zero)),
                          blended(unpackHigh8(u, zero), unpackHigh8(v, zero)));
  });
}

// The shares of the samples of a line, two at a time, in the halves of 32 bits.
class SharePairs {
 public:
  explicit SharePairs(const ResizeLine& line) : edges_(line.edges), count_(line.count) {}

  Vector next() {
    const int32_t first = share();
    return splat32(first | share() << 16);
  }

 private:
  int32_t share() {
    ++at_;
    const int32_t after = at_ < count_ ? shareAfter(edges_[at_]) : 0;
    const int32_t share = remaining_ - after;
    remaining_ = after;
    return share;
  }

  const SampleEdge* edges_;
  int32_t count_;
  int32_t at_ = 0;
  int32_t remaining_ = wholeShare;
};

// Sums of a vector of bytes in 32 bits each, in the order that unpacking twice gives.
struct ByteSums {
  Vector sums[4];

  void start(int32_t value) {
    for (Vector& sum : sums) sum = splat32(value);
  }
  void add(Vector u, Vector v, Vector shares) {
    const Vector zero = zeroVector();
    const Vector low = unpackLow8(u, v), high = unpackHigh8(u, v);
    sums[0] = add32(sums[0], multiplyAddPairs16(unpackLow8(low, zero), shares));
    sums[1] = add32(sums[1], multiplyAddPairs16(unpackHigh8(low, zero), shares));
    sums[2] = add32(sums[2], multiplyAddPairs16(unpackLow8(high, zero), shares));
    sums[3] = add32(sums[3], multiplyAddPairs16(unpackHigh8(high, zero), shares));
  }
  Vector toBytes() const {
    const auto words = [](Vector a, Vector b) {
      return packSigned32(shiftRight32<shareBits>(a), shiftRight32<shareBits>(b));
    };
    return packUnsigned16(words(sums[0], sums[1]), words(sums[2], sums[3]));
  }
};

// `vectors` vectors of a line of three samples and more.
template <int vectors>
inline void averageVectors(const ResizeLine& line, int32_t rounding, ptrdiff_t offset,
                           uint8_t* out) {
  ByteSums sums[vectors];
  for (ByteSums& s : sums) s.start(rounding);
  const uint8_t* sample = line.first + offset;
  SharePairs shares(line);
  int32_t left = line.count;
  for (; left >= 2; left -= 2, sample += 2 * line.step) {
    const Vector pair = shares.next();
    for (int i = 0; i < vectors; ++i) {
      const uint8_t* at = sample + i * vectorBytes;
      sums[i].add(load(at), load(at + line.step), pair);
    }
  }
  if (left > 0) {
    const Vector pair = shares.next();
    for (int i = 0; i < vectors; ++i) {
      sums[i].add(load(sample + i * vectorBytes), zeroVector(), pair);
    }
  }
  for (int i = 0; i < vectors; ++i) store(out + i * vectorBytes, sums[i].toBytes());
}

inline void average(const ResizeLine& line, Halves halves, ptrdiff_t offset, uint8_t* out,
                    ptrdiff_t count) {
  const int32_t rounding = roundingTerm(halves);
  ptrdiff_t i = 0;
  for (; i + 2 * vectorBytes <= count; i += 2 * vectorBytes) {
    averageVectors<2>(line, rounding, offset + i, out + i);
  }
  for (; i < count; i += vectorBytes) {
    if (i > count - vectorBytes) i = count - vectorBytes;
    averageVectors<1>(line, rounding, offset + i, out + i);
  }
}

inline void blendLine(const ResizeLine& line, Halves halves, ptrdiff_t offset, ptrdiff_t bytes,
                      uint8_t* out) {
  const uint8_t* first = line.first + offset;
  if (line.count == 1) {
    return fillLine(out, bytes, [=](ptrdiff_t i) { return load(first + i); });
  }
  if (line.count > 2) return average(line, halves, offset, out, bytes);
  const uint8_t* second = line.second + offset;
  if (line.share == wholeShare / 2) return blendHalf(first, second, halves, out, bytes);
  if (halves == Halves::up) return blendTwo<Halves::up>(first, second, line.share, out, bytes);
  blendTwo<Halves::down>(first, second, line.share, out, bytes);
}

void blend(const ResizeLine* lines, ptrdiff_t count, Halves halves, ptrdiff_t offset,
           ptrdiff_t bytes, uint8_t* out, ptrdiff_t outStride) {
  if (bytes < vectorBytes) {
    return scalarResize().blend(lines, count, halves, offset, bytes, out, outStride);
  }
  for (ptrdiff_t y = 0; y < count; ++y) {
    blendLine(lines[y], halves, offset, bytes, out + y * outStride);
  }
}

// In each lane: 16 lines of 16 bytes become their 16 columns. Seen as one row of 256 bytes, each step
// deals the bytes of its two halves out in turn; four are a transposition.
void transpose(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride) {
  Vector a[16], b[16];
  for (ptrdiff_t y = 0; y < 16; ++y)
    a[y] = loadLanes(in + y * inStride, in + (y + toSecondLane(16)) * inStride);
  const auto interleave = [](const Vector* from, Vector* to) {
    for (int i = 0; i < 8; ++i) {
      to[2 * i] = unpackLow8(from[i], from[i + 8]);
      to[2 * i + 1] = unpackHigh8(from[i], from[i + 8]);
    }
  };
  interleave(a, b);
  interleave(b, a);
  interleave(a, b);
  interleave(b, a);
  for (ptrdiff_t x = 0; x < 16; ++x) store(out + x * outStride, a[x]);
}

// Eight outputs in each lane, from lines of samples.
class WordsOfGroups {
 public:
  WordsOfGroups(const InterpolatedBytes& low, const InterpolatedBytes& high, ptrdiff_t components)
      : low_(low.first), high_(high.first) {
    // Bytes of 128 and more stand for zero, which makes words of the samples.
    from_ = unpackLow8(loadLanes(low.positions, high.positions), splat8(-128));
    next_ = add16(from_, splat16(static_cast<int16_t>(components)));
    const Vector shares = loadLanes(low.shares, high.shares);
    factors_ = add16(shares, shares);
  }

  Vector from(const uint8_t* line) const {
    const Vector samples = loadLanes(line + low_, line + high_);
    const Vector u = shuffleBytes(samples, from_), v = shuffleBytes(samples, next_);
    return subtract16(u, multiplyRounded16(subtract16(u, v), factors_));
  }

 private:
  ptrdiff_t low_;
  ptrdiff_t high_;
  Vector from_;
  Vector next_;
  Vector factors_;
};

void interpolate(const InterpolatedBytes* table, ptrdiff_t components, ptrdiff_t bytes,
                 const uint8_t* in, ptrdiff_t inStride, ptrdiff_t count, uint8_t* out,
                 ptrdiff_t outStride) {
  // Packing joins the words of a lane with those of the same lane.
  constexpr ptrdiff_t next = toSecondLane(2);
  for (ptrdiff_t i = 0; i < bytes; i += vectorBytes, table += vectorBytes / 8) {
    const WordsOfGroups first(table[0], table[next], components);
    const WordsOfGroups second(table[1], table[1 + next], components);
    const ptrdiff_t left = bytes - i;
    for (ptrdiff_t y = 0; y < count; ++y) {
      const uint8_t* line = in + y * inStride;
      const Vector outputs = packUnsigned16(first.from(line), second.from(line));
      uint8_t* at = out + y * outStride + i;
      if (left >= vectorBytes) {
        store(at, outputs);
      } else {
        uint8_t rest[vectorBytes];
        store(rest, outputs);
        std::memcpy(at, rest, static_cast<size_t>(left));
      }
    }
  }
}

// Halves of the sums of neighbouring bytes, as words.
inline Vector halvedPairs(Vector columns) {
  return shiftRightUnsigned16<1>(multiplyAddPairs8(columns, splat8(1)));
}

void halveGrey(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  if (count < vectorBytes) return scalarResize().halveGrey(a, b, out, count);
  const auto words = [=](ptrdiff_t i) { return halvedPairs(average8(load(a + i), load(b + i))); };
  fillLine(out, count, [=](ptrdiff_t i) {
    return inOrder(packUnsigned16(words(2 * i), words(2 * i + vectorBytes)));
  });
}

void halveRgb24(const uint8_t* a, const uint8_t* b, uint8_t* out, ptrdiff_t count) {
  const ptrdiff_t done =
      halveRgb24Steps(a, b, out, count, [](Vector lower, Vector upper, Vector pairs) {
        return halvedPairs(shuffleBytes(average8(lower, upper), pairs));
      });
  scalarResize().halveRgb24(a + 6 * done, b + 6 * done, out + 3 * done, count - done);
}

ResizeKernels vectorKernels() {
  return {blend, transpose, vectorBytes, interpolate, halveGrey, halveRgb24};
}

}  // namespace
}  // namespace kvl
