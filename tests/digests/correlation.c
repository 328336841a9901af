/* Grey conversions and motion searches. */
#include <math.h>

#include "digest.h"

static void frame_to_grey(Run* run) {
  EXPORT(KVL_ConvertFrameToGray);
  const int32_t w = run->width, h = run->height, stride = w * 3 + 2, to_stride = w + 5;
  const uint8_t* const from = picture(run, w, h, 3, (size_t)stride);
  uint8_t* const to = noise(run, (size_t)to_stride * (size_t)h);
  begin(run);
  if (run->p[0]) {
    call(from + stride * (h - 1), -stride, to, to_stride, w, h);
  } else {
    call(from, stride, to, to_stride, w, h);
  }
}

static void refused_frame_to_grey(Run* run) {
  EXPORT(KVL_ConvertFrameToGray);
  const int32_t w = run->width, h = run->height;
  const uint8_t* const from = noise(run, (size_t)(w * 3 * h));
  uint8_t* const to = noise(run, (size_t)(w * h));
  begin(run);
  call(NULL, w * 3, to, w, w, h);
  call(from, w * 3, NULL, w, w, h);
  call(from, w * 3, to, w, 0, h);
  call(from, w * 3, to, w, w, -2);
}

static CorrelationOptions* grey_options(Run* run) {
  CorrelationOptions* const options = (CorrelationOptions*)noise(run, sizeof *options);
  options->width = run->width;
  options->height = run->height;
  options->fieldRepair = run->p[0] != 0;
  options->fieldRepairMode = (uint32_t)run->p[0];
  options->fieldParity = (uint32_t)run->p[1];
  options->channel = (uint32_t)run->p[2];
  options->source16Bit = (uint32_t)run->p[3];
  return options;
}

/* A packed bitmap at an odd address, with 6 bytes more in its header. */
static void packed_to_grey(Run* run) {
  EXPORT(KVL_Convert2Gray);
  const int32_t w = run->width, h = run->height;
  const size_t stride = run->p[3] ? 2 * (size_t)w : (((size_t)w + 1) * 3) & ~(size_t)3;
  const CorrelationOptions* const options = grey_options(run);
  const uint8_t* const rows = picture(run, w, h, run->p[3] ? 1 : 3, stride);
  uint8_t* const packed = noise(run, 47 + stride * (size_t)h) + 1;
  uint8_t* const to = noise(run, (size_t)w * (size_t)h);
  const uint32_t size = 46 | 7u << 16;
  memcpy(packed, &size, sizeof size);
  memcpy(packed + 46, rows, stride * (size_t)h);
  begin(run);
  call((const BITMAPINFOHEADER*)(const void*)packed, to, options);
}

static void refused_packed_to_grey(Run* run) {
  EXPORT(KVL_Convert2Gray);
  CorrelationOptions* const options = grey_options(run);
  uint8_t* const to = noise(run, 64);
  const BITMAPINFOHEADER* const from = bitmap(run, run->width, run->height, 24);
  CorrelationOptions none = *options;
  none.height = 0;
  begin(run);
  call(NULL, to, options);
  call(from, NULL, options);
  call(from, to, NULL);
  call(from, to, &none);
}

/* Image A, and B, which shows the same moved by (4, 3), lighter in places; a mask, and a table. */
typedef struct {
  int32_t width, height, stride;
  const uint8_t* a;
  uint8_t* b;
  const uint8_t* mask;
  uint8_t* table;
  size_t table_size;
} Scene;

enum { move_x = 4, move_y = 3 };

static Scene make_scene(Run* run, int32_t padding, size_t entry) {
  const int32_t w = run->width, h = run->height;
  Scene s;
  int32_t x, y;
  s.width = w;
  s.height = h;
  s.stride = w + padding;
  s.a = moved_picture(run, w, h, 1, (size_t)s.stride, 5, 5);
  s.b = moved_picture(run, w, h, 1, (size_t)s.stride, 5 - move_x, 5 + move_y);
  s.mask = picture(run, w, h, 1, (size_t)w);
  s.table_size = (size_t)w * (size_t)h * entry;
  s.table = noise(run, s.table_size);
  for (y = 0; y < h; ++y) {
    for (x = 0; x < w; ++x) {
      uint8_t* const b = &s.b[y * s.stride + x];
      if ((x / 7 + y / 5) % 4 == 0) *b = (uint8_t)(255 - (255 - *b) / 8 * 7);
    }
  }
  return s;
}

