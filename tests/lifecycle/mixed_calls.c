#include "mixed_calls.h"

#include <stdlib.h>
#include <string.h>

#include "../jpeg/raw_coder.h"

/* ---- The frame --------------------------------------------------------------------------- */

int make_frame(Frame* frame, int32_t width, int32_t height) {
  const uint32_t stride = ((uint32_t)width * 3 + 3) & ~3u;
  const size_t size = (size_t)stride * (size_t)height;
  uint8_t* memory = malloc(6 * size);
  uint32_t state = 1;
  size_t i;
  memset(frame, 0, sizeof *frame);
  if (!memory) return 0;
  for (i = 0; i < size; ++i) {
    const size_t x = i % stride / 3, y = i / stride;
    state = state * 1664525u + 1013904223u;
    memory[i] = (uint8_t)((x / 16 * 40 + y / 12 * 70 + i % 3 * 90) % 224 + (state >> 27));
  }
  frame->header.biSize = sizeof frame->header;
  frame->header.biWidth = width;
  frame->header.biHeight = height;
  frame->header.biPlanes = 1;
  frame->header.biBitCount = 24;
  frame->stride = stride;
  frame->size = size;
  frame->picture = memory;
  frame->result = memory + size;
  frame->work = memory + 2 * size;
  return 1;
}

void free_frame(Frame* frame) {
  free((void*)frame->picture);
}

/* 64-bit FNV-1a over words; a frame has no odd bytes. */
static uint64_t digest(const uint8_t* bytes, size_t size) {
  uint64_t hash = UINT64_C(0xcbf29ce484222325);
  uint32_t word;
  size_t i;
  for (i = 0; i + sizeof word <= size; i += sizeof word) {
    memcpy(&word, bytes + i, sizeof word);
    hash = (hash ^ word) * UINT64_C(0x100000001b3);
  }
  return hash ^ hash >> 32;
}

static SIZE whole(const Frame* f) {
  SIZE size;
  size.cx = f->header.biWidth;
  size.cy = f->header.biHeight;
  return size;
}

/* The rows as an 8-bit image. */
static BITMAPINFOHEADER grey_header(const Frame* f) {
  BITMAPINFOHEADER header = f->header;
  header.biWidth = (int32_t)f->stride;
  header.biBitCount = 8;
  return header;
}

/* ---- The calls --------------------------------------------------------------------------- */

static void gaussian(const Library* kvl, Frame* f) {
  kvl->KVL_GaussianBlur(&f->header, f->work, &f->header, f->result, 3);
}

static void averaging(const Library* kvl, Frame* f) {
  BITMAPINFOHEADER work_header = f->header;
  kvl->KVL_AveragingBlur(&work_header, f->work, &f->header, f->result, 10);
}

static void box(const Library* kvl, Frame* f) {
  BITMAPINFOHEADER transposed = f->header;
  transposed.biWidth = f->header.biHeight;
  transposed.biHeight = f->header.biWidth;
  kvl->KVL_AvgBlurUniFloat(&f->header, f->result, &transposed, f->work, 5, 3, f->header.biWidth / 2,
                           f->header.biHeight / 2, 4.25f, 2.5f);
}

static void classic(const Library* kvl, Frame* f) {
  kvl->KVL_BlurClassicUni(f->result, f->stride, f->work, (uint32_t)f->header.biHeight * 3,
                          (uint32_t)f->header.biWidth, (uint32_t)f->header.biHeight, 30, 3.5f);
}

static void selective(const Library* kvl, Frame* f) {
  kvl->KVL_SelectiveBlur(&f->header, f->picture, &f->header, f->result, 20, 1);
}

static void separable_selective(const Library* kvl, Frame* f) {
  BITMAPINFOHEADER work_header = f->header;
  kvl->KVL_ModifiedSelectiveBlur(&work_header, f->work, &f->header, f->result, 20, 3);
}

static void selective_sharpen(const Library* kvl, Frame* f) {
  kvl->KVL_SelectiveSharpen(&f->header, f->picture, &f->header, f->result, 16, 1.7f);
}

