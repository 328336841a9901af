/* JPEG raw data, through a coder that keeps component rows in memory. */
#include "../jpeg/raw_coder.h"
#include "digest.h"

/* Fails, with the row as the status, at the row of MCUs that the context names; tells the digest how
   a picture ends. Row calls come on any thread, the others on this one. */
typedef struct {
  Run* run;
  int32_t bad_row;
} Watch;

static int32_t watch(RawCoder* coder, RawCall call, int32_t value) {
  const Watch* const w = coder->context;
  if (call == raw_rows) return value == w->bad_row ? 1000 + value : 0;
  keep_int(w->run, call);
  keep_int(w->run, value);
  return 0;
}

static RawCoder make_coder(Watch* w, Run* run, int32_t bad_row) {
  RawCoder coder;
  w->run = run;
  w->bad_row = bad_row;
  memset(&coder, 0, sizeof coder);
  coder.hook = watch;
  coder.context = w;
  return coder;
}

/* p[0] bits, or 16 with the code of p[5]; sampling, video range, rows of a band, a bad row or 0. */
static void write_image(Run* run) {
  EXPORT(KVL_JpegWriteRawImage);
  const int32_t w = run->width, h = run->height;
  const int bits = run->p[0];
  const size_t stride = dib_stride(w, bits);
  Watch watcher;
  RawCoder coder = make_coder(&watcher, run, run->p[4] ? run->p[4] : -1);
  const KVL_JpegEncoder encoder = raw_encoder(&coder);
  BITMAPINFOHEADER* const header = bitmap(run, w, run->p[6] ? -h : h, bits);
  const uint8_t* const image = picture(run, w, h, bits == 8 ? 1 : 3, stride);
  int32_t* const rows = (int32_t*)noise(run, sizeof *rows);
  header->biCompression = (uint32_t)run->p[5];
  coder.size = (size_t)(w + 16) * (size_t)(h + 16) * 3;
  coder.memory = noise(run, coder.size);
  begin(run);
  keep_int(run, call(&encoder, header, image, run->p[1], run->p[2], run->p[3], rows));
  keep(run, &coder.geometry, sizeof coder.geometry);
}

static void refused_write(Run* run) {
  EXPORT(KVL_JpegWriteRawImage);
  const int32_t w = run->width, h = run->height;
  Watch watcher;
  RawCoder coder = make_coder(&watcher, run, -1);
  const KVL_JpegEncoder encoder = raw_encoder(&coder);
  KVL_JpegEncoder smaller = encoder, without_rows = encoder;
  const BITMAPINFOHEADER* const header = bitmap(run, w, h, 24);
  const BITMAPINFOHEADER* const deep = bitmap(run, w, h, 32);
  const BITMAPINFOHEADER* const wide = bitmap(run, 65536, h, 24);
  const BITMAPINFOHEADER* const negative = bitmap(run, -w, h, 24);
  const uint8_t* const image = noise(run, dib_stride(w, 24) * (size_t)h);
  int32_t rows = 5;
  smaller.size -= 8;
  without_rows.writeRows = NULL;
  begin(run);
  keep_int(run, call(NULL, header, image, 0, 0, 0, &rows));
  keep_int(run, call(&encoder, NULL, image, 0, 0, 0, &rows));
  keep_int(run, call(&encoder, header, NULL, 0, 0, 0, &rows));
  keep_int(run, call(&smaller, header, image, 0, 0, 0, &rows));
  keep_int(run, call(&without_rows, header, image, 0, 0, 0, &rows));
  keep_int(run, call(&encoder, deep, image, 0, 0, 0, &rows));
  keep_int(run, call(&encoder, wide, image, 0, 0, 0, &rows));
  keep_int(run, call(&encoder, negative, image, 0, 0, 0, &rows));
  keep_int(run, call(&encoder, header, image, 3, 0, 0, &rows));
  keep_int(run, call(&encoder, header, image, 0, 2, 0, &rows));
  keep_int(run, call(&encoder, header, image, 0, 0, -1, &rows));
  keep_int(run, rows);
}

