/* Gaussian, box, selective and path blurs. */
#include <math.h>

#include "digest.h"

/* An image of the run's size, and scratch that holds noise before the call. */
typedef struct {
  BITMAPINFOHEADER* header;
  uint8_t* bits;
  BITMAPINFOHEADER* work_header;
  uint8_t* work;
} Image;

static Image make_image(Run* run) {
  const size_t stride = dib_stride(run->width, 24);
  Image image;
  image.header = bitmap(run, run->width, run->height, 24);
  image.bits = picture(run, run->width, run->height, 3, stride);
  image.work_header = bitmap(run, run->width, run->height, 24);
  image.work = noise(run, stride * (size_t)run->height);
  return image;
}

static void gaussian(Run* run) {
  EXPORT(KVL_GaussianBlur);
  const Image i = make_image(run);
  begin(run);
  call(i.work_header, i.work, i.header, i.bits, run->p[0]);
}

/* What every blur of two headers refuses. */
static void refused_gaussian(Run* run) {
  EXPORT(KVL_GaussianBlur);
  const Image i = make_image(run);
  BITMAPINFOHEADER* const wider = bitmap(run, run->width + 1, run->height, 24);
  BITMAPINFOHEADER* const lower = bitmap(run, run->width, run->height - 1, 24);
  BITMAPINFOHEADER* const negative = bitmap(run, run->width, -run->height, 24);
  BITMAPINFOHEADER* const huge = bitmap(run, INT32_MAX, run->height, 24);
  begin(run);
  call(i.work_header, i.work, i.header, i.bits, 0);
  call(i.work_header, i.work, i.header, i.bits, INT32_MIN);
  call(NULL, i.work, i.header, i.bits, 3);
  call(i.work_header, NULL, i.header, i.bits, 3);
  call(i.work_header, i.work, NULL, i.bits, 3);
  call(i.work_header, i.work, i.header, NULL, 3);
  call(wider, i.work, i.header, i.bits, 3);
  call(lower, i.work, i.header, i.bits, 3);
  call(negative, i.work, negative, i.bits, 3);
  call(huge, i.work, huge, i.bits, 3);
}

static void averaging(Run* run) {
  EXPORT(KVL_AveragingBlur);
  const Image i = make_image(run);
  begin(run);
  call(i.work_header, i.work, i.header, i.bits, run->p[0]);
}

static void refused_averaging(Run* run) {
  EXPORT(KVL_AveragingBlur);
  const Image i = make_image(run);
  BITMAPINFOHEADER* const lower = bitmap(run, run->width, run->height - 1, 24);
  BITMAPINFOHEADER* const negative = bitmap(run, -run->width, run->height, 24);
  begin(run);
  call(i.work_header, i.work, i.header, i.bits, 0);
  call(NULL, i.work, i.header, i.bits, 3);
  call(i.work_header, NULL, i.header, i.bits, 3);
  call(i.work_header, i.work, NULL, i.bits, 3);
  call(i.work_header, i.work, i.header, NULL, 3);
  call(lower, i.work, i.header, i.bits, 3);
  call(negative, i.work, negative, i.bits, 3);
}

/* A bitmap of p[0] bits and its transposed twin, of which p[1], p[2] are the signs of the heights,
   and a rectangle: the whole for p[3] of 0, else a part that hangs over at the right or below. */
typedef struct {
  BITMAPINFOHEADER* header;
  BITMAPINFOHEADER* other_header;
  uint8_t* bits;
  uint8_t* other;
  int32_t x, y, width, height;
} Box;

static Box make_box(Run* run) {
  const int32_t w = run->width, h = run->height;
  const int bits = run->p[0];
  Box box;
  box.header = bitmap(run, w, run->p[1] ? -h : h, bits);
  box.other_header = bitmap(run, h, run->p[2] ? -w : w, bits);
  box.bits = picture(run, w, h, bits / 8, dib_stride(w, bits));
  box.other = noise(run, dib_stride(h, bits) * (size_t)w);
  box.x = run->p[3] ? w / 5 : 0;
  box.y = run->p[3] ? h / 7 : 0;
  box.width = run->p[3] == 1 ? w : run->p[3] == 2 ? (w + 1) / 2 : w;
  box.height = run->p[3] == 1 ? (h + 1) / 2 : h;
  return box;
}

static void box_blur(Run* run) {
  EXPORT(KVL_AvgBlurUni);
  const Box b = make_box(run);
  begin(run);
  call(b.header, b.bits, b.other_header, b.other, b.x, b.y, b.width, b.height, run->p[4],
       run->p[5]);
}

