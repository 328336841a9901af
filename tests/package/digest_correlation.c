/* The grey conversions and the motion searches on the picture. */
#include <stdlib.h>

#include "digest_case.h"

static void frame_to_grey(Function function, const Frame* f, double padding) {
  EXPORT(KVL_ConvertFrameToGray);
  const BITMAPINFOHEADER* header = &f->picture->header;
  call(f->picture->bits, (int32_t)stride(f->picture), f->work, header->biWidth + (int32_t)padding,
       header->biWidth, header->biHeight);
}

/* The picture behind a header of its own, in the scratch that follows the grey image. */
static void packed_to_grey(Function function, const Frame* f, double mode) {
  EXPORT(KVL_Convert2Gray);
  const Picture* p = f->picture;
  uint8_t* packed = f->work + p->size - sizeof p->header;
  CorrelationOptions options;
  memset(&options, 0, sizeof options);
  options.width = p->header.biWidth;
  options.height = p->header.biHeight;
  options.fieldRepair = 1;
  options.fieldRepairMode = (uint32_t)mode % 10;
  options.source16Bit = mode > 10;
  options.fieldParity = 1;
  memcpy(packed, &p->header, sizeof p->header);
  memcpy(packed + sizeof p->header, p->bits, p->size);
  call((const BITMAPINFOHEADER*)packed, f->result, &options);
}

/* The green of the picture, the same moved by (4, 3) and lightened here and there, a mask, and a table
   of the larger of the two kinds of entries. */
typedef struct {
  int32_t width;
  int32_t height;
  uint8_t* a;
  uint8_t* b;
  uint8_t* mask;
  void* table;
  size_t entries;
} Scene;

static Scene make_scene(const Picture* p) {
  Scene s;
  int32_t x, y;
  s.width = p->header.biWidth;
  s.height = p->header.biHeight;
  s.entries = (size_t)s.width * (size_t)s.height;
  s.a = malloc(s.entries);
  s.b = malloc(s.entries);
  s.mask = malloc(s.entries);
  s.table = calloc(s.entries, sizeof(int64_t));
  if (!s.a || !s.b || !s.mask || !s.table) abort();
  for (y = 0; y < s.height; ++y) {
    for (x = 0; x < s.width; ++x) {
      const int32_t from_x = x >= 4 ? x - 4 : 0, from_y = y + 3 < s.height ? y + 3 : y;
      const size_t at = (size_t)y * (size_t)s.width + (size_t)x;
      s.a[at] = p->bits[(size_t)y * stride(p) + (size_t)x * 3 + 1];
      s.b[at] = p->bits[(size_t)from_y * stride(p) + (size_t)from_x * 3 + 1];
      if ((x / 7 + y / 5) % 4 == 0) s.b[at] = (uint8_t)(255 - (255 - s.b[at]) / 8 * 7);
      s.mask[at] = (uint8_t)(x * 5 + y * 3);
    }
  }
  return s;
}

/* Five blocks from corner to corner, of which the outer ones reach beyond the picture. */
enum { blocks = 5 };

static RECT block_of(const Scene* s, int index) {
  RECT block;
  block.left = (s->width + 24) * index / blocks - 12;
  block.top = (s->height + 24) * index / blocks - 12;
  block.right = block.left + 37;
  block.bottom = block.top + 23;
  return block;
}

/* Vector and score become part of the result; the table of the last block, of `size` bytes an
   entry, part of the scratch. */
static void keep(const Frame* f, int index, CorrelationVector vector, double score) {
  uint8_t* at = f->result + (size_t)index * (sizeof vector + sizeof score);
  memcpy(at, &vector, sizeof vector);
  memcpy(at + sizeof vector, &score, sizeof score);
}

static void finish(const Frame* f, Scene* s, size_t size) {
  const uint8_t* bytes = s->table;
  size_t i;
  for (i = 0; i < s->entries * size; ++i) {
    uint8_t* at = &f->work[i % (2 * f->picture->size)];
    *at = (uint8_t)(*at * 31 + bytes[i]);
  }
  free(s->a);
  free(s->b);
  free(s->mask);
  free(s->table);
}

static void squared(Function function, const Frame* f, double range) {
  EXPORT(KVL_CalcCorrelationNormal);
  Scene s = make_scene(f->picture);
  int i;
  for (i = 0; i < 2 * blocks; ++i) {
    const RECT block = block_of(&s, i % blocks);
    int64_t score;
    const CorrelationVector v = call(&score, s.a, s.width, s.b, s.width, i < blocks ? NULL : s.mask,
                                     s.width, s.height, &block, (int32_t)range);
    keep(f, i, v, (double)score);
  }
  finish(f, &s, 0);
}

