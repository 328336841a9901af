/* The warp, with an allocator of this host. */
#include <math.h>
#include <stdlib.h>

#include "library.h"

/* What the host hands out, and what the library asks of it, which becomes a part of the digest. */
typedef struct {
  KvlWarpHostAllocator allocator; /* first, so that a pointer to one is a pointer to the other */
  Run* run;
  int32_t status; /* of createImage; negative for a host without memory */
} Host;

typedef struct {
  KvlWarpHostImage object;
  Run* run;
  BITMAPINFOHEADER header;
  uint8_t* bits;
} Image;

/* The spare rows behind the picture are the library's own affair. */
static uint32_t release(KvlWarpHostImage* object) {
  Image* image = (Image*)object;
  keep(image->run, &image->header, sizeof image->header);
  keep(
      image->run, image->bits,
      dib_stride(image->header.biWidth, image->header.biBitCount) * (size_t)image->header.biHeight);
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
  Host* host = (Host*)allocator;
  const uint16_t bit_count = request->subtype.Data1 == 0xE436EB7Au   ? 8
                             : request->subtype.Data1 == 0xE436EB7Du ? 24
                                                                     : 32;
  KvlWarpImageRequest told = *request;
  Image* image;
  size_t size;
  (void)file, (void)line;
  /* Two of the spare rows are for each thread. */
  told.height -= 2 * team_size();
  told.imageHeight -= 2 * team_size();
  keep(host->run, &told, sizeof told);
  keep_int(host->run, flags);
  if (host->status < 0) return host->status;
  image = calloc(1, sizeof *image);
  if (!image) return -1;
  image->object.operations = &image_operations;
  image->run = host->run;
  image->header.biSize = sizeof image->header;
  image->header.biWidth = request->width;
  image->header.biHeight = request->height;
  image->header.biPlanes = 1;
  image->header.biBitCount = bit_count;
  size = dib_stride(request->width, bit_count) * (size_t)request->height;
  image->bits = malloc(size);
  if (!image->bits) abort();
  memset(image->bits, 0x33, size);
  *result = &image->object;
  return host->status;
}

static const KvlWarpHostAllocatorOperations allocator_operations = {NULL, NULL, NULL, create_image};

enum { tilt, shrink, stretch, turn, mirror, horizon, shapes };

/* m[0], m[1], m[4], m[5], and the move and the slope of the plane as parts of the picture's size. */
static void fill_matrix(double* m, int shape, int32_t w, int32_t h) {
  static const double shapes_of[shapes][7] = {
      {0.8713, 0.0627, -0.1256, 0.8119, 0.0344, 0.0631, 0.1253},
      {0.4071, 0.0316, -0.0311, 0.3757, 0.2503, 0.2509, 0},
      {1.7529, 0.2511, 0.1247, 2.2507, -0.2503, -0.5001, 0},
      {0.1253, 0.5009, -0.7507, 0.0621, 0.7503, 0.2501, 0},
      {-0.9371, 0, 0, 0.9687, 0.9689, 0.0157, 0},
      {0.7507, 0, 0.2503, 0.5011, 0, 0.2507, -1.2511},
  };
  const double* const s = shapes_of[shape];
  memset(m, 0, 16 * sizeof *m);
  m[0] = s[0];
  m[1] = s[1];
  m[4] = s[2];
  m[5] = s[3];
  m[7] = s[6] / (h + 3);
  m[10] = m[15] = 1;
  m[12] = w * s[4] + 0.513;
  m[13] = h * s[5] + 0.257;
}

/* Bits, shape, level, flags; 1 in p[4] for top-down bitmaps, in p[5] for parts of both. */
static void warp(Run* run) {
  EXPORT(KVL_CalcQvWarpPixel);
  const int32_t w = run->width, h = run->height, to_w = w + 6, to_h = h + 2;
  const int bits = run->p[0];
  const int32_t sign = run->p[4] ? -1 : 1;
  double matrix[16];
  Host host;
  const BITMAPINFOHEADER* const to_header = bitmap(run, to_w, sign * to_h, bits);
  const BITMAPINFOHEADER* const from_header = bitmap(run, w, sign * h, bits);
  RECT into = rect_of(0, 0, to_w, to_h), from = rect_of(0, 0, w, h);
  uint8_t* const to = noise(run, dib_stride(to_w, bits) * (size_t)to_h);
  const uint8_t* const bytes = picture(run, w, h, bits / 8, dib_stride(w, bits));
  if (run->p[5]) {
    into = rect_of(to_w / 7, to_h / 5, to_w - to_w / 8, to_h);
    from = rect_of(w / 9, 0, w + 10, h - h / 6);
  }
  fill_matrix(matrix, run->p[1], w, h);
  host.allocator.operations = &allocator_operations;
  host.run = run;
  host.status = 1;
  begin(run);
  call(to_header, to, copy_of(run, &into, sizeof into), from_header, bytes,
       copy_of(run, &from, sizeof from), copy_of(run, matrix, sizeof matrix), &host.allocator,
       run->p[2], (uint32_t)run->p[3]);
}