/* The radii in hundredths. */
static void fractional_box(Run* run) {
  EXPORT(KVL_AvgBlurUniFloat);
  const Box b = make_box(run);
  begin(run);
  call(b.header, b.bits, b.other_header, b.other, b.x, b.y, b.width, b.height,
       (float)run->p[4] / 100, (float)run->p[5] / 100);
}

static void refused_box(Run* run) {
  EXPORT(KVL_AvgBlurUni);
  const Box b = make_box(run);
  const int32_t w = run->width, h = run->height;
  BITMAPINFOHEADER* const same = bitmap(run, w + 1, h, 24);
  BITMAPINFOHEADER* const grey = bitmap(run, h, w, 8);
  BITMAPINFOHEADER* const high = bitmap(run, w, h, 16);
  BITMAPINFOHEADER* const high_other = bitmap(run, h, w, 16);
  begin(run);
  call(b.header, b.bits, b.other_header, b.other, 0, 0, w, h, 0, 2);
  call(b.header, b.bits, b.other_header, b.other, 0, 0, w, h, 2, 0);
  call(NULL, b.bits, b.other_header, b.other, 0, 0, w, h, 2, 2);
  call(b.header, NULL, b.other_header, b.other, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, NULL, b.other, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, b.other_header, NULL, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, same, b.other, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, grey, b.other, 0, 0, w, h, 2, 2);
  call(high, b.bits, high_other, b.other, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, b.other_header, b.other, -1, 0, w, h, 2, 2);
  call(b.header, b.bits, b.other_header, b.other, 0, -1, w, h, 2, 2);
  call(b.header, b.bits, b.other_header, b.other, w, 0, w, h, 2, 2);
  call(b.header, b.bits, b.other_header, b.other, 0, 0, w, 0, 2, 2);
}

static void refused_fractional_box(Run* run) {
  EXPORT(KVL_AvgBlurUniFloat);
  const Box b = make_box(run);
  const int32_t w = run->width, h = run->height;
  begin(run);
  call(b.header, b.bits, b.other_header, b.other, 0, 0, w, h, -0.5f, 2);
  call(b.header, b.bits, b.other_header, b.other, 0, 0, w, h, 2, NAN);
  call(b.header, b.bits, b.other_header, b.other, 0, 0, w, h, 3e9f, 2);
  call(NULL, b.bits, b.other_header, b.other, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, b.other_header, NULL, 0, 0, w, h, 2, 2);
  call(b.header, b.bits, b.header, b.other, 0, 0, w + 1, h, 2, 2);
  call(b.header, b.bits, b.other_header, b.other, 0, h, w, h, 2, 2);
}

/* A threshold, a radius in hundredths, and bytes between the rows of image and scratch. */
static void classic(Run* run) {
  EXPORT(KVL_BlurClassicUni);
  const size_t stride = (size_t)run->width * 3 + 5, work_stride = (size_t)run->height * 3 + 2;
  uint8_t* const image = picture(run, run->width, run->height, 3, stride);
  uint8_t* const work = noise(run, work_stride * (size_t)run->width);
  begin(run);
  call(image, (uint32_t)stride, work, (uint32_t)work_stride, (uint32_t)run->width,
       (uint32_t)run->height, run->p[0], (float)run->p[1] / 100);
}

/* The same with p[2] components. */
static void classic_components(Run* run) {
  EXPORT(KVL_BlurClassicUni_MultiComp);
  const int32_t components = run->p[2];
  const size_t stride = (size_t)(run->width * components), work_stride = (size_t)(run->height * 3);
  uint8_t* const image = picture(run, run->width, run->height, components, stride);
  uint8_t* const work = noise(run, work_stride * (size_t)run->width);
  begin(run);
  call(image, (uint32_t)stride, work, (uint32_t)work_stride, (uint32_t)run->width,
       (uint32_t)run->height, run->p[0], (float)run->p[1] / 100, components, 1);
}

static void refused_classic(Run* run) {
  EXPORT(KVL_BlurClassicUni);
  const uint32_t w = (uint32_t)run->width, h = (uint32_t)run->height;
  uint8_t* const image = picture(run, run->width, run->height, 3, 3 * (size_t)w);
  uint8_t* const work = noise(run, 3 * (size_t)h * w);
  begin(run);
  call(image, 3 * w, work, 3 * h, w, h, 20, 0);
  call(image, 3 * w, work, 3 * h, w, h, 20, -1);
  call(image, 3 * w, work, 3 * h, w, h, 20, NAN);
  call(image, 3 * w, work, 3 * h, w, h, 20, 3e9f);
  call(image, 3 * w, work, 3 * h, w, h, 0, 2);
  call(image, 3 * w, work, 3 * h, w, h, INT32_MAX, 2);
  call(NULL, 3 * w, work, 3 * h, w, h, 20, 2);
  call(image, 3 * w, NULL, 3 * h, w, h, 20, 2);
  call(image, 3 * w, work, 3 * h, 0, h, 20, 2);
  call(image, 3 * w, work, 3 * h, w, 0, 20, 2);
  if (w > 1 && h > 1) {
    call(image, 3 * w - 1, work, 3 * h, w, h, 20, 2);
    call(image, 3 * w, work, 3 * h - 1, w, h, 20, 2);
  }
}

