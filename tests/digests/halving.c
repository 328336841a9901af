/* Halving of frames and the weaving of fields. */
#include "digest.h"

enum { interlaced = 1, average = 2 };

/* Enough for any layout: four bytes a pixel of an even width and height, and some. */
static size_t frame_size(int32_t width, int32_t height) {
  return (size_t)(width + 2) * (size_t)(height + 2) * 4;
}

/* A frame to one of half its size, or for p[1] to a larger or smaller one. Planes hold the picture's
   bytes as they lie. */
static void halve(Run* run, const GUID* subtype) {
  EXPORT(KVL_ShrinkToHalf);
  const int32_t w = run->width, h = run->height;
  const SIZE from_size = size_of(w, h);
  SIZE to_size = size_of((w + 1) / 2, (h + 1) / 2);
  uint8_t *from, *to;
  if (run->p[1] == 1) to_size = size_of(w / 2 + 5, h / 2 + 3);
  if (run->p[1] == 2) to_size = size_of(w / 3 + 1, h / 3 + 1);
  from = picture(run, w + 2, h + 2, 4, (size_t)(w + 2) * 4);
  to = noise(run, frame_size(to_size.cx, to_size.cy));
  begin(run);
  keep_int(run, call(subtype, from, run->p[2] ? (w + 2) * 4 : 0, from_size, to,
                     run->p[2] ? (to_size.cx + 2) * 4 : 0, to_size, (uint32_t)run->p[0]));
}

#define HALVE(name, subtype)   \
  static void name(Run* run) { \
    halve(run, &subtype);      \
  }
HALVE(nv12, KVL_SUBTYPE_NV12)
HALVE(rgb24, KVL_SUBTYPE_RGB24)
HALVE(rgb32, KVL_SUBTYPE_RGB32)
HALVE(rgb8, KVL_SUBTYPE_RGB8)
HALVE(yuy2, KVL_SUBTYPE_YUY2)
HALVE(yv12, KVL_SUBTYPE_YV12)
HALVE(yv16, KVL_SUBTYPE_YV16)
HALVE(yv24, KVL_SUBTYPE_YV24)

static void refused_halving(Run* run) {
  EXPORT(KVL_ShrinkToHalf);
  static const GUID* const others[] = {&KVL_SUBTYPE_UYVY, &KVL_SUBTYPE_YVYU, &KVL_SUBTYPE_I420,
                                       &KVL_SUBTYPE_IYUV};
  const SIZE size = size_of(run->width, run->height),
             half = size_of(run->width / 2, run->height / 2);
  const SIZE none = size_of(0, 9), negative = size_of(9, -1);
  uint8_t* const from = noise(run, frame_size(size.cx, size.cy));
  uint8_t* const to = noise(run, frame_size(half.cx, half.cy));
  GUID near_miss = KVL_SUBTYPE_YUY2;
  size_t i;
  near_miss.Data4[7] ^= 1;
  begin(run);
  keep_int(run, call(NULL, from, 0, size, to, 0, half, 0));
  keep_int(run, call(&KVL_SUBTYPE_YUY2, NULL, 0, size, to, 0, half, 0));
  keep_int(run, call(&KVL_SUBTYPE_YUY2, from, 0, size, NULL, 0, half, 0));
  keep_int(run, call(&KVL_SUBTYPE_YUY2, from, 0, none, to, 0, half, 0));
  keep_int(run, call(&KVL_SUBTYPE_YUY2, from, 0, size, to, 0, negative, 0));
  keep_int(run, call(&near_miss, from, 0, size, to, 0, half, 0));
  for (i = 0; i < sizeof others / sizeof *others; ++i) {
    keep_int(run, call(others[i], from, 0, size, to, 0, half, 2));
  }
}

static void weave(Run* run) {
  EXPORT(KVL_VoeCombineHalfFramesLpbi);
  const int bits = run->p[0];
  const BITMAPINFOHEADER* const header = bitmap(run, run->width, run->height, bits);
  const size_t stride = dib_stride(run->width, bits);
  uint8_t* const to = noise(run, stride * (size_t)run->height);
  const uint8_t* const from = picture(run, run->width, run->height, bits / 8, stride);
  begin(run);
  call(header, to, from, run->p[1]);
}