/* The sampling factors of p[0]: the digits h, v of each component, the first first. */
static RawCoder filled_coder(Watch* w, Run* run, int32_t factors, int32_t color_space,
                             int32_t bad_row) {
  RawCoder coder = make_coder(w, run, bad_row);
  KVL_JpegGeometry* const g = &coder.geometry;
  int c;
  g->size = sizeof *g;
  g->width = run->width;
  g->height = run->height;
  g->colorSpace = color_space;
  g->componentCount = color_space == KVL_JPEG_GREY ? 1 : 3;
  for (c = g->componentCount; c-- > 0; factors /= 100) {
    g->horizontal[c] = (uint8_t)(factors / 10 % 10);
    g->vertical[c] = (uint8_t)(factors % 10);
  }
  coder.size = raw_offset(g, g->componentCount);
  coder.memory = picture(run, 600, (int32_t)(coder.size / 1800) + 1, 3, 1800);
  return coder;
}

/* Factors, colour space, bits, 1 for top-down, 1 for a crop, a bad row or 0. */
static void to_dib(Run* run) {
  EXPORT(KVL_QvjJpegToDib);
  const int32_t w = run->width, h = run->height;
  Watch watcher;
  RawCoder coder = filled_coder(&watcher, run, run->p[0], run->p[1], run->p[5] ? run->p[5] : -1);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  BITMAPINFOHEADER* const header = (BITMAPINFOHEADER*)noise(run, sizeof *header);
  size_t* const size = (size_t*)noise(run, sizeof *size);
  int32_t* const rows = (int32_t*)noise(run, sizeof *rows);
  KVL_JpegReadOptions options;
  uint8_t* bits;
  *size = dib_stride(w, 24) * (size_t)h;
  bits = noise(run, *size);
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  options.bitCount = run->p[2];
  options.topDown = run->p[3];
  if (run->p[4]) options.crop = rect_of(w / 7, h / 3, w + 9, h - h / 5);
  begin(run);
  keep_int(run, call(&decoder, NULL, 0, run->p[2] ? copy_of(run, &options, sizeof options) : NULL,
                     header, bits, size, rows));
}

/* The size only, or too small a buffer. */
static void ask_size(Run* run) {
  EXPORT(KVL_QvjJpegToDib);
  Watch watcher;
  RawCoder coder = filled_coder(&watcher, run, 221111, KVL_JPEG_YCBCR, -1);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  BITMAPINFOHEADER* const header = (BITMAPINFOHEADER*)noise(run, sizeof *header);
  size_t* const size = (size_t*)noise(run, sizeof *size);
  uint8_t* const bits = noise(run, 64);
  begin(run);
  keep_int(run, call(&decoder, NULL, 0, NULL, header, NULL, size, NULL));
  *size -= 1;
  keep_int(run, call(&decoder, NULL, 0, NULL, header, bits, size, NULL));
}

static void refused_dib(Run* run) {
  EXPORT(KVL_QvjJpegToDib);
  Watch watcher;
  RawCoder coder = filled_coder(&watcher, run, 221111, KVL_JPEG_YCBCR, -1);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  KVL_JpegDecoder smaller = decoder;
  KVL_JpegReadOptions options;
  BITMAPINFOHEADER* const header = (BITMAPINFOHEADER*)noise(run, sizeof *header);
  size_t size = dib_stride(run->width, 24) * (size_t)run->height;
  uint8_t* const bits = noise(run, size);
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  smaller.size -= 8;
  begin(run);
  keep_int(run, call(NULL, NULL, 0, NULL, header, bits, &size, NULL));
  keep_int(run, call(&smaller, NULL, 0, NULL, header, bits, &size, NULL));
  keep_int(run, call(&decoder, NULL, 5, NULL, header, bits, &size, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, NULL, bits, &size, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, header, bits, NULL, NULL));
  options.bitCount = 32;
  keep_int(run, call(&decoder, NULL, 0, &options, header, bits, &size, NULL));
  options.bitCount = 24;
  options.threads = -1;
  keep_int(run, call(&decoder, NULL, 0, &options, header, bits, &size, NULL));
  options.threads = 0;
  options.pixelLimit = 100;
  keep_int(run, call(&decoder, NULL, 0, &options, header, bits, &size, NULL));
  options.pixelLimit = 0;
  options.crop = rect_of(5000, 0, 6000, 9);
  keep_int(run, call(&decoder, NULL, 0, &options, header, bits, &size, NULL));
  coder.geometry.colorSpace = 0;
  keep_int(run, call(&decoder, NULL, 0, NULL, header, bits, &size, NULL));
  coder.geometry.horizontal[1] = 5;
  keep_int(run, call(&decoder, NULL, 0, NULL, header, bits, &size, NULL));
  keep_int(run, (int64_t)size);
}

