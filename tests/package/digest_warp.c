/* The warp of the picture, with an allocator of this host. */
#include <stdlib.h>

#include "digest_case.h"

typedef struct {
  KvlWarpHostImage object; /* first, so that a pointer to one is a pointer to the other */
  BITMAPINFOHEADER header;
  uint8_t* bits;
} Image;

static uint32_t release(KvlWarpHostImage* object) {
  Image* image = (Image*)object;
  free(image->bits);
  free(image);
  return 0;
}

static BITMAPINFOHEADER* get_header(KvlWarpHostImage* object) {
  return &((Image*)object)->header;
}

static uint8_t* get_bits(KvlWarpHostImage* object) {
  return ((Image*)object)->bits;
}

static const KvlWarpHostImageOperations image_operations = {NULL, NULL, release, get_header,
                                                            get_bits};

static int32_t create_image(KvlWarpHostAllocator* allocator, KvlWarpHostImage** result,
                            const KvlWarpImageRequest* request, int32_t flags, const char* file,
                            int32_t line) {
  const uint16_t bit_count = request->subtype.Data1 == 0xE436EB7Au   ? 8
                             : request->subtype.Data1 == 0xE436EB7Du ? 24
                                                                     : 32;
  const size_t row = ((size_t)request->width * bit_count + 31) / 32 * 4;
  Image* image = calloc(1, sizeof *image);
  (void)allocator;
  (void)flags;
  (void)file;
  (void)line;
  if (!image) return -1;
  image->object.operations = &image_operations;
  image->header.biSize = sizeof image->header;
  image->header.biWidth = request->width;
  image->header.biHeight = request->height;
  image->header.biPlanes = 1;
  image->header.biBitCount = bit_count;
  image->bits = malloc(row * (size_t)request->height);
  if (!image->bits) {
    free(image);
    return -1;
  }
  *result = &image->object;
  return 0;
}

static const KvlWarpHostAllocatorOperations allocator_operations = {NULL, NULL, NULL, create_image};

/* The picture's rows as pixels of that many bits, tilted, with that level or a chosen one. */
static void warp(Function function, const Frame* f, uint16_t bit_count, int32_t level,
                 uint32_t flags) {
  EXPORT(KVL_CalcQvWarpPixel);
  /* All coefficients are exact, so that no compiler can round them otherwise. */
  static const double matrix[16] = {
      0.875, 0.0625, 0, 0.00048828125, -0.125, 0.8125, 0, 0.0009765625, 0,
      0,     1,      0, 12.5,          3.25,   0,      1};
  KvlWarpHostAllocator allocator;
  BITMAPINFOHEADER header = f->picture->header;
  RECT all;
  allocator.operations = &allocator_operations;
  header.biBitCount = bit_count;
  if (bit_count != 24) header.biWidth = (int32_t)(stride(f->picture) * 8 / bit_count);
  all.left = all.top = 0;
  all.right = header.biWidth;
  all.bottom = header.biHeight;
  call(&header, f->result, &all, &header, f->picture->bits, &all, matrix, &allocator, level, flags);
}

static void warp_pixels(Function function, const Frame* f, double bit_count) {
  warp(function, f, (uint16_t)bit_count, 0, 0);
}

static void warp_subdivided(Function function, const Frame* f, double level) {
  warp(function, f, 24, (int32_t)level, 0);
}

static void warp_automatic(Function function, const Frame* f, double bias) {
  warp(function, f, 24, (int32_t)bias, 1);
}

const DigestCase warp_cases[] = {
    {"KVL_CalcQvWarpPixel", warp_pixels, 8, 1},
    {"KVL_CalcQvWarpPixel", warp_pixels, 24, 1},
    {"KVL_CalcQvWarpPixel", warp_pixels, 32, 1},
    {"KVL_CalcQvWarpPixel", warp_subdivided, 1, 1},
    {"KVL_CalcQvWarpPixel", warp_subdivided, 3, 1},
    {"KVL_CalcQvWarpPixel", warp_automatic, 1, 1},
    {NULL, NULL, 0, 0},
};