static void sharpen(const Library* kvl, Frame* f) {
  kvl->KVL_SharpenSimpleUni_MultiComp(f->picture, f->stride, f->result, f->stride,
                                      (uint32_t)f->header.biWidth, (uint32_t)f->header.biHeight, 3,
                                      0.8f, 3, 1);
}

static void zoom(const Library* kvl, Frame* f) {
  kvl->KVL_BlurZoom(f->picture, f->stride, f->result, f->stride, (uint32_t)f->header.biWidth,
                    (uint32_t)f->header.biHeight, f->header.biWidth * 0.4, f->header.biHeight * 0.3,
                    0.01, 3);
}

static void directional(const Library* kvl, Frame* f) {
  kvl->KVL_BlurDirectional(f->picture, f->stride, f->result, f->stride, (uint32_t)f->header.biWidth,
                           (uint32_t)f->header.biHeight, 33, 9.5, 3);
}

/* Draws the picture from its left top on at `scale`, and returns the status. */
static int32_t resize_by(const Library* kvl, Frame* f, double scale) {
  const double rect[4] = {0, 0, f->header.biWidth / (scale > 1 ? scale : 1),
                          f->header.biHeight / (scale > 1 ? scale : 1)};
  const double into_scale = scale > 1 ? 1 : scale;
  RECT into;
  into.left = into.top = 0;
  into.right = (int32_t)(f->header.biWidth * into_scale);
  into.bottom = (int32_t)(f->header.biHeight * into_scale);
  return kvl->KVL_ResizeDIB_CPP(&f->header, f->picture, rect, &f->header, f->result, &into, 0);
}

static void shrink(const Library* kvl, Frame* f) {
  if (resize_by(kvl, f, 0.37) != KVL_S_OK) abort();
}

static void enlarge(const Library* kvl, Frame* f) {
  if (resize_by(kvl, f, 1.7) != KVL_S_OK) abort();
}

static void two_phase_resize(const Library* kvl, Frame* f) {
  const double rect[4] = {-7.25, 10.4, f->header.biWidth + 20.7, f->header.biHeight - 3.3};
  const BITMAPINFOHEADER grey = grey_header(f);
  RECT into;
  ResizeSetup setup;
  uint64_t needed = 0;
  uint8_t* work;
  memset(&setup, 0, sizeof setup);
  into.left = into.top = 3;
  into.right = grey.biWidth * 2 / 3;
  into.bottom = grey.biHeight * 2 / 3;
  if (kvl->KVL_SetupResizeDib(&grey, rect, &grey, &into, 0, &setup, &needed) != KVL_S_OK) abort();
  work = malloc(needed);
  if (kvl->KVL_CalcResizeDib(&setup, f->picture, f->result, work, needed) != KVL_S_OK) abort();
  kvl->KVL_EndResizeDib();
  free(work);
}

static ColorConversionParams colours(void) {
  ColorConversionParams params;
  KVL_FillColorConversionParams(&params, KVL_MATRIX_BT709, KVL_RANGE_STUDIO);
  return params;
}

static void to_yuy2(const Library* kvl, Frame* f) {
  const ColorConversionParams params = colours();
  const POINT origin = {0, 0};
  kvl->KVL_ConvertRgb24ToYUY2(f->picture, (int32_t)f->stride, whole(f), f->result,
                              (f->header.biWidth + 1) / 2 * 4, whole(f), origin, origin, whole(f),
                              &params);
}

static void to_420(const Library* kvl, Frame* f) {
  enum { most_threads = 64 };
  const uint32_t width = (uint32_t)f->header.biWidth, height = (uint32_t)f->header.biHeight;
  const ColorConversionParams params = colours();
  const size_t scratch = (size_t)most_threads * 2 * width;
  RtyConvertRecord record;
  memset(&record, 0, sizeof record);
  KVL_SetRtyConvertColors(&record, &params);
  record.mode = KVL_RTY_420_BOX;
  record.width = record.yStride = record.scratchRowSize = width;
  record.height = height;
  record.srcStride = (int32_t)f->stride;
  record.uStride = record.vStride = (width + 1) / 2;
  record.uPlaneOffset = width * height;
  record.vPlaneOffset = record.uPlaneOffset + record.uStride * ((height + 1) / 2);
  /* What is left there depends on the team: it is no part of the frame. */
  record.scratchA = malloc(2 * scratch);
  if (!record.scratchA) abort();
  record.scratchB = record.scratchA + scratch;
  kvl->KVL_RtyConvert(&record, f->picture, f->result);
  free(record.scratchA);
}

