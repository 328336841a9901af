/* Halving, field combination and YUV to RGB, with the picture's bytes as a frame of each layout. */
#include "digest_case.h"

static void halve(Function function, const Frame* f, const GUID* subtype, double flags) {
  EXPORT(KVL_ShrinkToHalf);
  const BITMAPINFOHEADER* header = &f->picture->header;
  SIZE from, to;
  from.cx = header->biWidth;
  from.cy = header->biHeight / 4 * 3; /* four bytes for a pixel must do */
  to.cx = from.cx / 2 + 3;
  to.cy = from.cy / 2 + 1;
  call(subtype, f->picture->bits, 0, from, f->result, 0, to, (uint32_t)flags);
}

static void halve_yv12(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_YV12, flags);
}

static void halve_yv16(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_YV16, flags);
}

static void halve_yv24(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_YV24, flags);
}

static void halve_nv12(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_NV12, flags);
}

static void halve_yuy2(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_YUY2, flags);
}

static void halve_rgb24(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_RGB24, flags);
}

static void halve_rgb32(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_RGB32, flags);
}

static void halve_rgb8(Function function, const Frame* f, double flags) {
  halve(function, f, &KVL_SUBTYPE_RGB8, flags);
}

/* The rows of the picture, upside down, in one field. */
static void combine(Function function, const Frame* f, double second_field) {
  EXPORT(KVL_VoeCombineHalfFramesLpbi);
  const Picture* p = f->picture;
  const uint32_t row = stride(p);
  size_t y;
  for (y = 0; y < p->size / row; ++y) {
    memcpy(f->work + y * row, p->bits + p->size - (y + 1) * row, row);
  }
  call(&p->header, f->result, f->work, (int32_t)second_field);
}

static void to_rgb(Function function, const Frame* f, const GUID* subtype, double matrix) {
  EXPORT(KVL_ConvertYUVToRgb24);
  const BITMAPINFOHEADER* header = &f->picture->header;
  ColorConversionParams params;
  SIZE size;
  size.cx = header->biWidth;
  size.cy = header->biHeight;
  KVL_FillColorConversionParams(&params, (int32_t)matrix, KVL_RANGE_STUDIO);
  call(subtype, f->picture->bits, 0, size, f->result, 0, &params);
}

static void yuy2_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_YUY2, matrix);
}

static void uyvy_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_UYVY, matrix);
}

static void yvyu_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_YVYU, matrix);
}

static void yv12_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_YV12, matrix);
}

static void i420_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_I420, matrix);
}

static void nv12_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_NV12, matrix);
}

static void yv16_to_rgb(Function function, const Frame* f, double matrix) {
  to_rgb(function, f, &KVL_SUBTYPE_YV16, matrix);
}

/* An odd width would have planes that are wider than the picture. */
static void yv24_to_rgb(Function function, const Frame* f, double matrix) {
  EXPORT(KVL_ConvertYUVToRgb24);
  const BITMAPINFOHEADER* header = &f->picture->header;
  ColorConversionParams params;
  SIZE size;
  size.cx = header->biWidth / 2 * 2;
  size.cy = header->biHeight;
  KVL_FillColorConversionParams(&params, (int32_t)matrix, KVL_RANGE_FULL);
  call(&KVL_SUBTYPE_YV24, f->picture->bits, 0, size, f->result, -(int32_t)stride(f->picture),
       &params);
}

/* The flags of halving: 1 for interlaced, 2 for averages. Samples and RGB24 have one result. */
const DigestCase halving_cases[] = {
    {"KVL_ShrinkToHalf", halve_yv12, 0, 0},
    {"KVL_ShrinkToHalf", halve_yv12, 3, 1},
    {"KVL_ShrinkToHalf", halve_yv16, 2, 1},
    {"KVL_ShrinkToHalf", halve_yv24, 0, 0},
    {"KVL_ShrinkToHalf", halve_yv24, 3, 1},
    {"KVL_ShrinkToHalf", halve_nv12, 0, 1},
    {"KVL_ShrinkToHalf", halve_nv12, 3, 1},
    {"KVL_ShrinkToHalf", halve_yuy2, 2, 1},
    {"KVL_ShrinkToHalf", halve_yuy2, 3, 1},
    {"KVL_ShrinkToHalf", halve_rgb24, 2, 0},
    {"KVL_ShrinkToHalf", halve_rgb24, 3, 0},
    {"KVL_ShrinkToHalf", halve_rgb32, 2, 1},
    {"KVL_ShrinkToHalf", halve_rgb8, 1, 0},
    {"KVL_ShrinkToHalf", halve_rgb8, 2, 1},
    {"KVL_VoeCombineHalfFramesLpbi", combine, 0, 0},
    {"KVL_VoeCombineHalfFramesLpbi", combine, 1, 0},
    {"KVL_ConvertYUVToRgb24", yuy2_to_rgb, 0, 0},
    {"KVL_ConvertYUVToRgb24", uyvy_to_rgb, 1, 0},
    {"KVL_ConvertYUVToRgb24", yvyu_to_rgb, 2, 0},
    {"KVL_ConvertYUVToRgb24", yv12_to_rgb, 0, 0},
    {"KVL_ConvertYUVToRgb24", i420_to_rgb, 1, 0},
    {"KVL_ConvertYUVToRgb24", nv12_to_rgb, 2, 0},
    {"KVL_ConvertYUVToRgb24", yv16_to_rgb, 0, 0},
    {"KVL_ConvertYUVToRgb24", yv24_to_rgb, 1, 0},
    {NULL, NULL, 0, 0},
};