/* As above, into a part of a bitmap that is larger or, for p[6], smaller than the picture. */
static void decompress(Run* run) {
  EXPORT(KVL_QvjDecompress);
  const int32_t w = run->width + (run->p[6] ? -run->width / 4 : 9);
  const int32_t h = run->height + (run->p[6] ? -run->height / 5 : 4);
  const int bits = run->p[2];
  const int32_t stride = run->p[6] ? 0 : (int32_t)dib_stride(w, bits) + 3;
  Watch watcher;
  RawCoder coder = filled_coder(&watcher, run, run->p[0], run->p[1], run->p[5] ? run->p[5] : -1);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  const BITMAPINFOHEADER* const header = bitmap(run, w, run->p[3] ? -h : h, bits);
  uint8_t* const image =
      noise(run, (size_t)(stride ? stride : (int32_t)dib_stride(w, bits)) * (size_t)h);
  int32_t* const rows = (int32_t*)noise(run, sizeof *rows);
  const RECT into = rect_of(w / 8, h / 6, w, h);
  KVL_JpegReadOptions options;
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  if (run->p[4]) options.crop = rect_of(run->width / 7, run->height / 9, run->width, run->height);
  begin(run);
  keep_int(run, call(&decoder, NULL, 0, &options, header, image, stride, run->p[6] ? NULL : &into,
                     rows));
}

static void refused_decompress(Run* run) {
  EXPORT(KVL_QvjDecompress);
  const int32_t w = run->width, h = run->height;
  Watch watcher;
  RawCoder coder = filled_coder(&watcher, run, 111111, KVL_JPEG_RGB, -1);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  const BITMAPINFOHEADER* const header = bitmap(run, w, h, 24);
  const BITMAPINFOHEADER* const deep = bitmap(run, w, h, 32);
  uint8_t* const image = noise(run, dib_stride(w, 24) * (size_t)h);
  const RECT outside = rect_of(0, 0, w + 1, h), empty = rect_of(4, 4, 4, 9);
  begin(run);
  keep_int(run, call(NULL, NULL, 0, NULL, header, image, 0, NULL, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, NULL, image, 0, NULL, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, header, NULL, 0, NULL, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, deep, image, 0, NULL, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, header, image, w * 3 - 1, NULL, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, header, image, 0, &outside, NULL));
  keep_int(run, call(&decoder, NULL, 0, NULL, header, image, 0, &empty, NULL));
}

enum {
  yuyv = 0x56595559,
  yuy2 = 0x32595559,
  yvyu = 0x55595659,
  vyuy = 0x59555956,
  uyvy = 0x59565955
};
enum { ycc = KVL_JPEG_YCBCR, rgb = KVL_JPEG_RGB, grey = KVL_JPEG_GREY };
enum { s444 = KVL_JPEG_444, s422 = KVL_JPEG_422, s420 = KVL_JPEG_420 };

