/* The sharpen filters. */
#include <math.h>

#include "digest.h"

typedef struct {
  BITMAPINFOHEADER* header;
  uint8_t* from;
  BITMAPINFOHEADER* to_header;
  uint8_t* to;
} Images;

static Images make_images(Run* run) {
  const size_t stride = dib_stride(run->width, 24);
  Images i;
  i.header = bitmap(run, run->width, run->height, 24);
  i.from = picture(run, run->width, run->height, 3, stride);
  i.to_header = bitmap(run, run->width, run->height, 24);
  i.to = noise(run, stride * (size_t)run->height);
  return i;
}

/* The three selective sharpens have one signature. Gains are in hundredths. */
static void selective(Run* run) {
  EXPORT(KVL_SelectiveSharpen);
  const Images i = make_images(run);
  begin(run);
  call(i.header, i.from, i.to_header, i.to, run->p[0],
       run->p[1] < 0 ? INFINITY : (float)run->p[1] / 100);
}

static void refused_selective(Run* run) {
  EXPORT(KVL_SelectiveSharpen);
  const Images i = make_images(run);
  BITMAPINFOHEADER* const other = bitmap(run, run->width - 1, run->height, 24);
  BITMAPINFOHEADER* const negative = bitmap(run, run->width, -run->height, 24);
  begin(run);
  call(i.header, i.from, i.to_header, i.to, 0, 2);
  call(i.header, i.from, i.to_header, i.to, 5, 0.99f);
  call(i.header, i.from, i.to_header, i.to, 5, NAN);
  call(NULL, i.from, i.to_header, i.to, 5, 2);
  call(i.header, NULL, i.to_header, i.to, 5, 2);
  call(i.header, i.from, NULL, i.to, 5, 2);
  call(i.header, i.from, i.to_header, NULL, 5, 2);
  call(i.header, i.from, other, i.to, 5, 2);
  call(negative, i.from, negative, i.to, 5, 2);
}

typedef struct {
  uint8_t* from;
  uint8_t* to;
  uint32_t stride, to_stride, width, height;
} Rows;

static Rows make_rows(Run* run, int32_t components) {
  Rows rows;
  rows.width = (uint32_t)run->width;
  rows.height = (uint32_t)run->height;
  rows.stride = rows.width * (uint32_t)components + 3;
  rows.to_stride = rows.stride + 14;
  rows.from = picture(run, run->width, run->height, components, rows.stride);
  rows.to = noise(run, (size_t)rows.to_stride * rows.height);
  return rows;
}

static void plane(Run* run) {
  EXPORT(KVL_SharpenSimpleUni);
  const Rows r = make_rows(run, 1);
  begin(run);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, run->p[0], (float)run->p[1] / 100);
}

static void components(Run* run) {
  EXPORT(KVL_SharpenSimpleUni_MultiComp);
  const Rows r = make_rows(run, run->p[2]);
  begin(run);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, run->p[0], (float)run->p[1] / 100,
       run->p[2], 1);
}

static void refused_plane(Run* run) {
  EXPORT(KVL_SharpenSimpleUni);
  const Rows r = make_rows(run, 1);
  begin(run);
  call(NULL, r.stride, r.to, r.to_stride, r.width, r.height, 1, 1);
  call(r.from, r.stride, NULL, r.to_stride, r.width, r.height, 1, 1);
  call(r.from, r.width - 1, r.to, r.to_stride, r.width, r.height, 1, 1);
  call(r.from, r.stride, r.to, r.width - 1, r.width, r.height, 1, 1);
  call(r.from, r.stride, r.to, r.to_stride, 0, r.height, 1, 1);
  call(r.from, r.stride, r.to, r.to_stride, r.width, 1048577, 1, 1);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, -1, 1);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 1, -0.5f);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 1, NAN);
}

static void refused_components(Run* run) {
  EXPORT(KVL_SharpenSimpleUni_MultiComp);
  const Rows r = make_rows(run, 4);
  begin(run);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 1, 1, 2, 1);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 1, 1, 3, 0);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, 1, 1, 3, 2);
  call(r.from, r.width * 4 - 1, r.to, r.to_stride, r.width, r.height, 1, 1, 4, 1);
  call(r.from, r.stride, r.to, r.to_stride, r.width, r.height, -1, 1, 3, 1);
}

const DigestCase sharpen_cases[] = {
    CASE(ModifiedSelectiveSharpenSimple, "threshold 4, gain 1.7", selective, every, all, 4, 170),
    CASE(ModifiedSelectiveSharpenSimple, "threshold 30, gain 3", selective, every, ends, 30, 300),
    CASE(ModifiedSelectiveSharpenSimple, "threshold 2^28 + 5", selective, every, odd, (1 << 28) + 5,
         300),
    CASE(ModifiedSelectiveSharpenSimple, "infinite gain", selective, every, odd, 9, -1),
    REFUSED(ModifiedSelectiveSharpenSimple, refused_selective, 0),
    CASE(SelectiveSharpen, "threshold 1, gain 1", selective, every, odd, 1, 100),
    CASE(SelectiveSharpen, "threshold 4, gain 1.7", selective, every, all, 4, 170),
    CASE(SelectiveSharpen, "threshold 30, gain 3", selective, every, ends, 30, 300),
    CASE(SelectiveSharpen, "infinite gain", selective, every, odd, 9, -1),
    REFUSED(SelectiveSharpen, refused_selective, 0),
    CASE(SelectiveSharpenSimple, "threshold 4, gain 1.7", selective, every, all, 4, 170),
    CASE(SelectiveSharpenSimple, "threshold 30, gain 3", selective, every, ends, 30, 300),
    CASE(SelectiveSharpenSimple, "threshold 2^28 + 5", selective, every, odd, (1 << 28) + 5, 300),
    CASE(SelectiveSharpenSimple, "infinite gain", selective, every, odd, 9, -1),
    REFUSED(SelectiveSharpenSimple, refused_selective, 0),
    CASE(SharpenSimpleUni, "threshold 0, gain 0.8", plane, every, all, 0, 80),
    CASE(SharpenSimpleUni, "threshold 9, gain 2.3", plane, every, ends, 9, 230),
    CASE(SharpenSimpleUni, "gain 500", plane, every, odd, 3, 50000),
    REFUSED(SharpenSimpleUni, refused_plane, 0),
    CASE(SharpenSimpleUni_MultiComp, "plane, gain 0.6", components, every, all, 2, 60, 1),
    CASE(SharpenSimpleUni_MultiComp, "3 components, gain 1.1", components, every, ends, 5, 110, 3),
    CASE(SharpenSimpleUni_MultiComp, "4 components, gain 4", components, every, ends, 0, 400, 4),
    REFUSED(SharpenSimpleUni_MultiComp, refused_components, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
