/* RGB to YUV and into frames. */
#include "digest.h"

enum { studio = KVL_RANGE_STUDIO, full = KVL_RANGE_FULL, own_rounding = 2 };

/* A block of a matrix and a range; or a studio block that rounds down and adds to each channel. */
static const ColorConversionParams* colours(Run* run, int32_t matrix, int32_t range) {
  ColorConversionParams params;
  keep_int(run, KVL_FillColorConversionParams(&params, matrix, range == full ? full : studio));
  if (range == own_rounding) {
    params.rounding = 0;
    params.yOffset = 30;
    params.uOffset = -3;
    params.vOffset = 5;
  }
  return copy_of(run, &params, sizeof params);
}

/* A rectangle in a frame of the run's size: the whole for 0, else inside it, its first column being
   p[0], with black around it, or hanging over the frame's right and lower edge for p[1] of 1. */
typedef struct {
  POINT from, to;
  SIZE area;
} Place;

static Place place(const Run* run) {
  const int32_t column = run->p[0], w = run->width, h = run->height;
  Place p;
  p.from = point_at(0, 0);
  p.to = point_at(0, 0);
  p.area = size_of(w, h);
  if (column == 0) return p;
  p.from = point_at(column / 4 * 4, h / 7);
  p.to = point_at(column, h / 5);
  if (run->p[1] == 0) p.area = size_of(w - 2 * column, h - h / 5 - 1 - h / 9);
  return p;
}

/* p[4]: 1 for a frame from its last row upwards, 2 for a source from its last row downwards. */
static void to_yuy2(Run* run) {
  EXPORT(KVL_ConvertRgb24ToYUY2);
  const Place p = place(run);
  const int32_t h = run->height;
  const SIZE size = size_of(run->width, h);
  const int32_t stride = (int32_t)dib_stride(run->width, 24);
  const int32_t to_stride = (run->width + 1) / 2 * 4 + 8;
  const ColorConversionParams* const params = colours(run, run->p[2], run->p[3]);
  uint8_t* const from = picture(run, run->width, h, 3, (size_t)stride);
  uint8_t* const to = noise(run, (size_t)to_stride * (size_t)h);
  begin(run);
  call(run->p[4] == 2 ? from + stride * (h - 1) : from, run->p[4] == 2 ? -stride : stride, size,
       run->p[4] == 1 ? to + to_stride * (h - 1) : to, run->p[4] == 1 ? -to_stride : to_stride,
       size, p.from, p.to, p.area, params);
}

static void refused_yuy2(Run* run) {
  EXPORT(KVL_ConvertRgb24ToYUY2);
  const SIZE size = size_of(run->width, run->height), none = size_of(run->width, 0);
  const int32_t stride = (int32_t)dib_stride(run->width, 24), to_stride = (run->width + 1) / 2 * 4;
  const ColorConversionParams* const params = colours(run, 0, studio);
  uint8_t* const from = noise(run, (size_t)stride * (size_t)run->height);
  uint8_t* const to = noise(run, (size_t)to_stride * (size_t)run->height);
  const POINT at = point_at(0, 0);
  begin(run);
  call(NULL, stride, size, to, to_stride, size, at, at, size, params);
  call(from, stride, size, NULL, to_stride, size, at, at, size, params);
  call(from, stride, size, to, to_stride, size, at, at, size, NULL);
  call(from, stride, none, to, to_stride, size, at, at, size, params);
  call(from, stride, size, to, to_stride, none, at, at, size, params);
  call(from, stride, size, to, 0, size, at, at, size, params);
}

static void to_y(Run* run) {
  EXPORT(KVL_ConvertRgb24ToY);
  const size_t stride = dib_stride(run->width, 24), to_stride = (size_t)run->width + 6;
  const ColorConversionParams* const params = colours(run, run->p[0], run->p[1]);
  uint8_t* const from = picture(run, run->width, run->height, 3, stride);
  uint8_t* const to = noise(run, to_stride * (size_t)run->height);
  const int flips = run->p[2];
  begin(run);
  call(flips ? from + stride * (size_t)(run->height - 1) : from,
       flips ? -(int32_t)stride : (int32_t)stride, to, (int32_t)to_stride, run->width, run->height,
       params);
}

