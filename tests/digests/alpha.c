/* Premultiplication, colour shift and colour key. */
#include <math.h>

#include "digest.h"

/* Alphas in runs of 37 pixels: any, opaque, any, transparent, 0 or 1 or 255. */
static uint8_t* make_alpha(Run* run, size_t stride, int32_t rows) {
  uint8_t* const alpha = noise(run, stride * (size_t)rows);
  size_t i;
  for (i = 0; i < stride * (size_t)rows; ++i) {
    switch (i / 37 % 5) {
      case 1:
        alpha[i] = 255;
        break;
      case 3:
        alpha[i] = 0;
        break;
      case 4:
        alpha[i] = alpha[i] % 3 == 2 ? 255 : alpha[i] % 3;
        break;
      default:
        break;
    }
  }
  return alpha;
}

/* The routine and its reverse have one signature. */
static void with_headers(Run* run) {
  EXPORT(KVL_PremultiplyAlpha);
  const int32_t w = run->width, h = run->height;
  const int bits = run->p[0];
  const BITMAPINFOHEADER* const header = bitmap(run, w, run->p[1] ? -h : h, bits);
  const BITMAPINFOHEADER* const alpha_header = bitmap(run, w, h, 8);
  uint8_t* const colour = picture(run, w, h, bits / 8, dib_stride(w, bits));
  const uint8_t* const alpha = make_alpha(run, dib_stride(w, 8), h);
  begin(run);
  call(header, colour, alpha_header, alpha);
}

static void refused_headers(Run* run) {
  EXPORT(KVL_PremultiplyAlpha);
  const int32_t w = run->width, h = run->height;
  const BITMAPINFOHEADER* const header = bitmap(run, w, h, 24);
  const BITMAPINFOHEADER* const alpha_header = bitmap(run, w, h, 8);
  const BITMAPINFOHEADER* const none = bitmap(run, w, h, 0);
  const BITMAPINFOHEADER* const lowest = bitmap(run, w, INT32_MIN, 24);
  const BITMAPINFOHEADER* const negative = bitmap(run, -w, h, 24);
  uint8_t* const colour = noise(run, dib_stride(w, 24) * (size_t)h);
  const uint8_t* const alpha = make_alpha(run, dib_stride(w, 8), h);
  begin(run);
  call(NULL, colour, alpha_header, alpha);
  call(header, NULL, alpha_header, alpha);
  call(header, colour, NULL, alpha);
  call(header, colour, alpha_header, NULL);
  call(none, colour, alpha_header, alpha);
  call(header, colour, none, alpha);
  call(lowest, colour, alpha_header, alpha);
  call(negative, colour, alpha_header, alpha);
}

/* Strides: bytes between the rows, or for p[0] of 1 the colour from its last row upwards, or for 2 rows of
   colour that overlap by half. */
static void with_lines(Run* run) {
  EXPORT(KVL_PremultiplyAlphaLines);
  const int32_t w = run->width, h = run->height;
  const int32_t stride = run->p[0] == 2 ? (w * 3 + 1) / 2 : w * 3 + 5, alpha_stride = w + 3;
  uint8_t* const colour = picture(run, w, h, 3, (size_t)w * 3 + 5);
  const uint8_t* const alpha = make_alpha(run, (size_t)alpha_stride, h);
  begin(run);
  if (run->p[0] == 1) {
    call(colour + stride * (h - 1), -stride, alpha, alpha_stride, w, h);
  } else {
    call(colour, stride, alpha, alpha_stride, w, h);
  }
}

static void refused_lines(Run* run) {
  EXPORT(KVL_PremultiplyAlphaLines);
  const int32_t w = run->width, h = run->height;
  uint8_t* const colour = noise(run, (size_t)w * 3 * (size_t)h);
  const uint8_t* const alpha = make_alpha(run, (size_t)w, h);
  begin(run);
  call(NULL, w * 3, alpha, w, w, h);
  call(colour, w * 3, NULL, w, w, h);
  call(colour, w * 3, alpha, w, 0, h);
  call(colour, w * 3, alpha, w, -5, h);
  call(colour, w * 3, alpha, w, w, 0);
}

/* Amounts in hundredths; p[4] bits. */
static void shift(Run* run) {
  EXPORT(KVL_ApplyRGBColorShift);
  const int bits = 24;
  const BITMAPINFOHEADER* const header = bitmap(run, run->width, run->height, bits);
  uint8_t* const image = picture(run, run->width, run->height, 3, dib_stride(run->width, bits));
  begin(run);
  call(header, image, (float)run->p[0] / 100, (float)run->p[1] / 100, (float)run->p[2] / 100,
       run->p[3]);
}

static void refused_shift(Run* run) {
  EXPORT(KVL_ApplyRGBColorShift);
  const BITMAPINFOHEADER* const header = bitmap(run, run->width, run->height, 24);
  const BITMAPINFOHEADER* const top_down = bitmap(run, run->width, -run->height, 24);
  const BITMAPINFOHEADER* const none = bitmap(run, run->width, run->height, 0);
  uint8_t* const image = noise(run, dib_stride(run->width, 24) * (size_t)run->height);
  begin(run);
  call(NULL, image, 0.5f, 0, 0, 1);
  call(header, NULL, 0.5f, 0, 0, 1);
  call(header, image, 0, 0, -0.0f, 1);
  call(top_down, image, 0.5f, 0, 0, 1);
  call(none, image, 0.5f, 0, 0, 0);
}

