// A bundle of lines turned into rows, so that vectors run across the lines. For AVX2 sources alone:
// everything has internal linkage, or a baseline source could end up with these instructions.
#pragma once

#include "core/wide_vector.h"
#include "filters/line_pass.h"

namespace kvl {
namespace {

// Bytes from row to row: a bundle's, and room for a vector that reaches over them.
constexpr int rowPitch = 128;
// Pixels that are turned at once.
constexpr int turnedPixels = 16;

// A bundle walks along many lines and writes down many rows at once, more than the processor
// follows by itself. The address may lie outside the rows.
inline void fetchAhead(const uint8_t* from, ptrdiff_t bytes) {
  _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<uintptr_t>(from) +
                                             static_cast<uintptr_t>(bytes)),
               _MM_HINT_T0);
}

// Line `index` of the bundle from `pixel` on; the last line stands in for those that are missing.
inline const uint8_t* lineAt(const LinePass& bundle, int64_t index, int64_t pixel) {
  const int64_t line = index < bundle.lines ? index : bundle.lines - 1;
  const uint8_t* at = bundle.in + line * bundle.inStride + pixel * bundle.bytesPerPixel;
  fetchAhead(at, 320);
  return at;
}

// Four pixels of eight lines, each a 32-bit word, with lines 4 to 7 in the upper halves.
inline void turnWords(__m256i (&words)[4]) {
  const __m256i low01 = _mm256_unpacklo_epi32(words[0], words[1]);
  const __m256i low23 = _mm256_unpacklo_epi32(words[2], words[3]);
  const __m256i high01 = _mm256_unpackhi_epi32(words[0], words[1]);
  const __m256i high23 = _mm256_unpackhi_epi32(words[2], words[3]);
  words[0] = _mm256_unpacklo_epi64(low01, low23);
  words[1] = _mm256_unpackhi_epi64(low01, low23);
  words[2] = _mm256_unpacklo_epi64(high01, high23);
  words[3] = _mm256_unpackhi_epi64(high01, high23);
}

inline void turn32(const LinePass& bundle, int64_t pixel, uint8_t* rows) {
  for (int group = 0; group < bundleBytes / 32; ++group) {
    const uint8_t* lines[8];
    for (int j = 0; j < 8; ++j) lines[j] = lineAt(bundle, group * 8 + j, pixel);
    for (int quad = 0; quad < turnedPixels / 4; ++quad) {
      __m256i words[4];
      for (int j = 0; j < 4; ++j)
        words[j] = loadLanes(lines[j] + 16 * quad, lines[j + 4] + 16 * quad);
      turnWords(words);
      for (int p = 0; p < 4; ++p) store(rows + (4 * quad + p) * rowPitch + 32 * group, words[p]);
    }
  }
}

inline void turn24(const LinePass& bundle, int64_t pixel, uint8_t* rows) {
  const __m256i spread = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
  // The last four pixels lie at the end of their 16 bytes, so that no load passes the block.
  const __m256i spreadLast = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1));
  const __m256i gather = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  const __m256i join = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  for (int group = 0; group < bundleBytes / 24; ++group) {
    const uint8_t* lines[8];
    for (int j = 0; j < 8; ++j) lines[j] = lineAt(bundle, group * 8 + j, pixel);
    for (int quad = 0; quad < turnedPixels / 4; ++quad) {
      const bool last = quad == turnedPixels / 4 - 1;
      const int at = last ? 12 * quad - 4 : 12 * quad;
      __m256i words[4];
      for (int j = 0; j < 4; ++j) {
        words[j] = _mm256_shuffle_epi8(loadLanes(lines[j] + at, lines[j + 4] + at),
                                       last ? spreadLast : spread);
      }
      turnWords(words);
      for (int p = 0; p < 4; ++p) {
        const __m256i packed =
            _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words[p], gather), join);
        store(rows + (4 * quad + p) * rowPitch + 24 * group, packed);
      }
    }
  }
}