static void refused_y(Run* run) {
  EXPORT(KVL_ConvertRgb24ToY);
  const int32_t w = run->width, h = run->height, stride = w * 3;
  const ColorConversionParams* const params = colours(run, 0, full);
  uint8_t* const from = noise(run, (size_t)(stride * h));
  uint8_t* const to = noise(run, (size_t)(w * h));
  begin(run);
  call(NULL, stride, to, w, w, h, params);
  call(from, stride, NULL, w, w, h, params);
  call(from, stride, to, w, w, h, NULL);
  call(from, stride, to, w, 0, h, params);
  call(from, stride, to, w, w, -1, params);
  call(from, stride, to, w - 1, w, h, params);
}

/* A packed bitmap, its rows right behind the header: p[2] bits, p[3] colours in the palette, or for
   -1 the masks of BI_BITFIELDS, and for p[4] rows from the top. */
static const BITMAPINFOHEADER* packed_bitmap(Run* run) {
  const int bits = run->p[2];
  const size_t colour_bytes = run->p[3] < 0 ? 12 : (size_t)run->p[3] * 4;
  const size_t stride = dib_stride(run->width, bits);
  BITMAPINFOHEADER header;
  uint8_t* packed;
  size_t y;
  const uint8_t* rows;
  memset(&header, 0, sizeof header);
  header.biSize = sizeof header;
  header.biWidth = run->width;
  header.biHeight = run->p[4] ? -run->height : run->height;
  header.biPlanes = 1;
  header.biBitCount = (uint16_t)bits;
  header.biCompression = run->p[3] < 0 ? 3 : 0;
  header.biClrUsed = run->p[3] < 0 ? 0 : (uint32_t)run->p[3];
  rows = picture(run, run->width, run->height, bits == 16 ? 1 : bits / 8, stride);
  packed = noise(run, sizeof header + colour_bytes + stride * (size_t)run->height);
  memcpy(packed, &header, sizeof header);
  for (y = 0; y < (size_t)run->height; ++y) {
    memcpy(packed + sizeof header + colour_bytes + y * stride, rows + y * stride, stride);
  }
  return (const BITMAPINFOHEADER*)packed;
}

static void to_rgb_frame(Run* run) {
  EXPORT(KVL_CopyRgbBmpToRGBFrame);
  const Place p = place(run);
  const int32_t stride = run->width * 4 + 12;
  const BITMAPINFOHEADER* const from = packed_bitmap(run);
  uint8_t* const to = noise(run, (size_t)stride * (size_t)run->height);
  uint8_t* const last = to + (size_t)stride * (size_t)(run->height - 1);
  begin(run);
  call(from, p.from, run->p[5] ? last : to, p.to, run->p[5] ? -stride : stride, run->height,
       p.area);
}

static void to_uyvy_frame(Run* run) {
  EXPORT(KVL_CopyRgbBmpToYUYVFrame);
  const Place p = place(run);
  const int32_t stride = (run->width + 1) / 2 * 4 + 4;
  const BITMAPINFOHEADER* const from = packed_bitmap(run);
  uint8_t* const to = noise(run, (size_t)stride * (size_t)run->height);
  uint8_t* const last = to + (size_t)stride * (size_t)(run->height - 1);
  const int flips = run->p[5] & 1;
  begin(run);
  call(from, p.from, flips ? last : to, size_of(run->width, run->height), flips ? -stride : stride,
       p.to, p.area, (uint8_t)(run->p[5] & 2));
}