/* Key colour, tolerances, strength of the spill, and from the last row upwards for p[6]. */
static void key(Run* run) {
  EXPORT(KVL_CalcAlphaBmpForMix_ColorBox);
  const int32_t w = run->width, h = run->height, stride = w * 3 + 4, mask_stride = w + 9;
  uint8_t* const image = picture(run, w, h, 3, (size_t)stride);
  uint8_t* const mask = noise(run, (size_t)mask_stride * (size_t)h);
  begin(run);
  if (run->p[6]) {
    call(mask + mask_stride * (h - 1), -mask_stride, image + stride * (h - 1), -stride, w, h,
         run->p[0], run->p[1], run->p[2], run->p[3], run->p[4], (uint32_t)run->p[5]);
  } else {
    call(mask, mask_stride, image, stride, w, h, run->p[0], run->p[1], run->p[2], run->p[3],
         run->p[4], (uint32_t)run->p[5]);
  }
}

static void refused_key(Run* run) {
  EXPORT(KVL_CalcAlphaBmpForMix_ColorBox);
  const int32_t w = run->width, h = run->height;
  uint8_t* const image = noise(run, (size_t)(w * 3 * h));
  uint8_t* const mask = noise(run, (size_t)(w * h));
  begin(run);
  call(NULL, w, image, w * 3, w, h, 0, 255, 0, 10, 30, 100);
  call(mask, w, NULL, w * 3, w, h, 0, 255, 0, 10, 30, 100);
  call(mask, w, image, w * 3, 0, h, 0, 255, 0, 10, 30, 100);
  call(mask, w, image, w * 3, w, -1, 0, 255, 0, 10, 30, 100);
}

const DigestCase alpha_cases[] = {
    CASE(ApplyRGBColorShift, "ratio, darker red", shift, ssse3, all, -30, 20, 10, 1),
    CASE(ApplyRGBColorShift, "ratio, full amounts", shift, ssse3, ends, 100, -100, 0, 1),
    CASE(ApplyRGBColorShift, "ratio, blue alone", shift, ssse3, ends, 0, 0, -75, -1),
    CASE(ApplyRGBColorShift, "difference, darker red", shift, ssse3, ends, -30, 20, 10, 0),
    CASE(ApplyRGBColorShift, "difference, full amounts", shift, ssse3, ends, -100, 100, 50, 0),
    CASE(ApplyRGBColorShift, "difference, amounts above 1", shift, ssse3, ends, 150, -130, 0, 0),
    REFUSED(ApplyRGBColorShift, refused_shift, 0),
    CASE(CalcAlphaBmpForMix_ColorBox, "green, spill 100", key, every, all, 40, 200, 60, 10, 40, 100,
         0),
    CASE(CalcAlphaBmpForMix_ColorBox, "blue, spill 63, upwards", key, every, ends, 20, 50, 190, 5,
         70, 63, 1),
    CASE(CalcAlphaBmpForMix_ColorBox, "red, spill 137, equal tolerances", key, every, ends, 220, 30,
         30, 30, 30, 137, 0),
    CASE(CalcAlphaBmpForMix_ColorBox, "grey, no spill", key, every, ends, 128, 128, 128, 0, 100, 0,
         0),
    CASE(CalcAlphaBmpForMix_ColorBox, "key and tolerances out of range", key, every, ends, 300, -40,
         1000, 20, 250, 100, 0),
    REFUSED(CalcAlphaBmpForMix_ColorBox, refused_key, 0),
    CASE(PremultiplyAlpha, "24 bits", with_headers, ssse3, all, 24, 0),
    CASE(PremultiplyAlpha, "24 bits, top-down", with_headers, ssse3, small, 24, 1),
    CASE(PremultiplyAlpha, "32 bits", with_headers, ssse3, ends, 32, 0),
    REFUSED(PremultiplyAlpha, refused_headers, 0),
    CASE(PremultiplyAlphaLines, "padded", with_lines, ssse3, all, 0),
    CASE(PremultiplyAlphaLines, "upwards", with_lines, ssse3, ends, 1),
    CASE(PremultiplyAlphaLines, "overlapping rows", with_lines, ssse3, larger, 2),
    REFUSED(PremultiplyAlphaLines, refused_lines, 0),
    CASE(ReverseAlphaPremul, "24 bits", with_headers, ssse3, all, 24, 0),
    CASE(ReverseAlphaPremul, "24 bits, top-down", with_headers, ssse3, small, 24, 1),
    CASE(ReverseAlphaPremul, "32 bits", with_headers, ssse3, ends, 32, 0),
    REFUSED(ReverseAlphaPremul, refused_headers, 0),
    CASE(ReverseAlphaPremulLines, "padded", with_lines, ssse3, all, 0),
    CASE(ReverseAlphaPremulLines, "upwards", with_lines, ssse3, ends, 1),
    CASE(ReverseAlphaPremulLines, "overlapping rows", with_lines, ssse3, larger, 2),
    REFUSED(ReverseAlphaPremulLines, refused_lines, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
