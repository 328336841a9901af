/* RGB to YUV and into frames, from the picture's rows and from packed bitmaps. */
#include <stdlib.h>

#include "digest_case.h"

static ColorConversionParams colours(double matrix, int32_t range) {
  ColorConversionParams params;
  KVL_FillColorConversionParams(&params, (int32_t)matrix, range);
  return params;
}

/* Where a rectangle of `area` lies in a frame of the picture's size and in the picture. */
static POINT place(int32_t x, int32_t y) {
  POINT point;
  point.x = x;
  point.y = y;
  return point;
}

static SIZE extent(int32_t cx, int32_t cy) {
  SIZE size;
  size.cx = cx;
  size.cy = cy;
  return size;
}

/* The whole picture for 0; for n a smaller rectangle at column n, with black around it. */
static SIZE rectangle(const Picture* picture, double column) {
  const int32_t less = column > 0 ? (int32_t)column + 8 : 0;
  return extent(picture->header.biWidth - less, picture->header.biHeight - less);
}

static void to_yuy2(Function function, const Frame* f, double column) {
  EXPORT(KVL_ConvertRgb24ToYUY2);
  const BITMAPINFOHEADER* header = &f->picture->header;
  const SIZE size = extent(header->biWidth, header->biHeight);
  const ColorConversionParams params = colours(KVL_MATRIX_BT709, KVL_RANGE_STUDIO);
  const int32_t at = (int32_t)column;
  call(f->picture->bits, (int32_t)stride(f->picture), size, f->result,
       (header->biWidth + 1) / 2 * 4, size, place(at, at), place(at, at / 2),
       rectangle(f->picture, column), &params);
}

static void to_y(Function function, const Frame* f, double matrix) {
  EXPORT(KVL_ConvertRgb24ToY);
  const BITMAPINFOHEADER* header = &f->picture->header;
  const ColorConversionParams params = colours(matrix, KVL_RANGE_FULL);
  call(f->picture->bits, (int32_t)stride(f->picture), f->result, header->biWidth, header->biWidth,
       header->biHeight, &params);
}

/* The picture as a packed bitmap, in the scratch. With 32 bits its bytes are other pixels. */
static const BITMAPINFOHEADER* packed(const Frame* f, int bits) {
  BITMAPINFOHEADER header = f->picture->header;
  header.biSize = sizeof header;
  header.biClrUsed = 0;
  header.biBitCount = (uint16_t)bits;
  if (bits == 32) header.biWidth = header.biWidth * 3 / 4;
  memcpy(f->work, &header, sizeof header);
  memcpy(f->work + sizeof header, f->picture->bits, f->picture->size);
  return (const BITMAPINFOHEADER*)f->work;
}

static void to_uyvy(Function function, const Frame* f, double column) {
  EXPORT(KVL_CopyRgbBmpToYUYVFrame);
  const BITMAPINFOHEADER* header = packed(f, 24);
  const int32_t at = (int32_t)column;
  call(header, place(at, at), f->result, extent(header->biWidth, header->biHeight),
       (header->biWidth + 1) / 2 * 4, place(at, at / 2), rectangle(f->picture, column),
       at % 2 == 0);
}

static void quads_to_uyvy(Function function, const Frame* f, double bt601) {
  EXPORT(KVL_CopyRgbBmpToYUYVFrame);
  const BITMAPINFOHEADER* header = packed(f, 32);
  const SIZE size = extent(header->biWidth, header->biHeight);
  call(header, place(0, 0), f->result, size, (header->biWidth + 1) / 2 * 4, place(0, 0), size,
       (uint8_t)bt601);
}

/* Half the picture's rows, because a frame has four bytes for a pixel. */
static void to_rgb_frame(Function function, const Frame* f, double bits) {
  EXPORT(KVL_CopyRgbBmpToRGBFrame);
  const BITMAPINFOHEADER* header = packed(f, (int)bits);
  const int32_t rows = header->biHeight / 2;
  call(header, place(4, 3), f->result, place(5, 2), header->biWidth * 4, rows,
       extent(header->biWidth - 11, rows - 4));
}

static void to_planes(Function function, const Frame* f, uint32_t mode, double flags) {
  EXPORT(KVL_RtyConvert);
  enum { most_threads = 64 };
  const uint32_t width = (uint32_t)f->picture->header.biWidth;
  const uint32_t height = (uint32_t)f->picture->header.biHeight;
  const ColorConversionParams params = colours(KVL_MATRIX_BT2020, KVL_RANGE_STUDIO);
  const size_t scratch = (size_t)most_threads * 2 * width;
  RtyConvertRecord record;
  memset(&record, 0, sizeof record);
  KVL_SetRtyConvertColors(&record, &params);
  record.flags = (uint32_t)flags;
  record.mode = mode;
  record.width = record.yStride = record.scratchRowSize = width;
  record.height = height;
  record.srcStride = (int32_t)stride(f->picture);
  record.uStride = record.vStride = mode == KVL_RTY_444 ? width : (width + 1) / 2;
  record.uPlaneOffset = width * height;
  record.vPlaneOffset = record.uPlaneOffset + record.uStride * height;
  /* What is left there depends on the team. */
  record.scratchA = calloc(2, scratch);
  if (record.scratchA) {
    record.scratchB = record.scratchA + scratch;
    call(&record, f->picture->bits, f->result);
  }
  free(record.scratchA);
}

static void to_box_420(Function function, const Frame* f, double flags) {
  to_planes(function, f, KVL_RTY_420_BOX, flags);
}

static void to_vertical_420(Function function, const Frame* f, double flags) {
  to_planes(function, f, KVL_RTY_420_VERTICAL, flags);
}

static void to_422(Function function, const Frame* f, double flags) {
  to_planes(function, f, KVL_RTY_422, flags);
}

static void to_444(Function function, const Frame* f, double flags) {
  to_planes(function, f, KVL_RTY_444, flags);
}

const DigestCase convert_cases[] = {
    {"KVL_ConvertRgb24ToYUY2", to_yuy2, 0, 1},
    {"KVL_ConvertRgb24ToYUY2", to_yuy2, 12, 1},
    {"KVL_ConvertRgb24ToYUY2", to_yuy2, 7, 1},
    {"KVL_ConvertRgb24ToY", to_y, KVL_MATRIX_BT601, 0},
    {"KVL_ConvertRgb24ToY", to_y, KVL_MATRIX_BT709, 0},
    {"KVL_CopyRgbBmpToYUYVFrame", to_uyvy, 0, 1},
    {"KVL_CopyRgbBmpToYUYVFrame", to_uyvy, 13, 1},
    {"KVL_CopyRgbBmpToYUYVFrame", quads_to_uyvy, 0, 1},
    {"KVL_CopyRgbBmpToYUYVFrame", quads_to_uyvy, 1, 1},
    {"KVL_CopyRgbBmpToRGBFrame", to_rgb_frame, 24, 0},
    {"KVL_CopyRgbBmpToRGBFrame", to_rgb_frame, 32, 0},
    {"KVL_RtyConvert", to_444, 0, 1},
    {"KVL_RtyConvert", to_444, KVL_RTY_BOTTOM_UP, 1},
    {"KVL_RtyConvert", to_422, 0, 1},
    {"KVL_RtyConvert", to_box_420, 0, 1},
    {"KVL_RtyConvert", to_box_420, KVL_RTY_INTERLACED, 1},
    {"KVL_RtyConvert", to_vertical_420, 0, 1},
    {NULL, NULL, 0, 0},
};