static void refused_classic_components(Run* run) {
  EXPORT(KVL_BlurClassicUni_MultiComp);
  const uint32_t w = (uint32_t)run->width, h = (uint32_t)run->height;
  uint8_t* const image = picture(run, run->width, run->height, 3, 3 * (size_t)w);
  uint8_t* const work = noise(run, 3 * (size_t)h * w);
  int components;
  begin(run);
  for (components = -1; components < 5; ++components) {
    call(image, 3 * w, work, 3 * h, w, h, 20, 2, components, 0);
    if (components != 1 && components != 3)
      call(image, 3 * w, work, 3 * h, w, h, 20, 2, components, 1);
  }
  call(image, 3 * w, work, 3 * h, w, h, 0, 2, 3, 1);
}

static void selective(Run* run) {
  EXPORT(KVL_SelectiveBlur);
  const Image i = make_image(run);
  begin(run);
  call(i.header, i.bits, i.work_header, i.work, run->p[0], run->p[1]);
}

static void separable_selective(Run* run) {
  EXPORT(KVL_ModifiedSelectiveBlur);
  const Image i = make_image(run);
  begin(run);
  call(i.work_header, i.work, i.header, i.bits, run->p[0], run->p[1]);
}

static void refused_selective(Run* run) {
  EXPORT(KVL_SelectiveBlur);
  const Image i = make_image(run);
  BITMAPINFOHEADER* const lower = bitmap(run, run->width, run->height + 1, 24);
  BITMAPINFOHEADER* const negative = bitmap(run, run->width, -run->height, 24);
  begin(run);
  call(i.header, i.bits, i.work_header, i.work, 20, 0);
  call(i.header, i.bits, i.work_header, i.work, 0, 2);
  call(i.header, i.bits, i.work_header, i.work, INT32_MAX, 2);
  call(i.header, i.bits, i.work_header, i.work, 2, INT32_MAX);
  call(NULL, i.bits, i.work_header, i.work, 20, 2);
  call(i.header, NULL, i.work_header, i.work, 20, 2);
  call(i.header, i.bits, NULL, i.work, 20, 2);
  call(i.header, i.bits, i.work_header, NULL, 20, 2);
  call(i.header, i.bits, lower, i.work, 20, 2);
  call(negative, i.bits, negative, i.work, 20, 2);
}

static void refused_separable_selective(Run* run) {
  EXPORT(KVL_ModifiedSelectiveBlur);
  const Image i = make_image(run);
  BITMAPINFOHEADER* const lower = bitmap(run, run->width, run->height + 1, 24);
  begin(run);
  call(i.work_header, i.work, i.header, i.bits, 20, 0);
  call(i.work_header, i.work, i.header, i.bits, 0, 2);
  call(i.work_header, i.work, i.header, i.bits, INT32_MAX, 2);
  call(NULL, i.work, i.header, i.bits, 20, 2);
  call(i.work_header, i.work, i.header, NULL, 20, 2);
  call(lower, i.work, i.header, i.bits, 20, 2);
}

/* Raw rows of p[0] components with bytes between them, into rows farther apart. */
typedef struct {
  uint8_t* from;
  uint8_t* to;
  uint32_t stride, to_stride, width, height;
  double x, y; /* a centre off the middle */
} Rows;

static Rows make_rows(Run* run) {
  const int32_t components = run->p[0];
  Rows rows;
  rows.width = (uint32_t)run->width;
  rows.height = (uint32_t)run->height;
  rows.stride = rows.width * (uint32_t)components + 7;
  rows.to_stride = rows.stride + 9;
  rows.from = picture(run, run->width, run->height, components, rows.stride);
  rows.to = noise(run, (size_t)rows.to_stride * rows.height);
  rows.x = run->width * 0.375;
  rows.y = run->height * 0.8125 + 0.3;
  return rows;
}

