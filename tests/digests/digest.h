/*
 * Cases whose results are recorded in tests/digests.txt: one table a family of exports.
 *
 * A case draws every buffer, header and record of its call from the run's arena, whose bytes are the
 * same everywhere, and calls one export. Its digest covers the arena with the bytes around each
 * buffer, so inputs and padding too, and the values that the case keeps.
 */
#ifndef DIGEST_H
#define DIGEST_H

#include <kvl/kvl.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "../support/load_library.h"

typedef struct Run {
  Function function; /* the export of the case */
  Function (*find)(const char* name);
  int32_t width; /* the size that the case is run at */
  int32_t height;
  const int32_t* p; /* the case's parameters */

  uint8_t* arena;
  size_t used;
  uint64_t seed;
  uint64_t values;    /* digest of what was kept */
  int watches;        /* whether begin() looks at the arena */
  uint64_t untouched; /* digest of the arena as begin() found it */
} Run;

/* Levels of the library, in its order. */
enum { level_scalar, level_sse2, level_ssse3, level_sse41, level_avx2, level_count };

/* From which level on the header states other results than below it. */
enum {
  from_every = 0, /* one result */
  from_sse2 = 1 << level_sse2,
  from_ssse3 = 1 << level_ssse3,
  from_sse2_and_ssse3 = from_sse2 | from_ssse3
};

/* The classes of sizes, one digest each. */
enum {
  size_small = 1,
  size_odd = 2,
  size_large = 4,
  size_smaller = size_small | size_odd,
  size_larger = size_odd | size_large,
  size_ends = size_small | size_large,
  size_all = 7
};

typedef struct {
  const char* export_name;
  const char* what; /* the parameters in words; of one export no two alike */
  void (*run)(Run*);
  int32_t p[8];
  unsigned changes; /* levels from which on results differ */
  unsigned sizes;
  int refuses; /* calls that must change no byte; others must change some */
} DigestCase;

/* A case whose results change from a level on, of some sizes, and its parameters. */
#define CASE(name, what, run, level, sizes, ...) \
  { "KVL_" #name, what, run, {__VA_ARGS__}, from_##level, size_##sizes, 0 }
#define REFUSED(name, run, ...) \
  { "KVL_" #name, "refused", run, {__VA_ARGS__}, 0, size_odd, 1 }

/* Each table ends with a case without a name. */
extern const DigestCase alpha_cases[];
extern const DigestCase blur_cases[];
extern const DigestCase convert_cases[];
extern const DigestCase correlation_cases[];
extern const DigestCase halving_cases[];
extern const DigestCase jpeg_cases[];
extern const DigestCase library_cases[];
extern const DigestCase resize_cases[];
extern const DigestCase sharpen_cases[];
extern const DigestCase warp_cases[];
extern const DigestCase yuv_to_rgb_cases[];

/* Declares the run's export as `name` stands in the header, under the name `call`. */
#define EXPORT(name)      \
  __typeof__(&name) call; \
  memcpy(&call, &run->function, sizeof call)

/* ---- The arena. Every buffer is aligned to 16 bytes, with spare bytes before and behind. ---- */

uint8_t* noise(Run* run, size_t size);

/* Rows of a picture with ramps, flat and saturated areas, grain and edges, of 1, 3 or 4 bytes a
   pixel; noise in what is left of each row. */
uint8_t* picture(Run* run, int32_t width, int32_t height, int32_t bytes_per_pixel, size_t stride);

/* The same picture moved by whole pixels, for searches; `from_x`, `from_y` 0 .. 16. */
uint8_t* moved_picture(Run* run, int32_t width, int32_t height, int32_t bytes_per_pixel,
                       size_t stride, int32_t from_x, int32_t from_y);

void* copy_of(Run* run, const void* bytes, size_t size);

/* A header of an uncompressed bitmap. */
BITMAPINFOHEADER* bitmap(Run* run, int32_t width, int32_t height, int bit_count);

/* Everything is drawn, and the call may write. Calls without it count as writing. */
void begin(Run* run);

/* Makes a value a part of the digest. */
void keep(Run* run, const void* value, size_t size);
void keep_int(Run* run, int64_t value);

uint64_t mix(uint64_t hash, const void* bytes, size_t size);

/* Bytes of a row padded to 4. */
static inline size_t dib_stride(int32_t width, int bit_count) {
  return ((size_t)width * (size_t)bit_count + 31) / 32 * 4;
}

static inline POINT point_at(int32_t x, int32_t y) {
  POINT point;
  point.x = x;
  point.y = y;
  return point;
}

static inline SIZE size_of(int32_t cx, int32_t cy) {
  SIZE size;
  size.cx = cx;
  size.cy = cy;
  return size;
}

static inline RECT rect_of(int32_t left, int32_t top, int32_t right, int32_t bottom) {
  RECT rect;
  rect.left = left;
  rect.top = top;
  rect.right = right;
  rect.bottom = bottom;
  return rect;
}

#endif
