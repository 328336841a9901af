/* The resize on the picture. The result has the picture's size, and shows it scaled in a part; what
   is enlarged fills it with a part of the picture. */
#include <stdlib.h>

#include "digest_case.h"

/* The part of the result that is drawn. */
static RECT drawn(const Picture* p, double scale) {
  RECT into;
  into.left = 5;
  into.top = 3;
  into.right = 5 + (int32_t)(p->header.biWidth * scale);
  into.bottom = 3 + (int32_t)(p->header.biHeight * scale);
  return into;
}

static void one_call(Function function, const Frame* f, double scale) {
  EXPORT(KVL_ResizeDIB_CPP);
  const Picture* p = f->picture;
  const RECT into = drawn(p, scale);
  const double part = scale > 1 ? scale : 1;
  const double rect[4] = {0, 0, p->header.biWidth / part, p->header.biHeight / part};
  call(&p->header, p->bits, rect, &p->header, f->result, &into, 0);
}

/* The rows as a grey bitmap, of a fractional rectangle that hangs over them. */
static void grey(Function function, const Frame* f, double scale) {
  EXPORT(KVL_ResizeDIB_RGB24_CPP);
  const Picture* p = f->picture;
  BITMAPINFOHEADER header = p->header;
  const RECT into = drawn(p, scale);
  const double rect[4] = {-7.25, 10.4, p->header.biWidth + 20.7, p->header.biHeight - 3.3};
  header.biWidth = (int32_t)stride(p);
  header.biBitCount = 8;
  call(&header, p->bits, rect, &header, f->result, &into, 0);
}

/* The fields that set-up and execution share with their hosts: the record, digested as a part of
   the result. */
static void set_up(Function function, const Frame* f, double scale) {
  EXPORT(KVL_SetupResizeDib);
  const Picture* p = f->picture;
  RECT into = drawn(p, scale);
  const double rect[4] = {10.5, -2.25, 1000000, 60.125};
  ResizeSetup setup;
  uint64_t needed = 0;
  memset(&setup, 0, sizeof setup);
  if (call(&p->header, rect, &p->header, &into, 1, &setup, &needed) != KVL_S_OK) abort();
  memcpy(f->result, &setup, sizeof setup);
  memcpy(f->result + sizeof setup, &into, sizeof into);
  memcpy(f->result + sizeof setup + sizeof into, &needed, sizeof needed);
}

/* A record made by hand is what a host of the two phases would hold: 8-bit, drawn at its own size
   into the middle of the rows, with border buffers. */
static void execute(Function function, const Frame* f, double shift) {
  EXPORT(KVL_CalcResizeDib);
  const Picture* p = f->picture;
  ResizeSetup s;
  memset(&s, 0, sizeof s);
  s.bytesPerPixel = 1;
  s.srcWidth = s.dstWidth = 40;
  s.srcHeight = s.dstHeight = 20;
  s.srcStride = s.dstStride = stride(p);
  s.srcLeft = 4 + shift;
  s.srcRight = 34 + shift;
  s.srcTop = 2;
  s.srcBottom = 18;
  s.srcRectWidth = s.srcRight - s.srcLeft;
  s.srcRectHeight = 16;
  s.dstClip.right = 40;
  s.dstClip.bottom = 20;
  s.scaleX = s.srcRectWidth / 40;
  s.scaleY = 16.0 / 20;
  s.srcFirstColumn = 4;
  s.srcBottomSkip = 2;
  s.srcColumnCount = 31;
  s.srcRowCount = 16;
  s.dstRowCount = 20;
  s.borderBuffers = 1;
  s.intermediateStride = 32;
  s.intermediateBytes = 40 * 32;
  s.weightBytes = 8 * 40 + 8;
  s.totalBytes = s.intermediateBytes + s.weightBytes + (40 + 20) * 2;
  if (call(&s, p->bits, f->result, f->work, p->size) != KVL_S_OK) abort();
  /* What is left in the work buffer is the library's own affair. */
  memset(f->work, 0, s.totalBytes);
}

const DigestCase resize_cases[] = {
    {"KVL_ResizeDIB_CPP", one_call, 0.02, 0},  {"KVL_ResizeDIB_CPP", one_call, 0.37, 0},
    {"KVL_ResizeDIB_CPP", one_call, 0.5, 0},   {"KVL_ResizeDIB_CPP", one_call, 0.67, 0},
    {"KVL_ResizeDIB_CPP", one_call, 1.5, 0},   {"KVL_ResizeDIB_CPP", one_call, 3.1, 0},
    {"KVL_ResizeDIB_RGB24_CPP", grey, 0.8, 0}, {"KVL_ResizeDIB_RGB24_CPP", grey, 0.31, 0},
    {"KVL_SetupResizeDib", set_up, 0.7, 0},    {"KVL_CalcResizeDib", execute, 0.25, 0},
    {"KVL_CalcResizeDib", execute, 0.75, 0},   {NULL, NULL, 0, 0},
};