static void refused(Run* run) {
  EXPORT(KVL_CalcQvWarpPixel);
  const int32_t w = run->width, h = run->height;
  const size_t size = dib_stride(w, 24) * (size_t)h;
  double matrix[16], singular[16] = {0};
  Host host;
  const BITMAPINFOHEADER* const header = bitmap(run, w, h, 24);
  const BITMAPINFOHEADER* const none = bitmap(run, 0, h, 24);
  const BITMAPINFOHEADER* const low = bitmap(run, w, 0, 24);
  const BITMAPINFOHEADER* const high = bitmap(run, w, h, 16);
  BITMAPINFOHEADER* const coded = bitmap(run, w, h, 24);
  const RECT all = rect_of(0, 0, w, h), negative = rect_of(-1, 0, w, h),
             empty = rect_of(5, 5, 5, 9);
  const RECT outside = rect_of(w, 0, w + 4, h);
  uint8_t* const to = noise(run, size);
  const uint8_t* const from = noise(run, size);
  KvlWarpHostAllocator* const allocator = &host.allocator;
  fill_matrix(matrix, tilt, w, h);
  coded->biCompression = 0x32595559;
  host.allocator.operations = &allocator_operations;
  host.run = run;
  host.status = -7;
  begin(run);
  call(NULL, to, &all, header, from, &all, matrix, allocator, 0, 0);
  call(header, NULL, &all, header, from, &all, matrix, allocator, 0, 0);
  call(header, to, NULL, header, from, &all, matrix, allocator, 0, 0);
  call(header, to, &all, NULL, from, &all, matrix, allocator, 0, 0);
  call(header, to, &all, header, NULL, &all, matrix, allocator, 0, 0);
  call(header, to, &all, header, from, NULL, matrix, allocator, 0, 0);
  call(header, to, &all, header, from, &all, NULL, allocator, 0, 0);
  call(header, to, &all, header, from, &all, matrix, NULL, 0, 0);
  call(header, to, &all, header, from, &all, singular, allocator, 0, 0);
  call(none, to, &all, header, from, &all, matrix, allocator, 0, 0);
  call(header, to, &all, low, from, &all, matrix, allocator, 0, 0);
  call(high, to, &all, high, from, &all, matrix, allocator, 0, 0);
  call(header, to, &all, coded, from, &all, matrix, allocator, 0, 0);
  call(header, to, &negative, header, from, &all, matrix, allocator, 0, 0);
  call(header, to, &empty, header, from, &all, matrix, allocator, 0, 0);
  call(header, to, &all, header, from, &outside, matrix, allocator, 0, 0);
  call(header, to, &all, header, from, &all, matrix, allocator, 1, 0); /* no memory */
}

const DigestCase warp_cases[] = {
    CASE(CalcQvWarpPixel, "8 bits, perspective", warp, ssse3, all, 8, tilt, 0, 0),
    CASE(CalcQvWarpPixel, "24 bits, perspective", warp, ssse3, ends, 24, tilt, 0, 0),
    CASE(CalcQvWarpPixel, "32 bits, perspective", warp, ssse3, ends, 32, tilt, 0, 0),
    CASE(CalcQvWarpPixel, "24 bits, perspective, top-down, parts", warp, ssse3, ends, 24, tilt, 0,
         0, 1, 1),
    CASE(CalcQvWarpPixel, "8 bits, smaller", warp, ssse3, ends, 8, shrink, 0, 0),
    CASE(CalcQvWarpPixel, "32 bits, smaller, level 1", warp, ssse3, ends, 32, shrink, 1, 0),
    CASE(CalcQvWarpPixel, "24 bits, larger, chosen level", warp, ssse3, ends, 24, stretch, 0, 1),
    CASE(CalcQvWarpPixel, "8 bits, larger, level 2", warp, ssse3, ends, 8, stretch, 2, 0),
    CASE(CalcQvWarpPixel, "32 bits, larger, level 1, parts", warp, ssse3, ends, 32, stretch, 1, 0,
         0, 1),
    CASE(CalcQvWarpPixel, "24 bits, turned, chosen level, bias 1", warp, ssse3, ends, 24, turn, 1,
         1),
    CASE(CalcQvWarpPixel, "32 bits, turned", warp, ssse3, ends, 32, turn, 0, 0, 0, 0),
    CASE(CalcQvWarpPixel, "24 bits, mirrored", warp, ssse3, ends, 24, mirror, 0, 0),
    CASE(CalcQvWarpPixel, "24 bits, across the horizon", warp, ssse3, ends, 24, horizon, 0, 0),
    REFUSED(CalcQvWarpPixel, refused, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