static void refused_weave(Run* run) {
  EXPORT(KVL_VoeCombineHalfFramesLpbi);
  const size_t size = dib_stride(run->width, 24) * (size_t)run->height;
  const BITMAPINFOHEADER* const header = bitmap(run, run->width, run->height, 24);
  const BITMAPINFOHEADER* const top_down = bitmap(run, run->width, -run->height, 24);
  const BITMAPINFOHEADER* const one_row = bitmap(run, run->width, 1, 24);
  const BITMAPINFOHEADER* const none = bitmap(run, run->width, run->height, 0);
  uint8_t* const to = noise(run, size);
  const uint8_t* const from = noise(run, size);
  begin(run);
  call(NULL, to, from, 0);
  call(header, NULL, from, 0);
  call(header, to, NULL, 1);
  call(top_down, to, from, 0);
  call(one_row, to, from, 0);
  call(none, to, from, 0);
}

const DigestCase halving_cases[] = {
    CASE(ShrinkToHalf, "NV12", nv12, sse2, all, 0),
    CASE(ShrinkToHalf, "NV12, interlaced, larger frame", nv12, sse2, ends, interlaced, 1),
    CASE(ShrinkToHalf, "NV12, average", nv12, sse2_and_ssse3, ends, average),
    CASE(ShrinkToHalf, "NV12, average, interlaced", nv12, sse2_and_ssse3, ends,
         average | interlaced),
    CASE(ShrinkToHalf, "RGB24", rgb24, every, ends, 0),
    CASE(ShrinkToHalf, "RGB24, interlaced, larger frame", rgb24, every, ends, interlaced, 1),
    CASE(ShrinkToHalf, "RGB24, smaller frame, strides", rgb24, every, ends, average, 2, 1),
    CASE(ShrinkToHalf, "RGB32", rgb32, sse2, ends, 0),
    CASE(ShrinkToHalf, "RGB32, interlaced, larger frame", rgb32, sse2, ends, interlaced | average,
         1),
    CASE(ShrinkToHalf, "RGB32, smaller frame, strides", rgb32, sse2, ends, 0, 2, 1),
    CASE(ShrinkToHalf, "RGB8", rgb8, every, ends, 0),
    CASE(ShrinkToHalf, "RGB8, interlaced, larger frame", rgb8, every, ends, interlaced, 1),
    CASE(ShrinkToHalf, "RGB8, average", rgb8, ssse3, ends, average),
    CASE(ShrinkToHalf, "RGB8, average, smaller frame, strides", rgb8, ssse3, ends, average, 2, 1),
    CASE(ShrinkToHalf, "YUY2", yuy2, sse2, ends, 0),
    CASE(ShrinkToHalf, "YUY2, interlaced, larger frame", yuy2, sse2, ends, interlaced, 1),
    CASE(ShrinkToHalf, "YUY2, average, smaller frame, strides", yuy2, sse2, ends, average, 2, 1),
    CASE(ShrinkToHalf, "YV12", yv12, every, ends, 0),
    CASE(ShrinkToHalf, "YV12, interlaced, larger frame", yv12, every, ends, interlaced, 1),
    CASE(ShrinkToHalf, "YV12, average", yv12, ssse3, ends, average),
    CASE(ShrinkToHalf, "YV12, average, interlaced, smaller frame", yv12, ssse3, ends,
         average | interlaced, 2),
    CASE(ShrinkToHalf, "YV16", yv16, every, ends, 0),
    CASE(ShrinkToHalf, "YV16, average", yv16, ssse3, ends, average),
    CASE(ShrinkToHalf, "YV16, average, interlaced, larger frame", yv16, ssse3, ends,
         average | interlaced, 1),
    CASE(ShrinkToHalf, "YV24", yv24, every, ends, 0),
    CASE(ShrinkToHalf, "YV24, average", yv24, ssse3, ends, average),
    CASE(ShrinkToHalf, "YV24, average, interlaced, smaller frame", yv24, ssse3, ends,
         average | interlaced, 2),
    REFUSED(ShrinkToHalf, refused_halving, 0),
    CASE(VoeCombineHalfFramesLpbi, "24 bits, first field", weave, every, all, 24, 0),
    CASE(VoeCombineHalfFramesLpbi, "24 bits, second field", weave, every, ends, 24, 1),
    CASE(VoeCombineHalfFramesLpbi, "8 bits, first field", weave, every, ends, 8, 0),
    CASE(VoeCombineHalfFramesLpbi, "32 bits, second field", weave, every, ends, 32, -1),
    REFUSED(VoeCombineHalfFramesLpbi, refused_weave, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