/* Strength, angle and length in hundredths. With p[2] the centre lies outside the image. */
static void zoom(Run* run) {
  EXPORT(KVL_BlurZoom);
  const Rows r = make_rows(run);
  begin(run);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, run->p[2] ? -50.25 : r.x,
       run->p[2] ? run->height + 31 : r.y, run->p[1] / 100.0, run->p[0]);
}

static void radial(Run* run) {
  EXPORT(KVL_BlurRadial);
  const Rows r = make_rows(run);
  begin(run);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, run->p[2] ? -50.25 : r.x,
       run->p[2] ? run->height + 31 : r.y, run->p[1] / 100.0, run->p[0]);
}

static void directional(Run* run) {
  EXPORT(KVL_BlurDirectional);
  const Rows r = make_rows(run);
  begin(run);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, run->p[1] / 100.0, run->p[2] / 100.0,
       run->p[0]);
}

/* Zoom and radial blur have one signature, and refuse alike. */
static void refused_path(Run* run) {
  EXPORT(KVL_BlurZoom);
  const Rows r = make_rows(run);
  const uint32_t row = r.width * 3;
  begin(run);
  call(NULL, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, 1, 3);
  call(r.from, r.stride, NULL, r.to_stride, r.width, r.height, 5, 5, 1, 3);
  call(r.from, r.stride, r.to, r.to_stride, 0, r.height, 5, 5, 1, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, 1048577, 5, 5, 1, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, 1, 2);
  call(r.from, row - 1, r.to, r.to_stride, r.width, r.height, 5, 5, 1, 3);
  call(r.from, r.stride, r.to, row - 1, r.width, r.height, 5, 5, 1, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, -1, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, NAN, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, INFINITY, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 2e6, 5, 1, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, NAN, 1, 3);
}

static void refused_directional(Run* run) {
  EXPORT(KVL_BlurDirectional);
  const Rows r = make_rows(run);
  begin(run);
  call(NULL, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, 3);
  call(r.from, r.stride, NULL, r.to_stride, r.width, r.height, 5, 5, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, 0, 5, 5, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, 5, 5);
  call(r.from, r.stride, r.to, r.width * 3 - 1, r.width, r.height, 5, 5, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, INFINITY, 5, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, -1, 3);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 5, NAN, 3);
}

