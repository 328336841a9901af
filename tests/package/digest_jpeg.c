/* JPEG raw data on the picture, through a coder that keeps component rows in the scratch. */
#include "../jpeg/raw_coder.h"
#include "digest_case.h"

static RawCoder scratch_coder(const Frame* f) {
  RawCoder coder;
  memset(&coder, 0, sizeof coder);
  coder.memory = f->work;
  coder.size = f->picture->size * 2;
  return coder;
}

static void write_colour(Function function, const Frame* f, double sampling) {
  EXPORT(KVL_JpegWriteRawImage);
  RawCoder coder = scratch_coder(f);
  const KVL_JpegEncoder encoder = raw_encoder(&coder);
  call(&encoder, &f->picture->header, f->picture->bits, (int32_t)sampling, 0, 0, NULL);
}

/* The rows as packed 4:2:2 of one and a half times the width. */
static void write_packed(Function function, const Frame* f, double sampling) {
  EXPORT(KVL_JpegWriteRawImage);
  RawCoder coder = scratch_coder(f);
  const KVL_JpegEncoder encoder = raw_encoder(&coder);
  BITMAPINFOHEADER header = f->picture->header;
  header.biWidth = (int32_t)(stride(f->picture) / 4 * 2);
  header.biBitCount = 16;
  header.biCompression = 0x59565955; /* UYVY */
  call(&encoder, &header, f->picture->bits, (int32_t)sampling, 1, 24, NULL);
}

/* Puts the picture's bytes where the components of a picture of its size lie: all of the planes of
   4:2:0, and of larger ones what there is. */
static RawCoder filled_coder(const Frame* f, const uint8_t* horizontal, const uint8_t* vertical) {
  RawCoder coder = scratch_coder(f);
  int c;
  coder.geometry.size = sizeof coder.geometry;
  coder.geometry.width = f->picture->header.biWidth;
  coder.geometry.height = f->picture->header.biHeight;
  coder.geometry.colorSpace = KVL_JPEG_YCBCR;
  coder.geometry.componentCount = 3;
  for (c = 0; c < 3; ++c) {
    coder.geometry.horizontal[c] = horizontal[c];
    coder.geometry.vertical[c] = vertical[c];
  }
  memcpy(f->work, f->picture->bits, f->picture->size);
  return coder;
}

static void to_dib(Function function, const Frame* f, double vertical_factor) {
  EXPORT(KVL_QvjJpegToDib);
  const uint8_t horizontal[3] = {2, 1, 1};
  const uint8_t vertical[3] = {(uint8_t)vertical_factor, 1, 1};
  RawCoder coder = filled_coder(f, horizontal, vertical);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  BITMAPINFOHEADER header;
  size_t size = f->picture->size;
  call(&decoder, NULL, 0, NULL, &header, f->result, &size, NULL);
}

static void decompress(Function function, const Frame* f, double bit_count) {
  EXPORT(KVL_QvjDecompress);
  const uint8_t horizontal[3] = {2, 2, 1}, vertical[3] = {2, 1, 2};
  RawCoder coder = filled_coder(f, horizontal, vertical);
  const KVL_JpegDecoder decoder = raw_decoder(&coder);
  BITMAPINFOHEADER header = f->picture->header;
  KVL_JpegReadOptions options;
  RECT rect;
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  options.crop.left = header.biWidth / 7;
  options.crop.top = header.biHeight / 9;
  options.crop.right = header.biWidth;
  options.crop.bottom = header.biHeight - 3;
  rect.left = 5;
  rect.top = 3;
  rect.right = header.biWidth - 20;
  rect.bottom = header.biHeight;
  header.biHeight = -header.biHeight;
  header.biBitCount = (uint16_t)bit_count;
  call(&decoder, NULL, 0, &options, &header, f->result, 0, &rect, NULL);
}

const DigestCase jpeg_cases[] = {
    {"KVL_JpegWriteRawImage", write_colour, KVL_JPEG_444, 0},
    {"KVL_JpegWriteRawImage", write_colour, KVL_JPEG_422, 0},
    {"KVL_JpegWriteRawImage", write_colour, KVL_JPEG_420, 0},
    {"KVL_JpegWriteRawImage", write_packed, KVL_JPEG_420, 0},
    {"KVL_QvjJpegToDib", to_dib, 1, 0},
    {"KVL_QvjJpegToDib", to_dib, 2, 0},
    {"KVL_QvjDecompress", decompress, 8, 0},
    {"KVL_QvjDecompress", decompress, 24, 0},
    {NULL, NULL, 0, 0},
};