static void from_nv12(const Library* kvl, Frame* f) {
  const ColorConversionParams params = colours();
  kvl->KVL_ConvertYUVToRgb24(&KVL_SUBTYPE_NV12, f->picture, 0, whole(f), f->result, 0, &params);
}

static void halve(const Library* kvl, Frame* f, const GUID* subtype) {
  SIZE to;
  to.cx = f->header.biWidth / 2;
  to.cy = f->header.biHeight / 2;
  kvl->KVL_ShrinkToHalf(subtype, f->picture, 0, whole(f), f->result, 0, to, 2);
}

static void halve_rgb(const Library* kvl, Frame* f) {
  halve(kvl, f, &KVL_SUBTYPE_RGB24);
}

static void halve_yv12(const Library* kvl, Frame* f) {
  halve(kvl, f, &KVL_SUBTYPE_YV12);
}

static void combine(const Library* kvl, Frame* f) {
  memset(f->work, 77, f->size);
  kvl->KVL_VoeCombineHalfFramesLpbi(&f->header, f->result, f->work, 1);
}

static void premultiply(const Library* kvl, Frame* f) {
  const BITMAPINFOHEADER alpha = grey_header(f);
  kvl->KVL_PremultiplyAlpha(&f->header, f->result, &alpha, f->picture);
  kvl->KVL_ReverseAlphaPremul(&f->header, f->result, &alpha, f->picture);
}

static void colour_shift(const Library* kvl, Frame* f) {
  kvl->KVL_ApplyRGBColorShift(&f->header, f->result, -0.3f, -0.2f, 0.1f, 1);
}

static void key(const Library* kvl, Frame* f) {
  kvl->KVL_CalcAlphaBmpForMix_ColorBox(f->work, f->header.biWidth, f->result, (int32_t)f->stride,
                                       f->header.biWidth, f->header.biHeight, 40, 130, 90, 10, 40,
                                       63);
}

/* The grey picture, and where a block of it lies in the same moved by (4, 3). */
static void motion(const Library* kvl, Frame* f) {
  const int32_t width = f->header.biWidth, height = f->header.biHeight;
  uint8_t *a = f->work, *b = f->work + f->size;
  const CorrelationVector centre = {4, 3};
  CorrelationOptions options;
  CorrelationBlockResult result;
  CorrelationVector found[2];
  int64_t score = 0;
  RECT block;
  kvl->KVL_ConvertFrameToGray(f->picture, (int32_t)f->stride, a, width, width, height);
  memcpy(b + 3 * width + 4, a, (size_t)width * (size_t)(height - 4));
  block.left = width / 3;
  block.top = height / 3;
  block.right = block.left + 48;
  block.bottom = block.top + 32;
  found[0] =
      kvl->KVL_CalcCorrelationNormal(&score, a, width, b, width, NULL, width, height, &block, 9);
  memset(&options, 0, sizeof options);
  memset(&result, 0, sizeof result);
  options.width = width;
  options.height = height;
  options.blockLeft = block.left;
  options.blockTop = block.top;
  options.blockRight = block.right;
  options.blockBottom = block.bottom;
  options.subStep = 0.25f;
  options.subScale = 1;
  options.subRange = 0.5f;
  found[1] = kvl->KVL_CalcCorrelationSub(&result, a, b, &centre, &options);
  memcpy(f->result, found, sizeof found);
  memcpy(f->result + sizeof found, &score, sizeof score);
  memcpy(f->result + sizeof found + sizeof score, &result.score, sizeof result.score);
}

typedef struct {
  KvlWarpHostImage object; /* first, so that a pointer to one is a pointer to the other */
  BITMAPINFOHEADER header;
  uint8_t* bits;
} WarpImage;

static uint32_t release_image(KvlWarpHostImage* object) {
  free(((WarpImage*)object)->bits);
  free(object);
  return 0;
}

