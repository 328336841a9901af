/* The alpha and colour routines on the picture. */
#include <stdlib.h>

#include "digest_case.h"

/* The picture's own bytes serve as alphas, with a quarter of each row transparent and one opaque.
   The caller frees them. */
static uint8_t* make_alpha(const Picture* picture) {
  const size_t row = stride(picture), quarter = (size_t)picture->header.biWidth / 4;
  uint8_t* alpha = malloc(picture->size);
  size_t y;
  if (!alpha) return NULL;
  memcpy(alpha, picture->bits, picture->size);
  for (y = 0; y < (size_t)picture->header.biHeight; ++y) {
    memset(alpha + y * row + quarter, 0, quarter);
    memset(alpha + y * row + 2 * quarter, 255, quarter);
  }
  return alpha;
}

static BITMAPINFOHEADER alpha_header(const Picture* picture) {
  /* The rows are as far apart as the picture's. */
  BITMAPINFOHEADER header = picture->header;
  header.biWidth = (int32_t)stride(picture);
  header.biBitCount = 8;
  return header;
}

/* Four routines of two signatures. Without memory the null alpha makes them do nothing, which is a
   failure. */
static void with_headers(Function function, const Frame* f, double parameter) {
  const BITMAPINFOHEADER header = alpha_header(f->picture);
  uint8_t* alpha = make_alpha(f->picture);
  EXPORT(KVL_PremultiplyAlpha);
  (void)parameter;
  call(&f->picture->header, f->result, &header, alpha);
  free(alpha);
}

static void with_lines(Function function, const Frame* f, double lines) {
  const Picture* p = f->picture;
  const int32_t row = (int32_t)stride(p);
  uint8_t* alpha = make_alpha(p);
  EXPORT(KVL_PremultiplyAlphaLines);
  call(f->result, row, alpha, row, p->header.biWidth - 3, (int32_t)lines);
  free(alpha);
}

static void shift_by_ratio(Function function, const Frame* f, double amount) {
  EXPORT(KVL_ApplyRGBColorShift);
  call(&f->picture->header, f->result, (float)amount, -0.2f, 0.1f, 1);
}

static void shift_by_difference(Function function, const Frame* f, double amount) {
  EXPORT(KVL_ApplyRGBColorShift);
  call(&f->picture->header, f->result, (float)amount, -0.2f, 0.1f, 0);
}

static void key(Function function, const Frame* f, double spill) {
  const Picture* p = f->picture;
  EXPORT(KVL_CalcAlphaBmpForMix_ColorBox);
  call(f->work, p->header.biWidth, f->result, (int32_t)stride(p), p->header.biWidth,
       p->header.biHeight, 40, 130, 90, 10, 40, (uint32_t)spill);
}

const DigestCase alpha_cases[] = {
    {"KVL_PremultiplyAlpha", with_headers, 0, 1},
    {"KVL_PremultiplyAlphaLines", with_lines, 50, 1},
    {"KVL_ReverseAlphaPremul", with_headers, 0, 1},
    {"KVL_ReverseAlphaPremulLines", with_lines, 50, 1},
    {"KVL_ApplyRGBColorShift", shift_by_ratio, -0.3, 1},
    {"KVL_ApplyRGBColorShift", shift_by_difference, -0.3, 1},
    {"KVL_CalcAlphaBmpForMix_ColorBox", key, 100, 0},
    {"KVL_CalcAlphaBmpForMix_ColorBox", key, 63, 0},
    {NULL, NULL, 0, 0},
};