static void refused_rgb_frame(Run* run) {
  EXPORT(KVL_CopyRgbBmpToRGBFrame);
  const int32_t stride = run->width * 4;
  const SIZE area = size_of(run->width, run->height);
  const POINT at = point_at(0, 0);
  const BITMAPINFOHEADER* const from = packed_bitmap(run);
  BITMAPINFOHEADER* const none = bitmap(run, 0, run->height, 24);
  BITMAPINFOHEADER* const low = bitmap(run, run->width, 0, 24);
  BITMAPINFOHEADER* const coded = bitmap(run, run->width, run->height, 24);
  uint8_t* const to = noise(run, (size_t)stride * (size_t)run->height);
  coded->biCompression = 0x32595559;
  begin(run);
  call(NULL, at, to, at, stride, run->height, area);
  call(from, at, NULL, at, stride, run->height, area);
  call(none, at, to, at, stride, run->height, area);
  call(low, at, to, at, stride, run->height, area);
  call(coded, at, to, at, stride, run->height, area);
  call(from, at, to, at, 0, run->height, area);
  call(from, at, to, at, stride, 0, area);
}

static void refused_uyvy_frame(Run* run) {
  EXPORT(KVL_CopyRgbBmpToYUYVFrame);
  const int32_t stride = run->width * 2 + 2;
  const SIZE area = size_of(run->width, run->height);
  const POINT at = point_at(0, 0);
  const BITMAPINFOHEADER* const from = packed_bitmap(run);
  BITMAPINFOHEADER* const none = bitmap(run, -1, run->height, 24);
  BITMAPINFOHEADER* const low = bitmap(run, run->width, 0, 24);
  uint8_t* const to = noise(run, (size_t)stride * (size_t)run->height);
  begin(run);
  call(NULL, at, to, area, stride, at, area, 0);
  call(from, at, NULL, area, stride, at, area, 0);
  call(none, at, to, area, stride, at, area, 1);
  call(low, at, to, area, stride, at, area, 1);
  call(from, at, to, area, 0, at, area, 1);
  call(from, at, to, size_of(run->width, -1), stride, at, area, 1);
}

/* Planes with bytes between their rows. The scratch holds two rows of each area for every thread
   and is no part of the result, nor is the record, which has its address. */
static void to_planes(Run* run) {
  EXPORT(KVL_RtyConvert);
  enum { most_threads = 64 };
  static uint8_t scratch[2][most_threads * 2 * 720];
  const uint32_t w = (uint32_t)run->width, h = (uint32_t)run->height;
  const uint32_t flags = (uint32_t)run->p[1];
  const size_t stride = dib_stride(run->width, 24);
  /* Bottom-up pairs reach past the last row. */
  const int32_t rows = run->height * (flags & KVL_RTY_BOTTOM_UP ? 2 : 1) + 4;
  RtyConvertRecord record, before;
  uint8_t *from, *to;
  memset(&record, 0x5A, sizeof record);
  KVL_SetRtyConvertColors(&record, colours(run, run->p[2], run->p[3]));
  record.flags = flags;
  record.mode = (uint32_t)run->p[0];
  record.width = w;
  record.height = h;
  record.srcStride = (int32_t)stride;
  record.yStride = w + 5;
  record.uStride = (record.mode == KVL_RTY_444 ? w : (w + 1) / 2) + 2;
  record.vStride = record.uStride + 1;
  record.uPlaneOffset = record.yStride * h + 7;
  record.vPlaneOffset = record.uPlaneOffset + record.uStride * h;
  record.scratchRowSize = w + 1;
  memset(scratch, 0x11, sizeof scratch);
  record.scratchA = scratch[0];
  record.scratchB = scratch[1];
  from = picture(run, run->width, rows, 3, stride);
  to = noise(run, record.vPlaneOffset + record.vStride * h);
  before = record;
  begin(run);
  keep_int(run, call(&record, from, to));
  keep_int(run, memcmp(&before, &record, sizeof record) == 0);
}