/* Blocks from corner to corner, of which the outer ones reach beyond the image. */
enum { blocks = 5 };

static RECT block_of(const Scene* s, int index) {
  const int32_t left = (s->width + 24) * index / blocks - 12;
  const int32_t top = (s->height + 24) * index / blocks - 12;
  return rect_of(left, top, left + 37, top + 23);
}

/* The vector, and the table after each block. */
static void keep_search(Run* run, const Scene* s, CorrelationVector vector) {
  keep(run, &vector, sizeof vector);
  keep(run, s->table, s->table_size);
}

static void squared(Run* run) {
  EXPORT(KVL_CalcCorrelationNormal);
  const Scene s = make_scene(run, 3, 0);
  int64_t* const scores = (int64_t*)noise(run, blocks * sizeof *scores);
  int i;
  begin(run);
  for (i = 0; i < blocks; ++i) {
    const RECT block = block_of(&s, i);
    keep_search(run, &s,
                call(&scores[i], s.a, s.stride, s.b, s.stride, run->p[1] ? s.mask : NULL, s.width,
                     s.height, &block, run->p[0]));
  }
}

static void refused_squared(Run* run) {
  EXPORT(KVL_CalcCorrelationNormal);
  const Scene s = make_scene(run, 0, 0);
  const RECT block = block_of(&s, 2);
  int64_t score = 77;
  begin(run);
  keep_search(run, &s, call(NULL, s.a, s.width, s.b, s.width, NULL, s.width, s.height, &block, 3));
  keep_search(run, &s,
              call(&score, NULL, s.width, s.b, s.width, NULL, s.width, s.height, &block, 3));
  keep_search(run, &s,
              call(&score, s.a, s.width, NULL, s.width, NULL, s.width, s.height, &block, 3));
  keep_search(run, &s, call(&score, s.a, s.width, s.b, s.width, NULL, s.width, s.height, NULL, 3));
  keep_int(run, score);
  keep_search(run, &s,
              call(&score, s.a, s.width, s.b, s.width, NULL, s.width, s.height, &block, -1));
  keep_int(run, score);
}

static void squared_rings(Run* run) {
  EXPORT(KVL_CalcCorrelationIterativ);
  const Scene s = make_scene(run, 3, sizeof(int64_t));
  int64_t* const scores = (int64_t*)noise(run, blocks * sizeof *scores);
  const POINT start = point_at(1, -1);
  int i;
  begin(run);
  for (i = 0; i < blocks; ++i) {
    const RECT block = block_of(&s, i);
    memset(s.table, 0, s.table_size);
    keep_search(run, &s,
                call(&scores[i], s.a, s.stride, s.b, s.stride, run->p[1] ? s.mask : NULL, s.width,
                     s.height, &block, i % 2 ? &start : NULL, run->p[0], 5, (int64_t*)s.table));
  }
}

static void refused_squared_rings(Run* run) {
  EXPORT(KVL_CalcCorrelationIterativ);
  const Scene s = make_scene(run, 0, sizeof(int64_t));
  const RECT block = block_of(&s, 2);
  const POINT start = point_at(5, -6);
  int64_t* const table = (int64_t*)s.table;
  int64_t score = 77;
  begin(run);
  keep_search(
      run, &s,
      call(NULL, s.a, s.width, s.b, s.width, NULL, s.width, s.height, &block, &start, 3, 5, table));
  keep_search(
      run, &s,
      call(&score, s.a, s.width, s.b, s.width, NULL, s.width, s.height, NULL, &start, 3, 5, table));
  keep_search(run, &s,
              call(&score, s.a, s.width, s.b, s.width, NULL, s.width, s.height, &block, &start, 3,
                   5, NULL));
  keep_int(run, score);
  keep_search(run, &s,
              call(&score, s.a, s.width, s.b, s.width, NULL, s.width, s.height, &block, &start, 0,
                   5, table));
  keep_int(run, score);
}

static CorrelationOptions* search_options(Run* run, const Scene* s, int index) {
  const RECT block = block_of(s, index);
  CorrelationOptions* const options = (CorrelationOptions*)noise(run, sizeof *options);
  options->width = s->width;
  options->height = s->height;
  options->blockLeft = block.left;
  options->blockTop = block.top;
  options->blockRight = block.right;
  options->blockBottom = block.bottom;
  options->fieldRepair = run->p[1] != 0;
  options->fieldRepairMode = 3;
  options->fieldParity = run->p[1] == 2;
  options->subStep = 0.25f;
  options->subScale = 1;
  options->subRange = 0.5f;
  return options;
}