static BITMAPINFOHEADER* image_header(KvlWarpHostImage* object) {
  return &((WarpImage*)object)->header;
}

static uint8_t* image_bits(KvlWarpHostImage* object) {
  return ((WarpImage*)object)->bits;
}

static int32_t create_image(KvlWarpHostAllocator* allocator, KvlWarpHostImage** created,
                            const KvlWarpImageRequest* request, int32_t flags, const char* file,
                            int32_t line) {
  static const KvlWarpHostImageOperations operations = {NULL, NULL, release_image, image_header,
                                                        image_bits};
  WarpImage* image = calloc(1, sizeof *image);
  const size_t row = ((size_t)request->width * 3 + 3) / 4 * 4;
  (void)allocator, (void)flags, (void)file, (void)line;
  if (!image) return -1;
  image->object.operations = &operations;
  image->header.biSize = sizeof image->header;
  image->header.biWidth = request->width;
  image->header.biHeight = request->height;
  image->header.biPlanes = 1;
  image->header.biBitCount = 24;
  image->bits = malloc(row * (size_t)request->height);
  if (!image->bits) abort();
  *created = &image->object;
  return 0;
}

static void warp(const Library* kvl, Frame* f) {
  static const KvlWarpHostAllocatorOperations operations = {NULL, NULL, NULL, create_image};
  static const double matrix[16] = {
      0.875, 0.0625, 0, 0.00048828125, -0.125, 0.8125, 0, 0.0009765625, 0,
      0,     1,      0, 12.5,          3.25,   0,      1};
  KvlWarpHostAllocator allocator;
  RECT all;
  allocator.operations = &operations;
  all.left = all.top = 0;
  all.right = f->header.biWidth;
  all.bottom = f->header.biHeight;
  kvl->KVL_CalcQvWarpPixel(&f->header, f->result, &all, &f->header, f->picture, &all, matrix,
                           &allocator, 1, 0);
}

/* Written through a coder that keeps raw rows, and read back. */
static void jpeg(const Library* kvl, Frame* f) {
  RawCoder coder;
  KVL_JpegEncoder encoder;
  KVL_JpegDecoder decoder;
  BITMAPINFOHEADER header;
  size_t size = f->size;
  memset(&coder, 0, sizeof coder);
  coder.memory = f->work;
  coder.size = 4 * f->size;
  encoder = raw_encoder(&coder);
  decoder = raw_decoder(&coder);
  if (kvl->KVL_JpegWriteRawImage(&encoder, &f->header, f->picture, KVL_JPEG_420, 0, 0, NULL) !=
          KVL_JPEG_OK ||
      kvl->KVL_QvjJpegToDib(&decoder, NULL, 0, NULL, &header, f->result, &size, NULL) !=
          KVL_JPEG_OK) {
    abort();
  }
}

static const struct {
  const char* name;
  void (*run)(const Library*, Frame*);
} calls[] = {
    {"gaussian", gaussian},
    {"averaging", averaging},
    {"box", box},
    {"classic", classic},
    {"selective", selective},
    {"separable selective", separable_selective},
    {"selective sharpen", selective_sharpen},
    {"sharpen", sharpen},
    {"zoom", zoom},
    {"directional", directional},
    {"shrink", shrink},
    {"enlarge", enlarge},
    {"two-phase resize", two_phase_resize},
    {"RGB to YUY2", to_yuy2},
    {"RGB to 4:2:0", to_420},
    {"NV12 to RGB", from_nv12},
    {"halve RGB", halve_rgb},
    {"halve YV12", halve_yv12},
    {"combine fields", combine},
    {"premultiply and back", premultiply},
    {"colour shift", colour_shift},
    {"colour key", key},
    {"motion", motion},
    {"warp", warp},
    {"JPEG", jpeg},
};
const int mixed_call_count = sizeof calls / sizeof *calls;

const char* mixed_call_name(int index) {
  return calls[index].name;
}

uint64_t mixed_call(const Library* library, int index, Frame* frame) {
  memcpy(frame->result, frame->picture, frame->size);
  memset(frame->work, 0, 4 * frame->size);
  calls[index].run(library, frame);
  return digest(frame->result, 5 * frame->size);
}