static void refused_planes(Run* run) {
  EXPORT(KVL_RtyConvert);
  const uint32_t w = (uint32_t)run->width, h = (uint32_t)run->height;
  RtyConvertRecord good, bad;
  uint8_t* const from = noise(run, dib_stride(run->width, 24) * h);
  uint8_t* const to = noise(run, 3 * (size_t)w * h);
  memset(&good, 0, sizeof good);
  KVL_SetRtyConvertColors(&good, colours(run, 0, studio));
  good.mode = KVL_RTY_422;
  good.width = good.yStride = good.uStride = good.vStride = good.scratchRowSize = w;
  good.height = h;
  good.srcStride = (int32_t)dib_stride(run->width, 24);
  good.uPlaneOffset = w * h;
  good.vPlaneOffset = 2 * w * h;
  begin(run);
  keep_int(run, call(NULL, from, to));
  keep_int(run, call(&good, from, to)); /* without scratch */
  good.mode = KVL_RTY_444;
  keep_int(run, call(&good, NULL, to));
  keep_int(run, call(&good, from, NULL));
  bad = good;
  bad.height = 0;
  keep_int(run, call(&bad, from, to));
  bad = good;
  bad.mode = 4;
  keep_int(run, call(&bad, from, to));
  bad = good;
  bad.width = 0x80000000u;
  keep_int(run, call(&bad, from, to));
  bad = good;
  bad.vStride = w - 1;
  keep_int(run, call(&bad, from, to));
}

enum { bt601 = KVL_MATRIX_BT601, bt709 = KVL_MATRIX_BT709, bt2020 = KVL_MATRIX_BT2020 };

