/* Seeded bytes, pictures made of them, and the digest. */
#include <stdio.h>
#include <stdlib.h>

#include "digest.h"

enum { arena_size = 24 << 20, spare = 48 };

/* xorshift64*, of 8 bytes a step. */
static uint64_t next(uint64_t* state) {
  *state ^= *state >> 12;
  *state ^= *state << 25;
  *state ^= *state >> 27;
  return *state * UINT64_C(0x2545F4914F6CDD1D);
}

uint64_t mix(uint64_t hash, const void* bytes, size_t size) {
  const uint8_t* p = bytes;
  uint64_t word;
  for (; size >= sizeof word; size -= sizeof word, p += sizeof word) {
    memcpy(&word, p, sizeof word);
    hash = (hash ^ word) * UINT64_C(0x9E3779B97F4A7C15);
    hash ^= hash >> 32;
  }
  word = (uint64_t)size << 56;
  memcpy(&word, p, size);
  hash = (hash ^ word) * UINT64_C(0x9E3779B97F4A7C15);
  return hash ^ hash >> 29;
}

static uint8_t* draw(Run* run, size_t size) {
  uint8_t* const at = run->arena + run->used;
  const size_t all = ((size + 15) & ~(size_t)15) + 2 * spare;
  size_t i;
  if (size > arena_size || all > arena_size - run->used) {
    fprintf(stderr, "digests: a case needs too much memory\n");
    exit(1);
  }
  for (i = 0; i < all; i += sizeof run->seed) {
    const uint64_t word = next(&run->seed);
    memcpy(at + i, &word, sizeof word);
  }
  run->used += all;
  return at + spare;
}

uint8_t* noise(Run* run, size_t size) {
  return draw(run, size);
}

void* copy_of(Run* run, const void* bytes, size_t size) {
  return memcpy(draw(run, size), bytes, size);
}

BITMAPINFOHEADER* bitmap(Run* run, int32_t width, int32_t height, int bit_count) {
  BITMAPINFOHEADER header;
  memset(&header, 0, sizeof header);
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = (uint16_t)bit_count;
  return copy_of(run, &header, sizeof header);
}

/* One byte of the picture. Tiles of several kinds meet at edges, rows and columns being alike. */
static uint8_t sample(int32_t x, int32_t y, int32_t channel, uint32_t grain) {
  const uint32_t tile = (uint32_t)(x / 13 * 7 + y / 9 * 5) * 2654435761u >> 16;
  const int32_t ramp = x * 3 + y * 2 + channel * 70;
  switch (tile % 7) {
    case 0:
      return (uint8_t)(tile >> (4 * channel)); /* flat */
    case 1:
      return (uint8_t)grain;
    case 2:
      return grain % 8 == 0 ? 0 : 255;
    case 3:
      return (uint8_t)((x + y) % 2 ? 40 + channel * 60 : 200 - channel * 50);
    case 4:
      return (uint8_t)(ramp / 2 % 256);
    default:
      return (uint8_t)(ramp / 4 % 224 + (int32_t)(grain % 24));
  }
}

/* Pictures of 1, 3 and 4 bytes a pixel, drawn once and cut from. */
enum { pool_width = 720, pool_height = 560 };

static const uint8_t* pool(int32_t bytes_per_pixel) {
  static uint8_t* pools[5];
  uint8_t* at = pools[bytes_per_pixel];
  uint64_t state = UINT64_C(0x6B766C2064696773) + (uint64_t)bytes_per_pixel;
  int32_t x, y, channel;
  if (at) return at;
  at = pools[bytes_per_pixel] =
      malloc((size_t)pool_width * (size_t)pool_height * (size_t)bytes_per_pixel);
  if (!at) {
    fprintf(stderr, "digests: out of memory\n");
    exit(1);
  }
  for (y = 0; y < pool_height; ++y) {
    for (x = 0; x < pool_width; ++x) {
      const uint64_t grain = next(&state);
      for (channel = 0; channel < bytes_per_pixel; ++channel) {
        *at++ = sample(x, y, channel, (uint32_t)(grain >> (8 * channel)) & 255);
      }
    }
  }
  return pools[bytes_per_pixel];
}

uint8_t* moved_picture(Run* run, int32_t width, int32_t height, int32_t bytes_per_pixel,
                       size_t stride, int32_t from_x, int32_t from_y) {
  uint8_t* const rows = draw(run, stride * (size_t)height);
  const uint8_t* const from = pool(bytes_per_pixel);
  const size_t row = (size_t)width * (size_t)bytes_per_pixel;
  int32_t y;
  if (width + from_x > pool_width || height + from_y > pool_height) {
    fprintf(stderr, "digests: a case needs too large a picture\n");
    exit(1);
  }
  for (y = 0; y < height; ++y) {
    memcpy(rows + (size_t)y * stride,
           from + ((size_t)(y + from_y) * pool_width + (size_t)from_x) * (size_t)bytes_per_pixel,
           row < stride ? row : stride);
  }
  return rows;
}

uint8_t* picture(Run* run, int32_t width, int32_t height, int32_t bytes_per_pixel, size_t stride) {
  return moved_picture(run, width, height, bytes_per_pixel, stride, 3, 5);
}

void begin(Run* run) {
  if (run->watches) run->untouched = mix(0, run->arena, run->used);
}

void keep(Run* run, const void* value, size_t size) {
  run->values = mix(run->values, value, size);
}

void keep_int(Run* run, int64_t value) {
  keep(run, &value, sizeof value);
}