static void positive(Run* run) {
  EXPORT(KVL_CalcCorrelationNorm);
  const Scene s = make_scene(run, 0, sizeof(uint32_t));
  CorrelationBlockResult* const results =
      (CorrelationBlockResult*)noise(run, blocks * sizeof *results);
  const CorrelationOptions* options[blocks];
  int i;
  for (i = 0; i < blocks; ++i) options[i] = search_options(run, &s, i);
  begin(run);
  for (i = 0; i < blocks; ++i) {
    keep_search(run, &s, call(&results[i], s.a, s.b, run->p[0], options[i], (uint32_t*)s.table));
  }
}

static void refused_positive(Run* run) {
  EXPORT(KVL_CalcCorrelationNorm);
  const Scene s = make_scene(run, 0, sizeof(uint32_t));
  const CorrelationOptions* const options = search_options(run, &s, 2);
  uint32_t* const table = (uint32_t*)s.table;
  CorrelationBlockResult result;
  memset(&result, 7, sizeof result);
  begin(run);
  keep_search(run, &s, call(NULL, s.a, s.b, 3, options, table));
  keep_search(run, &s, call(&result, NULL, s.b, 3, options, table));
  keep_search(run, &s, call(&result, s.a, NULL, 3, options, table));
  keep_search(run, &s, call(&result, s.a, s.b, 3, NULL, table));
  keep_search(run, &s, call(&result, s.a, s.b, 3, options, NULL));
  keep(run, &result, sizeof result);
  keep_search(run, &s, call(&result, s.a, s.b, -1, options, table));
  keep(run, &result, sizeof result);
}

static void positive_rings(Run* run) {
  EXPORT(KVL_CalcCorrelationIt);
  const Scene s = make_scene(run, 0, sizeof(uint32_t));
  CorrelationBlockResult* const results =
      (CorrelationBlockResult*)noise(run, blocks * sizeof *results);
  uint32_t* const first = (uint32_t*)noise(run, sizeof *first);
  const CorrelationOptions* options[blocks];
  int i;
  for (i = 0; i < blocks; ++i) options[i] = search_options(run, &s, i);
  *first = 0xFFFFFFFF;
  begin(run);
  for (i = 0; i < blocks; ++i) {
    memset(s.table, 0, s.table_size);
    keep_search(run, &s,
                call(&results[i], s.a, s.b, run->p[0], (uint8_t)run->p[2], options[i],
                     (uint32_t*)s.table, i == 3 ? NULL : first));
  }
}

static void refused_positive_rings(Run* run) {
  EXPORT(KVL_CalcCorrelationIt);
  const Scene s = make_scene(run, 0, sizeof(uint32_t));
  const CorrelationOptions* const options = search_options(run, &s, 2);
  uint32_t* const table = (uint32_t*)s.table;
  uint32_t first = 9;
  CorrelationBlockResult result;
  memset(&result, 7, sizeof result);
  begin(run);
  keep_search(run, &s, call(NULL, s.a, s.b, 6, 1, options, table, &first));
  keep_search(run, &s, call(&result, NULL, s.b, 6, 1, options, table, &first));
  keep_search(run, &s, call(&result, s.a, NULL, 6, 1, options, table, &first));
  keep_search(run, &s, call(&result, s.a, s.b, 6, 1, NULL, table, &first));
  keep_search(run, &s, call(&result, s.a, s.b, 6, 1, options, NULL, &first));
  keep(run, &result, sizeof result);
  keep_int(run, first);
}

/* Step and range in thousandths. */
static void sub_pixel(Run* run) {
  EXPORT(KVL_CalcCorrelationSub);
  const Scene s = make_scene(run, 0, 0);
  CorrelationBlockResult* const results =
      (CorrelationBlockResult*)noise(run, blocks * sizeof *results);
  const CorrelationVector centre = {move_x, move_y};
  CorrelationOptions* options[blocks];
  int i;
  for (i = 0; i < blocks; ++i) {
    options[i] = search_options(run, &s, i);
    options[i]->subStep = (float)run->p[0] / 1000;
    options[i]->subRange = (float)run->p[2] / 1000;
    options[i]->subScale = i == 1 ? -1 : 0.5f * (float)i;
  }
  begin(run);
  for (i = 0; i < blocks; ++i) {
    keep_search(run, &s, call(&results[i], s.a, s.b, &centre, options[i]));
  }
}