const DigestCase blur_cases[] = {
    CASE(AveragingBlur, "radius 1", averaging, every, all, 1),
    CASE(AveragingBlur, "radius 7", averaging, every, ends, 7),
    CASE(AveragingBlur, "radius 130", averaging, every, ends, 130),
    CASE(AveragingBlur, "radius 2100", averaging, every, odd, 2100),
    REFUSED(AveragingBlur, refused_averaging, 0),
    CASE(AvgBlurUni, "8 bits, radii 2 and 3", box_blur, every, all, 8, 0, 0, 0, 2, 3),
    CASE(AvgBlurUni, "24 bits, radii 9 and 1", box_blur, every, ends, 24, 0, 0, 0, 9, 1),
    CASE(AvgBlurUni, "32 bits, radii 4 and 6", box_blur, every, ends, 32, 0, 0, 0, 4, 6),
    CASE(AvgBlurUni, "8 bits, lower part", box_blur, every, ends, 8, 0, 0, 1, 3, 5),
    CASE(AvgBlurUni, "24 bits, lower part", box_blur, every, ends, 24, 0, 0, 1, 3, 5),
    CASE(AvgBlurUni, "32 bits, right part", box_blur, every, ends, 32, 0, 0, 2, 30, 5),
    CASE(AvgBlurUni, "24 bits, top-down", box_blur, every, ends, 24, 1, 0, 0, 3, 5),
    CASE(AvgBlurUni, "24 bits, top-down scratch", box_blur, every, ends, 24, 0, 1, 0, 3, 5),
    REFUSED(AvgBlurUni, refused_box, 24),
    CASE(AvgBlurUniFloat, "8 bits, radii 1.5 and 0.25", fractional_box, every, all, 8, 0, 0, 0, 150,
         25),
    CASE(AvgBlurUniFloat, "24 bits, radii 0 and 7.75", fractional_box, every, ends, 24, 0, 0, 0, 0,
         775),
    CASE(AvgBlurUniFloat, "32 bits, radii 3.3 and 12", fractional_box, every, ends, 32, 0, 0, 0,
         330, 1200),
    CASE(AvgBlurUniFloat, "24 bits, right part", fractional_box, every, ends, 24, 0, 0, 2, 215,
         455),
    REFUSED(AvgBlurUniFloat, refused_fractional_box, 24),
    CASE(BlurClassicUni, "selective, radius 1", classic, every, all, 12, 100),
    CASE(BlurClassicUni, "selective, radius 4.5", classic, every, ends, 40, 450),
    CASE(BlurClassicUni, "selective, threshold 300", classic, every, odd, 300, 250),
    CASE(BlurClassicUni, "box, radius 0.4", classic, every, ends, 255, 40),
    CASE(BlurClassicUni, "box, radius 3", classic, every, ends, 255, 300),
    CASE(BlurClassicUni, "box, radius 6.25", classic, every, ends, 255, 625),
    REFUSED(BlurClassicUni, refused_classic, 0),
    CASE(BlurClassicUni_MultiComp, "plane, selective", classic_components, every, all, 25, 350, 1),
    CASE(BlurClassicUni_MultiComp, "plane, box", classic_components, every, ends, 255, 350, 1),
    CASE(BlurClassicUni_MultiComp, "3 components, selective", classic_components, every, ends, 25,
         200, 3),
    CASE(BlurClassicUni_MultiComp, "3 components, box", classic_components, every, ends, 255, 175,
         3),
    REFUSED(BlurClassicUni_MultiComp, refused_classic_components, 0),
    CASE(BlurDirectional, "plane, 0 degrees, length 9", directional, every, all, 1, 0, 900),
    CASE(BlurDirectional, "plane, 33.25 degrees, length 21.5", directional, every, ends, 1, 3325,
         2150),
    CASE(BlurDirectional, "3 components, 90 degrees, length 12.3", directional, every, ends, 3,
         9000, 1230),
    CASE(BlurDirectional, "3 components, -120 degrees, length 6", directional, every, ends, 3,
         -12000, 600),
    CASE(BlurDirectional, "4 components, 200.5 degrees, length 4.75", directional, every, ends, 4,
         20050, 475),
    CASE(BlurDirectional, "3 components, copy", directional, every, odd, 3, 4500, 50),
    CASE(BlurDirectional, "plane, length 2000", directional, every, small, 1, 1000, 200000),
    REFUSED(BlurDirectional, refused_directional, 3),
    CASE(BlurRadial, "plane, 5 degrees", radial, every, all, 1, 500, 0),
    CASE(BlurRadial, "3 components, 2.5 degrees", radial, every, ends, 3, 250, 0),
    CASE(BlurRadial, "4 components, 1 degree, far centre", radial, every, ends, 4, 100, 1),
    CASE(BlurRadial, "3 components, 400 degrees", radial, every, small, 3, 40000, 0),
    REFUSED(BlurRadial, refused_path, 3),
    CASE(BlurZoom, "plane, strength 0.05", zoom, every, all, 1, 5, 0),
    CASE(BlurZoom, "3 components, strength 0.04", zoom, every, ends, 3, 4, 0),
    CASE(BlurZoom, "4 components, strength 0.02, far centre", zoom, every, ends, 4, 2, 1),
    CASE(BlurZoom, "3 components, strength 2.5", zoom, every, small, 3, 250, 0),
    REFUSED(BlurZoom, refused_path, 3),
    CASE(GaussianBlur, "radius 1", gaussian, every, all, 1),
    CASE(GaussianBlur, "radius 2", gaussian, every, ends, 2),
    CASE(GaussianBlur, "radius 3", gaussian, every, ends, 3),
    CASE(GaussianBlur, "radius 4", gaussian, every, ends, 4),
    CASE(GaussianBlur, "radius 5", gaussian, every, ends, 5),
    CASE(GaussianBlur, "radius 6", gaussian, every, ends, 6),
    CASE(GaussianBlur, "radius 7", gaussian, every, ends, 7),
    CASE(GaussianBlur, "radius 9, which counts as 8", gaussian, every, ends, 9),
    REFUSED(GaussianBlur, refused_gaussian, 0),
    CASE(ModifiedSelectiveBlur, "threshold 20, radius 5", separable_selective, every, all, 20, 5),
    CASE(ModifiedSelectiveBlur, "threshold 100, radius 1", separable_selective, every, ends, 100,
         1),
    CASE(ModifiedSelectiveBlur, "threshold 300, radius 40", separable_selective, every, odd, 300,
         40),
    REFUSED(ModifiedSelectiveBlur, refused_separable_selective, 0),
    CASE(SelectiveBlur, "threshold 20, radius 1", selective, every, all, 20, 1),
    CASE(SelectiveBlur, "threshold 60, radius 2", selective, every, ends, 60, 2),
    CASE(SelectiveBlur, "threshold 256, radius 3", selective, every, smaller, 256, 3),
    REFUSED(SelectiveBlur, refused_selective, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