static void squared_rings(Function function, const Frame* f, double steps) {
  EXPORT(KVL_CalcCorrelationIterativ);
  Scene s = make_scene(f->picture);
  const POINT start = {1, -1};
  int i;
  for (i = 0; i < blocks; ++i) {
    const RECT block = block_of(&s, i);
    int64_t score;
    memset(s.table, 0, s.entries * sizeof(int64_t));
    keep(f, i,
         call(&score, s.a, s.width, s.b, s.width, i % 2 ? s.mask : NULL, s.width, s.height, &block,
              &start, (int32_t)steps, 5, s.table),
         0);
    keep(f, blocks + i, (CorrelationVector){0, 0}, (double)score);
  }
  finish(f, &s, sizeof(int64_t));
}

static CorrelationOptions options_of(const Scene* s, int index) {
  const RECT block = block_of(s, index);
  CorrelationOptions options;
  memset(&options, 0, sizeof options);
  options.width = s->width;
  options.height = s->height;
  options.blockLeft = block.left;
  options.blockTop = block.top;
  options.blockRight = block.right;
  options.blockBottom = block.bottom;
  options.fieldRepair = index % 2 == 0;
  options.fieldRepairMode = 3;
  options.fieldParity = index == 2;
  options.subStep = 0.25f;
  options.subScale = 1;
  options.subRange = 0.5f;
  return options;
}

static void positive(Function function, const Frame* f, double range) {
  EXPORT(KVL_CalcCorrelationNorm);
  Scene s = make_scene(f->picture);
  int i;
  for (i = 0; i < blocks; ++i) {
    const CorrelationOptions options = options_of(&s, i);
    CorrelationBlockResult result;
    memset(&result, 0, sizeof result);
    keep(f, i, call(&result, s.a, s.b, (int32_t)range, &options, s.table), 0);
    keep(f, blocks + i, (CorrelationVector){0, 0}, result.score);
  }
  finish(f, &s, sizeof(uint32_t));
}

static void positive_rings(Function function, const Frame* f, double range) {
  EXPORT(KVL_CalcCorrelationIt);
  Scene s = make_scene(f->picture);
  uint32_t first = 0xFFFFFFFF;
  int i;
  for (i = 0; i < blocks; ++i) {
    const CorrelationOptions options = options_of(&s, i);
    CorrelationBlockResult result;
    memset(&result, 0, sizeof result);
    memset(s.table, 0, s.entries * sizeof(uint32_t));
    result.blockId = (uint32_t)i;
    keep(f, i, call(&result, s.a, s.b, (int32_t)range, 1, &options, s.table, &first), 0);
    keep(f, blocks + i, (CorrelationVector){result.limitHit, first}, result.score);
  }
  finish(f, &s, sizeof(uint32_t));
}

static void sub_pixel(Function function, const Frame* f, double step) {
  EXPORT(KVL_CalcCorrelationSub);
  Scene s = make_scene(f->picture);
  const CorrelationVector centre = {4, 3};
  int i;
  for (i = 0; i < blocks; ++i) {
    CorrelationOptions options = options_of(&s, i);
    CorrelationBlockResult result;
    memset(&result, 0, sizeof result);
    options.subStep = (float)step;
    keep(f, i, call(&result, s.a, s.b, &centre, &options), 0);
    keep(f, blocks + i, (CorrelationVector){0, 0}, result.score);
  }
  finish(f, &s, 0);
}

const DigestCase correlation_cases[] = {{"KVL_ConvertFrameToGray", frame_to_grey, 0, 0},
                                        {"KVL_ConvertFrameToGray", frame_to_grey, 5, 0},
                                        {"KVL_Convert2Gray", packed_to_grey, 0, 0},
                                        {"KVL_Convert2Gray", packed_to_grey, 1, 0},
                                        {"KVL_Convert2Gray", packed_to_grey, 2, 0},
                                        {"KVL_Convert2Gray", packed_to_grey, 4, 0},
                                        {"KVL_Convert2Gray", packed_to_grey, 12, 0},
                                        {"KVL_CalcCorrelationNormal", squared, 3, 0},
                                        {"KVL_CalcCorrelationNormal", squared, 9, 0},
                                        {"KVL_CalcCorrelationIterativ", squared_rings, 2, 0},
                                        {"KVL_CalcCorrelationIterativ", squared_rings, 5, 0},
                                        {"KVL_CalcCorrelationNorm", positive, 2, 0},
                                        {"KVL_CalcCorrelationNorm", positive, 8, 0},
                                        {"KVL_CalcCorrelationIt", positive_rings, 4, 0},
                                        {"KVL_CalcCorrelationIt", positive_rings, 9, 0},
                                        {"KVL_CalcCorrelationSub", sub_pixel, 0.25, 0},
                                        {"KVL_CalcCorrelationSub", sub_pixel, 0.125, 0},
                                        {NULL, NULL, 0, 0}};