const DigestCase convert_cases[] = {
    CASE(ConvertRgb24ToY, "BT.601, full range", to_y, every, all, bt601, full, 0),
    CASE(ConvertRgb24ToY, "BT.709, studio range, upside down", to_y, every, ends, bt709, studio, 1),
    CASE(ConvertRgb24ToY, "BT.2020, full range", to_y, every, ends, bt2020, full, 0),
    CASE(ConvertRgb24ToY, "own rounding", to_y, ssse3, ends, bt601, own_rounding, 0),
    REFUSED(ConvertRgb24ToY, refused_y, 0),
    CASE(ConvertRgb24ToYUY2, "BT.601, whole", to_yuy2, ssse3, all, 0, 0, bt601, studio, 0),
    CASE(ConvertRgb24ToYUY2, "BT.709, whole, frame upwards", to_yuy2, ssse3, ends, 0, 0, bt709,
         studio, 1),
    CASE(ConvertRgb24ToYUY2, "BT.2020, full range", to_yuy2, ssse3, ends, 0, 0, bt2020, full, 0),
    CASE(ConvertRgb24ToYUY2, "own rounding", to_yuy2, ssse3, ends, 0, 0, bt601, own_rounding, 0),
    CASE(ConvertRgb24ToYUY2, "part at column 12", to_yuy2, ssse3, larger, 12, 0, bt709, studio, 0),
    CASE(ConvertRgb24ToYUY2, "part at column 7, source downwards", to_yuy2, ssse3, larger, 7, 0,
         bt709, studio, 2),
    CASE(ConvertRgb24ToYUY2, "part at column 1", to_yuy2, ssse3, small, 1, 0, bt709, studio, 0),
    CASE(ConvertRgb24ToYUY2, "hanging over from column 21", to_yuy2, ssse3, ends, 21, 1, bt601,
         studio, 0),
    REFUSED(ConvertRgb24ToYUY2, refused_yuy2, 0),
    CASE(CopyRgbBmpToRGBFrame, "24 bits, whole", to_rgb_frame, every, all, 0, 0, 24, 0, 0, 0),
    CASE(CopyRgbBmpToRGBFrame, "32 bits, whole", to_rgb_frame, every, ends, 0, 0, 32, 0, 0, 0),
    CASE(CopyRgbBmpToRGBFrame, "32 bits, masks, part at column 8", to_rgb_frame, every, ends, 8, 0,
         32, -1, 0, 0),
    CASE(CopyRgbBmpToRGBFrame, "24 bits, palette, part at column 3", to_rgb_frame, every, ends, 3,
         0, 24, 5, 0, 1),
    CASE(CopyRgbBmpToRGBFrame, "24 bits, top-down, hanging over", to_rgb_frame, every, ends, 9, 1,
         24, 0, 1, 0),
    CASE(CopyRgbBmpToRGBFrame, "8 bits, part at column 4", to_rgb_frame, every, ends, 4, 0, 8, 256,
         0, 0),
    REFUSED(CopyRgbBmpToRGBFrame, refused_rgb_frame, 0, 0, 24, 0, 0, 0),
    CASE(CopyRgbBmpToYUYVFrame, "24 bits, BT.709, whole", to_uyvy_frame, ssse3, all, 0, 0, 24, 0, 0,
         0),
    CASE(CopyRgbBmpToYUYVFrame, "24 bits, BT.601, whole", to_uyvy_frame, ssse3, ends, 0, 0, 24, 0,
         0, 2),
    CASE(CopyRgbBmpToYUYVFrame, "32 bits, BT.709, whole", to_uyvy_frame, ssse3, ends, 0, 0, 32, 0,
         0, 0),
    CASE(CopyRgbBmpToYUYVFrame, "32 bits, masks, BT.601, at column 6", to_uyvy_frame, ssse3, ends,
         6, 0, 32, -1, 0, 2),
    CASE(CopyRgbBmpToYUYVFrame, "24 bits, BT.709, at column 5, upwards", to_uyvy_frame, ssse3, ends,
         5, 0, 24, 0, 0, 1),
    CASE(CopyRgbBmpToYUYVFrame, "24 bits, top-down, hanging over", to_uyvy_frame, ssse3, ends, 10,
         1, 24, 0, 1, 2),
    CASE(CopyRgbBmpToYUYVFrame, "16 bits, at column 3", to_uyvy_frame, every, ends, 3, 0, 16, 0, 0,
         0),
    CASE(CopyRgbBmpToYUYVFrame, "8 bits, at column 5", to_uyvy_frame, every, ends, 5, 0, 8, 256, 0,
         2),
    REFUSED(CopyRgbBmpToYUYVFrame, refused_uyvy_frame, 0, 0, 24, 0, 0, 0),
    CASE(RtyConvert, "4:2:0 box, BT.601", to_planes, ssse3, all, KVL_RTY_420_BOX, 0, bt601, studio),
    CASE(RtyConvert, "4:2:0 box, full range", to_planes, ssse3, ends, KVL_RTY_420_BOX, 0, bt709,
         full),
    CASE(RtyConvert, "4:2:0 box, interlaced", to_planes, ssse3, ends, KVL_RTY_420_BOX,
         KVL_RTY_INTERLACED, bt709, studio),
    CASE(RtyConvert, "4:2:0 box, bottom-up", to_planes, ssse3, ends, KVL_RTY_420_BOX,
         KVL_RTY_BOTTOM_UP, bt709, studio),
    CASE(RtyConvert, "4:2:2, BT.601, full range", to_planes, ssse3, ends, KVL_RTY_422, 0, bt601,
         full),
    CASE(RtyConvert, "4:2:2, bottom-up", to_planes, ssse3, ends, KVL_RTY_422, KVL_RTY_BOTTOM_UP,
         bt2020, studio),
    CASE(RtyConvert, "4:4:4, BT.2020", to_planes, ssse3, ends, KVL_RTY_444, 0, bt2020, studio),
    CASE(RtyConvert, "4:4:4, bottom-up, own rounding", to_planes, ssse3, ends, KVL_RTY_444,
         KVL_RTY_BOTTOM_UP, bt601, own_rounding),
    CASE(RtyConvert, "4:2:0 vertical, BT.2020", to_planes, ssse3, ends, KVL_RTY_420_VERTICAL, 0,
         bt2020, full),
    CASE(RtyConvert, "4:2:0 vertical, interlaced", to_planes, ssse3, ends, KVL_RTY_420_VERTICAL,
         KVL_RTY_INTERLACED, bt601, studio),
    CASE(RtyConvert, "4:2:0 vertical, bottom-up, interlaced", to_planes, ssse3, ends,
         KVL_RTY_420_VERTICAL, KVL_RTY_INTERLACED | KVL_RTY_BOTTOM_UP, bt601, studio),
    REFUSED(RtyConvert, refused_planes, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