inline void turn8(const LinePass& bundle, int64_t pixel, uint8_t* rows) {
  for (int group = 0; group < bundleBytes / 32; ++group) {
    __m256i a[16], b[16];
    for (int j = 0; j < 16; ++j) {
      a[j] = loadLanes(lineAt(bundle, group * 32 + j, pixel),
                       lineAt(bundle, group * 32 + 16 + j, pixel));
    }
    // Each round moves one bit of the column number into the row number.
    for (int round = 0; round < 2; ++round) {
      for (int j = 0; j < 8; ++j) {
        b[2 * j] = _mm256_unpacklo_epi8(a[j], a[j + 8]);
        b[2 * j + 1] = _mm256_unpackhi_epi8(a[j], a[j + 8]);
      }
      for (int j = 0; j < 8; ++j) {
        a[2 * j] = _mm256_unpacklo_epi8(b[j], b[j + 8]);
        a[2 * j + 1] = _mm256_unpackhi_epi8(b[j], b[j + 8]);
      }
    }
    for (int p = 0; p < 16; ++p) store(rows + p * rowPitch + 32 * group, a[p]);
  }
}

// The last rows of lines whose length is no multiple of the block.
inline void turnPixels(const LinePass& bundle, int64_t pixel, int64_t count, uint8_t* rows) {
  for (int64_t line = 0; line * bundle.bytesPerPixel < bundleBytes; ++line) {
    const uint8_t* in = lineAt(bundle, line, pixel);
    uint8_t* out = rows + line * bundle.bytesPerPixel;
    for (int64_t p = 0; p < count; ++p) {
      for (int c = 0; c < bundle.bytesPerPixel; ++c) out[p * rowPitch + c] = *in++;
    }
  }
}

// The rows of a bundle, made in order: row p is pixel p of every line side by side, as an output
// row has them. The last `capacity` - 16 or more of the rows made are kept.
class LineRows {
 public:
  // `ring` has room for `capacity` rows, a power of two and at least 32.
  LineRows(const LinePass& bundle, uint8_t* ring, int64_t capacity)
      : bundle_(bundle), ring_(ring), mask_(capacity - 1) {}

  // Makes the rows up to `pixel`, which is below the length of the lines.
  void makeUpTo(int64_t pixel) {
    while (made_ <= pixel) makeBlock();
  }

  // How many rows from `pixel` on, which is made, lie one after another.
  int64_t runFrom(int64_t pixel) const {
    const int64_t inRing = mask_ + 1 - (pixel & mask_);
    return made_ - pixel < inRing ? made_ - pixel : inRing;
  }

  const uint8_t* operator[](int64_t pixel) const { return ring_ + (pixel & mask_) * rowPitch; }

 private:
  __attribute__((noinline)) void makeBlock() {
    uint8_t* rows = ring_ + (made_ & mask_) * rowPitch;
    if (bundle_.length - made_ < turnedPixels) {
      turnPixels(bundle_, made_, bundle_.length - made_, rows);
    } else if (bundle_.bytesPerPixel == 3) {
      turn24(bundle_, made_, rows);
    } else if (bundle_.bytesPerPixel == 4) {
      turn32(bundle_, made_, rows);
    } else {
      turn8(bundle_, made_, rows);
    }
    made_ += turnedPixels;
  }

  const LinePass& bundle_;
  uint8_t* ring_;
  int64_t mask_;
  int64_t made_ = 0;
};

// The output rows of a bundle, in runs of up to turnedPixels rows: fill start()'s rows with
// bundleBytes each, then finish(count). No byte past the bundle's own is written.
class OutputRows {
 public:
  struct Run {
    uint8_t* first;
    ptrdiff_t stride;
  };

  explicit OutputRows(const LinePass& bundle)
      : next_(bundle.out),
        stride_(bundle.outStride),
        bytes_(static_cast<size_t>(bundle.lines * bundle.bytesPerPixel)) {}

  Run start() { return isWhole() ? Run{next_, stride_} : Run{partial_, bundleBytes}; }

  // While vector `v` of row `row` of the run is made: asks for as much of a row that comes later.
  void fetchLater(int64_t row, int v) const {
    fetchAhead(next_, (row + 16) * stride_ + v * (bundleBytes - 1) / 2);
  }

  void finish(int64_t count) {
    for (int64_t row = 0; row < count && !isWhole(); ++row) {
      __builtin_memcpy(next_ + row * stride_, partial_ + row * bundleBytes, bytes_);
    }
    next_ += count * stride_;
  }

 private:
  bool isWhole() const { return bytes_ == bundleBytes; }

  uint8_t* next_;
  ptrdiff_t stride_;
  size_t bytes_;
  uint8_t partial_[turnedPixels * bundleBytes];
};

}  // namespace
}  // namespace kvl
