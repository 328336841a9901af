/* The blur and sharpen filters on the picture. */
#include "digest_case.h"

static void gaussian(Function function, const Frame* f, double radius) {
  EXPORT(KVL_GaussianBlur);
  call(&f->picture->header, f->work, &f->picture->header, f->result, (int32_t)radius);
}

static void averaging(Function function, const Frame* f, double radius) {
  EXPORT(KVL_AveragingBlur);
  BITMAPINFOHEADER work_header = f->picture->header;
  call(&work_header, f->work, &f->picture->header, f->result, (int32_t)radius);
}

static BITMAPINFOHEADER transposed(const BITMAPINFOHEADER* header) {
  BITMAPINFOHEADER result = *header;
  result.biWidth = header->biHeight;
  result.biHeight = header->biWidth;
  return result;
}

static void rectangle_box(Function function, const Frame* f, double radius) {
  EXPORT(KVL_AvgBlurUni);
  const BITMAPINFOHEADER* header = &f->picture->header;
  const BITMAPINFOHEADER work_header = transposed(header);
  call(header, f->result, &work_header, f->work, header->biWidth / 5, header->biHeight / 7,
       header->biWidth / 2, header->biHeight / 3, (int32_t)radius, (int32_t)radius + 1);
}

static void fractional_box(Function function, const Frame* f, double radius) {
  EXPORT(KVL_AvgBlurUniFloat);
  const BITMAPINFOHEADER* header = &f->picture->header;
  const BITMAPINFOHEADER work_header = transposed(header);
  call(header, f->result, &work_header, f->work, 0, 0, header->biWidth, header->biHeight,
       (float)radius, (float)radius / 2);
}

static void selective(Function function, const Frame* f, double radius) {
  EXPORT(KVL_SelectiveBlur);
  call(&f->picture->header, f->picture->bits, &f->picture->header, f->result, 20, (int32_t)radius);
}

static void separable_selective(Function function, const Frame* f, double radius) {
  EXPORT(KVL_ModifiedSelectiveBlur);
  BITMAPINFOHEADER work_header = f->picture->header;
  call(&work_header, f->work, &f->picture->header, f->result, 20, (int32_t)radius);
}

/* The three sharpens have one signature. */
static void selective_sharpen(Function function, const Frame* f, double gain) {
  EXPORT(KVL_SelectiveSharpen);
  call(&f->picture->header, f->picture->bits, &f->picture->header, f->result, 4, (float)gain);
}

static void classic(Function function, const Frame* f, double threshold) {
  EXPORT(KVL_BlurClassicUni);
  const Picture* p = f->picture;
  call(f->result, stride(p), f->work, (uint32_t)p->header.biHeight * 3, (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, (int32_t)threshold, 4.5f);
}

/* The rows as a grey image of three times the width. */
static void classic_plane(Function function, const Frame* f, double threshold) {
  EXPORT(KVL_BlurClassicUni_MultiComp);
  const Picture* p = f->picture;
  call(f->result, stride(p), f->work, (uint32_t)p->header.biHeight, (uint32_t)p->header.biWidth * 3,
       (uint32_t)p->header.biHeight, (int32_t)threshold, 4.5f, 1, 1);
}

static void zoom(Function function, const Frame* f, double strength) {
  EXPORT(KVL_BlurZoom);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, p->header.biWidth * 0.4, p->header.biHeight * 0.3, strength,
       3);
}

static void radial(Function function, const Frame* f, double angle) {
  EXPORT(KVL_BlurRadial);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, p->header.biWidth * 0.4, p->header.biHeight * 0.3, angle, 3);
}

static void directional(Function function, const Frame* f, double angle) {
  EXPORT(KVL_BlurDirectional);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, angle, 21.5, 3);
}

static void sharpen_plane(Function function, const Frame* f, double gain) {
  EXPORT(KVL_SharpenSimpleUni);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth * 3,
       (uint32_t)p->header.biHeight, 3, (float)gain);
}

static void sharpen(Function function, const Frame* f, double gain) {
  EXPORT(KVL_SharpenSimpleUni_MultiComp);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, 3, (float)gain, 3, 1);
}

const DigestCase filter_cases[] = {
    {"KVL_GaussianBlur", gaussian, 1, 0},
    {"KVL_GaussianBlur", gaussian, 2, 0},
    {"KVL_GaussianBlur", gaussian, 3, 0},
    {"KVL_GaussianBlur", gaussian, 4, 0},
    {"KVL_GaussianBlur", gaussian, 5, 0},
    {"KVL_GaussianBlur", gaussian, 6, 0},
    {"KVL_GaussianBlur", gaussian, 7, 0},
    {"KVL_GaussianBlur", gaussian, 8, 0},
    {"KVL_AveragingBlur", averaging, 10, 0},
    {"KVL_AvgBlurUni", rectangle_box, 6, 0},
    {"KVL_AvgBlurUniFloat", fractional_box, 2.25, 0},
    {"KVL_SelectiveBlur", selective, 2, 0},
    {"KVL_ModifiedSelectiveBlur", separable_selective, 5, 0},
    {"KVL_BlurClassicUni", classic, 30, 0},
    {"KVL_BlurClassicUni", classic, 255, 0},
    {"KVL_BlurClassicUni_MultiComp", classic_plane, 30, 0},
    {"KVL_SelectiveSharpenSimple", selective_sharpen, 1.7, 0},
    {"KVL_ModifiedSelectiveSharpenSimple", selective_sharpen, 1.7, 0},
    {"KVL_SelectiveSharpen", selective_sharpen, 1.7, 0},
    {"KVL_BlurZoom", zoom, 0.06, 0},
    {"KVL_BlurRadial", radial, 3, 0},
    {"KVL_BlurDirectional", directional, 0, 0},
    {"KVL_BlurDirectional", directional, 33, 0},
    {"KVL_SharpenSimpleUni", sharpen_plane, 0.8, 0},
    {"KVL_SharpenSimpleUni_MultiComp", sharpen, 0.8, 0},
    {NULL, NULL, 0, 0},
};
