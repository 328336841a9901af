/* YUV to RGB. */
#include "digest.h"

enum { bt601 = KVL_MATRIX_BT601, bt709 = KVL_MATRIX_BT709, bt2020 = KVL_MATRIX_BT2020 };
enum { studio = KVL_RANGE_STUDIO, full = KVL_RANGE_FULL, odd_block = 2 };

/* Matrix and range, the sign of the bitmap's stride, and whether there are strides at all. */
static void to_rgb(Run* run, const GUID* subtype) {
  EXPORT(KVL_ConvertYUVToRgb24);
  const int32_t w = run->width, h = run->height;
  const int32_t stride = run->p[3] ? 2 * w + 10 : 0;
  const int32_t rgb_stride = run->p[3] ? w * 3 + 7 : (int32_t)dib_stride(w, 24);
  ColorConversionParams params;
  const uint8_t* from;
  uint8_t* to;
  keep_int(run, KVL_FillColorConversionParams(&params, run->p[0],
                                              run->p[1] == odd_block ? studio : run->p[1]));
  if (run->p[1] == odd_block) {
    params.redFromV = params.greenFromU = -32768;
    params.lumaFactor = 32767;
    params.lumaBias = -3;
    params.uCentre = 0;
    params.vCentre = 77;
  }
  from = picture(run, w + 4, h + 2, 4, (size_t)(w + 4) * 4);
  to = noise(run, (size_t)rgb_stride * (size_t)h);
  begin(run);
  keep_int(run, call(subtype, from, stride, size_of(w, h), to,
                     run->p[2] < 0   ? -rgb_stride
                     : run->p[3] > 0 ? rgb_stride
                                     : 0,
                     copy_of(run, &params, sizeof params)));
}

#define TO_RGB(name, subtype)  \
  static void name(Run* run) { \
    to_rgb(run, &subtype);     \
  }
TO_RGB(i420, KVL_SUBTYPE_I420)
TO_RGB(iyuv, KVL_SUBTYPE_IYUV)
TO_RGB(nv12, KVL_SUBTYPE_NV12)
TO_RGB(uyvy, KVL_SUBTYPE_UYVY)
TO_RGB(yuy2, KVL_SUBTYPE_YUY2)
TO_RGB(yv12, KVL_SUBTYPE_YV12)
TO_RGB(yv16, KVL_SUBTYPE_YV16)
TO_RGB(yv24, KVL_SUBTYPE_YV24)
TO_RGB(yvyu, KVL_SUBTYPE_YVYU)

static void refused(Run* run) {
  EXPORT(KVL_ConvertYUVToRgb24);
  static const GUID* const others[] = {&KVL_SUBTYPE_RGB8, &KVL_SUBTYPE_RGB24, &KVL_SUBTYPE_RGB32};
  const GUID* const yuy2_type = &KVL_SUBTYPE_YUY2;
  const int32_t w = run->width, h = run->height;
  const SIZE size = size_of(w, h);
  const uint8_t* const from = noise(run, (size_t)(w + 1) * 2 * (size_t)h);
  uint8_t* const to = noise(run, dib_stride(w, 24) * (size_t)h);
  ColorConversionParams params;
  size_t i;
  keep_int(run, KVL_FillColorConversionParams(&params, 3, 0));
  keep_int(run, KVL_FillColorConversionParams(&params, 0, 2));
  keep_int(run, KVL_FillColorConversionParams(NULL, 0, 0));
  keep_int(run, KVL_FillColorConversionParams(&params, 0, 0));
  begin(run);
  keep_int(run, call(NULL, from, 0, size, to, 0, &params));
  keep_int(run, call(yuy2_type, NULL, 0, size, to, 0, &params));
  keep_int(run, call(yuy2_type, from, 0, size, NULL, 0, &params));
  keep_int(run, call(yuy2_type, from, 0, size, to, 0, NULL));
  keep_int(run, call(yuy2_type, from, 0, size_of(0, h), to, 0, &params));
  keep_int(run, call(yuy2_type, from, 0, size_of(w, -h), to, 0, &params));
  keep_int(run, call(yuy2_type, from, 2 * w - 2, size, to, 0, &params));
  keep_int(run, call(yuy2_type, from, 0, size, to, 3 * w - 1, &params));
  keep_int(run, call(yuy2_type, from, 0, size, to, -3 * w + 1, &params));
  for (i = 0; i < sizeof others / sizeof *others; ++i) {
    keep_int(run, call(others[i], from, 0, size, to, 0, &params));
  }
  params.lumaFactor = 0;
  keep_int(run, call(yuy2_type, from, 0, size, to, 0, &params));
}

const DigestCase yuv_to_rgb_cases[] = {
    CASE(ConvertYUVToRgb24, "I420, BT.709", i420, every, all, bt709, studio, 1, 0),
    CASE(ConvertYUVToRgb24, "IYUV, BT.601, full range", iyuv, every, ends, bt601, full, 1, 0),
    CASE(ConvertYUVToRgb24, "NV12, BT.2020, top-down", nv12, every, ends, bt2020, studio, -1, 0),
    CASE(ConvertYUVToRgb24, "NV12, odd block", nv12, every, ends, bt601, odd_block, 1, 1),
    CASE(ConvertYUVToRgb24, "UYVY, BT.709, strides", uyvy, every, ends, bt709, studio, 1, 1),
    CASE(ConvertYUVToRgb24, "YUY2, BT.601", yuy2, every, ends, bt601, studio, 1, 0),
    CASE(ConvertYUVToRgb24, "YUY2, BT.601, full range, top-down, strides", yuy2, every, ends, bt601,
         full, -1, 1),
    CASE(ConvertYUVToRgb24, "YUY2, odd block", yuy2, every, ends, bt601, odd_block, 1, 0),
    CASE(ConvertYUVToRgb24, "YV12, BT.709, full range", yv12, every, ends, bt709, full, 1, 0),
    CASE(ConvertYUVToRgb24, "YV12, BT.601, top-down, strides", yv12, every, ends, bt601, studio, -1,
         1),
    CASE(ConvertYUVToRgb24, "YV16, BT.2020, full range", yv16, every, ends, bt2020, full, 1, 0),
    CASE(ConvertYUVToRgb24, "YV24, BT.709, top-down", yv24, every, ends, bt709, studio, -1, 0),
    CASE(ConvertYUVToRgb24, "YV24, odd block", yv24, every, ends, bt601, odd_block, 1, 1),
    CASE(ConvertYUVToRgb24, "YVYU, BT.2020", yvyu, every, ends, bt2020, studio, 1, 0),
    REFUSED(ConvertYUVToRgb24, refused, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