const DigestCase jpeg_cases[] = {
    CASE(JpegWriteRawImage, "24 bits, 4:4:4", write_image, every, all, 24, s444),
    CASE(JpegWriteRawImage, "24 bits, 4:2:2, top-down", write_image, every, ends, 24, s422, 0, 0, 0,
         0, 1),
    CASE(JpegWriteRawImage, "24 bits, 4:2:0", write_image, every, ends, 24, s420),
    CASE(JpegWriteRawImage, "24 bits, 4:2:2, bands of 48", write_image, every, larger, 24, s422, 0,
         48),
    CASE(JpegWriteRawImage, "8 bits", write_image, every, ends, 8, s444),
    CASE(JpegWriteRawImage, "YUY2, 4:4:4", write_image, every, ends, 16, s444, 0, 0, 0, yuy2),
    CASE(JpegWriteRawImage, "UYVY, 4:2:2, video range", write_image, every, ends, 16, s422, 1, 0, 0,
         uyvy),
    CASE(JpegWriteRawImage, "YVYU, 4:2:0, video range", write_image, every, ends, 16, s420, 1, 0, 0,
         yvyu),
    CASE(JpegWriteRawImage, "VYUY, 4:2:0", write_image, every, ends, 16, s420, 0, 0, 0, vyuy),
    CASE(JpegWriteRawImage, "coder fails at row 2", write_image, every, odd, 24, s444, 0, 8, 2),
    REFUSED(JpegWriteRawImage, refused_write, 0),
    CASE(QvjDecompress, "24 bits, 4:2:0", decompress, every, all, 221111, ycc, 24, 0, 0, 0, 0),
    CASE(QvjDecompress, "24 bits, 4:2:2, crop, top-down", decompress, every, ends, 211111, ycc, 24,
         1, 1, 0, 0),
    CASE(QvjDecompress, "24 bits, 4:4:4, cut off", decompress, every, ends, 111111, ycc, 24, 0, 0,
         0, 1),
    CASE(QvjDecompress, "24 bits, RGB, crop", decompress, every, ends, 111111, rgb, 24, 0, 1, 0, 0),
    CASE(QvjDecompress, "8 bits, RGB, cut off", decompress, every, ends, 111111, rgb, 8, 0, 0, 0,
         1),
    CASE(QvjDecompress, "8 bits, grey, crop", decompress, every, ends, 11, grey, 8, 0, 1, 0, 0),
    CASE(QvjDecompress, "coder fails at row 3", decompress, every, odd, 111111, ycc, 24, 1, 0, 3,
         0),
    REFUSED(QvjDecompress, refused_decompress, 0),
    CASE(QvjJpegToDib, "4:2:0", to_dib, every, all, 221111, ycc, 24, 0, 0, 0),
    CASE(QvjJpegToDib, "4:2:2, top-down, crop", to_dib, every, ends, 211111, ycc, 24, 1, 1, 0),
    CASE(QvjJpegToDib, "4:4:4, without options", to_dib, every, ends, 111111, ycc, 0, 0, 0, 0),
    CASE(QvjJpegToDib, "4:4:0", to_dib, every, ends, 121111, ycc, 24, 0, 0, 0),
    CASE(QvjJpegToDib, "4:1:1", to_dib, every, ends, 411111, ycc, 24, 0, 0, 0),
    CASE(QvjJpegToDib, "mixed factors, crop", to_dib, every, ends, 222112, ycc, 24, 0, 1, 0),
    CASE(QvjJpegToDib, "factors of 3", to_dib, every, ends, 331121, ycc, 24, 0, 0, 0),
    CASE(QvjJpegToDib, "4:2:0 to 8 bits", to_dib, every, ends, 221111, ycc, 8, 0, 0, 0),
    CASE(QvjJpegToDib, "grey, without options", to_dib, every, ends, 11, grey, 0, 0, 0, 0),
    CASE(QvjJpegToDib, "grey to 24 bits", to_dib, every, ends, 11, grey, 24, 0, 0, 0),
    CASE(QvjJpegToDib, "RGB", to_dib, every, ends, 111111, rgb, 24, 1, 0, 0),
    CASE(QvjJpegToDib, "coder fails at row 2", to_dib, every, odd, 221111, ycc, 24, 0, 0, 2),
    CASE(QvjJpegToDib, "size only", ask_size, every, odd, 0),
    REFUSED(QvjJpegToDib, refused_dib, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
