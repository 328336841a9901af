// The vector bodies of the resize, at the width of the file that includes this.
#pragma once

#include "core/wide_vector.h"
#include "resize/resize_kernels.h"

namespace kvl {
namespace {

#if defined(__AVX2__)

inline Vector average8(Vector a, Vector b) {
  return _mm256_avg_epu8(a, b);
}
inline Vector subtract8(Vector a, Vector b) {
  return _mm256_sub_epi8(a, b);
}
inline Vector oddBits8(Vector a, Vector b) {
  return _mm256_and_si256(_mm256_xor_si256(a, b), splat8(1));
}
inline Vector add16(Vector a, Vector b) {
  return _mm256_add_epi16(a, b);
}
inline Vector multiplyRounded16(Vector a, Vector b) {
  return _mm256_mulhrs_epi16(a, b);
}
// 16 bytes of line y, and in the second lane those of the line 16 below it.
inline Vector loadLines(const uint8_t* lines, ptrdiff_t stride, ptrdiff_t y) {
  const auto at = [&](ptrdiff_t line) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(lines + line * stride));
  };
  return _mm256_inserti128_si256(_mm256_castsi128_si256(at(y)), at(y + 16), 1);
}

#else

inline Vector average8(Vector a, Vector b) {
  return _mm_avg_epu8(a, b);
}
inline Vector subtract8(Vector a, Vector b) {
  return _mm_sub_epi8(a, b);
}
inline Vector oddBits8(Vector a, Vector b) {
  return _mm_and_si128(_mm_xor_si128(a, b), splat8(1));
}
inline Vector add16(Vector a, Vector b) {
  return _mm_add_epi16(a, b);
}
inline Vector multiplyRounded16(Vector a, Vector b) {
  return _mm_mulhrs_epi16(a, b);
}
inline Vector loadLines(const uint8_t* lines, ptrdiff_t stride, ptrdiff_t y) {
  return load(lines + y * stride);
}

#endif

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

void blendShort(const ResizeLine& line, Halves halves, ptrdiff_t offset, uint8_t* out,
                ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const uint8_t* sample = line.first + offset + i;
    int32_t sum = roundingTerm(halves);
    if (line.count == 1) {
      sum += *sample * wholeShare;
    } else if (line.count == 2) {
      sum += *sample * (wholeShare - line.share) + line.second[offset + i] * line.share;
    } else {
      int32_t remaining = wholeShare;
      for (int32_t k = 1; k <= line.count; ++k, sample += line.step) {
        const int32_t after = k < line.count ? shareAfter(line.edges[k]) : 0;
        sum += (remaining - after) * *sample;
        remaining = after;
      }
    }
    out[i] = static_cast<uint8_t>(sum >> shareBits);
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
  for (ptrdiff_t y = 0; y < count; ++y, out += outStride) {
    if (bytes < vectorBytes) {
      blendShort(lines[y], halves, offset, out, bytes);
    } else {
      blendLine(lines[y], halves, offset, bytes, out);
    }
  }
}

// In each lane: 16 lines of 16 bytes become their 16 columns. Seen as one
// row of 256 bytes, each step deals the bytes of its two halves out in turn; four are a transposition.
void transpose(const uint8_t* in, ptrdiff_t inStride, uint8_t* out, ptrdiff_t outStride) {
  Vector a[16], b[16];
  for (ptrdiff_t y = 0; y < 16; ++y) a[y] = loadLines(in, inStride, y);
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

ResizeKernels vectorKernels() {
  return {blend, transpose, vectorBytes};
}

}  // namespace
}  // namespace kvl