static void refused_sub_pixel(Run* run) {
  EXPORT(KVL_CalcCorrelationSub);
  const Scene s = make_scene(run, 0, 0);
  const CorrelationVector centre = {1, 1}, far_centre = {INFINITY, 0};
  CorrelationOptions* const options = search_options(run, &s, 2);
  CorrelationOptions fine = *options, negative = *options;
  CorrelationBlockResult result;
  fine.subStep = 0.0001f;
  negative.subRange = -1;
  memset(&result, 7, sizeof result);
  begin(run);
  keep_search(run, &s, call(NULL, s.a, s.b, &centre, options));
  keep_search(run, &s, call(&result, NULL, s.b, &centre, options));
  keep_search(run, &s, call(&result, s.a, NULL, &centre, options));
  keep_search(run, &s, call(&result, s.a, s.b, NULL, options));
  keep_search(run, &s, call(&result, s.a, s.b, &centre, NULL));
  keep(run, &result, sizeof result);
  keep_search(run, &s, call(&result, s.a, s.b, &centre, &fine));
  keep_search(run, &s, call(&result, s.a, s.b, &centre, &negative));
  keep_search(run, &s, call(&result, s.a, s.b, &far_centre, options));
  keep(run, &result, sizeof result);
}

const DigestCase correlation_cases[] = {
    CASE(CalcCorrelationIt, "range 4", positive_rings, every, all, 4, 0, 0),
    CASE(CalcCorrelationIt, "range 9, to the limit", positive_rings, every, ends, 9, 0, 1),
    CASE(CalcCorrelationIt, "range 12, second field", positive_rings, every, ends, 12, 2, 0),
    REFUSED(CalcCorrelationIt, refused_positive_rings, 0),
    CASE(CalcCorrelationIterativ, "2 steps", squared_rings, every, all, 2, 0),
    CASE(CalcCorrelationIterativ, "5 steps, mask", squared_rings, every, ends, 5, 1),
    REFUSED(CalcCorrelationIterativ, refused_squared_rings, 0),
    CASE(CalcCorrelationNorm, "range 2, first field", positive, every, all, 2, 1),
    CASE(CalcCorrelationNorm, "range 8", positive, every, ends, 8, 0),
    CASE(CalcCorrelationNorm, "range 5, second field", positive, every, ends, 5, 2),
    REFUSED(CalcCorrelationNorm, refused_positive, 0),
    CASE(CalcCorrelationNormal, "range 0", squared, every, all, 0, 0),
    CASE(CalcCorrelationNormal, "range 9", squared, every, ends, 9, 0),
    CASE(CalcCorrelationNormal, "range 6, mask", squared, every, ends, 6, 1),
    REFUSED(CalcCorrelationNormal, refused_squared, 0),
    CASE(CalcCorrelationSub, "step 0.25, range 0.5", sub_pixel, every, all, 250, 0, 500),
    CASE(CalcCorrelationSub, "step 0.3, range 1", sub_pixel, every, ends, 300, 0, 1000),
    REFUSED(CalcCorrelationSub, refused_sub_pixel, 0),
    CASE(Convert2Gray, "grey", packed_to_grey, every, all, 0, 0, 0, 0),
    CASE(Convert2Gray, "second byte", packed_to_grey, every, ends, 0, 0, 2, 0),
    CASE(Convert2Gray, "third byte, one field blank", packed_to_grey, every, ends, 1, 0, 3, 0),
    CASE(Convert2Gray, "one field repeated", packed_to_grey, every, ends, 2, 1, 0, 0),
    CASE(Convert2Gray, "one field interpolated", packed_to_grey, every, ends, 4, 0, 0, 0),
    CASE(Convert2Gray, "other field interpolated", packed_to_grey, every, ends, 4, 1, 1, 0),
    CASE(Convert2Gray, "16 bits", packed_to_grey, every, ends, 0, 0, 0, 1),
    CASE(Convert2Gray, "16 bits, one field blank", packed_to_grey, every, ends, 1, 0, 0, 1),
    CASE(Convert2Gray, "16 bits, one field repeated", packed_to_grey, every, ends, 2, 0, 0, 1),
    REFUSED(Convert2Gray, refused_packed_to_grey, 0),
    CASE(ConvertFrameToGray, "padded", frame_to_grey, every, all, 0),
    CASE(ConvertFrameToGray, "upside down", frame_to_grey, every, ends, 1),
    REFUSED(ConvertFrameToGray, refused_frame_to_grey, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
