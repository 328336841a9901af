/* Set-up, execution and the calls that do both. */
#include <math.h>

#include "digest.h"

/* Where the result goes and what of the source it shows, by p[1]: the axes' scales in hundredths in
   p[2] and p[3], which are of the destination's size to the source's. */
typedef struct {
  BITMAPINFOHEADER* from_header;
  BITMAPINFOHEADER* to_header;
  double* from_rect;
  RECT* to_rect;
  int bits;
} Geometry;

enum { whole, fractional, hanging_over };

static int32_t scaled(int32_t size, int32_t hundredths) {
  const int32_t result = (int32_t)((int64_t)size * hundredths / 100);
  return result < 1 ? 1 : result > 700 ? 700 : result;
}

static Geometry make_geometry(Run* run) {
  const int32_t w = run->width, h = run->height;
  const int32_t to_w = scaled(w, run->p[2]), to_h = scaled(h, run->p[3]);
  double rect[4] = {0, 0, 0, 0};
  RECT into = rect_of(0, 0, to_w, to_h);
  Geometry g;
  rect[2] = w;
  rect[3] = h;
  if (run->p[1] == fractional) {
    rect[0] = w / 9 + 0.05;
    rect[1] = h / 13 + 0.95;
    rect[2] = w - w / 16 - 0.9;
    rect[3] = h - h / 32 - 0.05;
    into = rect_of(2, 1, to_w - 1, to_h + 5);
  } else if (run->p[1] == hanging_over) {
    rect[0] = -7.25;
    rect[1] = h / 8.0;
    rect[2] = w + 20.7;
    rect[3] = h + 3.3;
    into = rect_of(-3, 2, to_w + 1, to_h - 1);
  }
  g.bits = run->p[0];
  g.from_header = bitmap(run, w, h, g.bits);
  g.to_header = bitmap(run, to_w, to_h, g.bits);
  g.from_rect = copy_of(run, rect, sizeof rect);
  g.to_rect = copy_of(run, &into, sizeof into);
  return g;
}

static void one_call(Run* run) {
  EXPORT(KVL_ResizeDIB_CPP);
  const Geometry g = make_geometry(run);
  const size_t to_size = dib_stride(g.to_header->biWidth, g.bits) * (size_t)g.to_header->biHeight;
  uint8_t* const from =
      picture(run, run->width, run->height, g.bits / 8, dib_stride(run->width, g.bits));
  uint8_t* const to = noise(run, to_size);
  begin(run);
  keep_int(run,
           call(g.from_header, from, g.from_rect, g.to_header, to, g.to_rect, (uint32_t)run->p[4]));
}

static void refused_call(Run* run) {
  EXPORT(KVL_ResizeDIB_CPP);
  const Geometry g = make_geometry(run);
  const size_t size = dib_stride(run->width, 24) * (size_t)run->height;
  uint8_t* const from = noise(run, size);
  uint8_t* const to = noise(run, size);
  const double empty[4] = {5, 5, 5, 9}, outside[4] = {2000, 0, 2010, 9},
               no_number[4] = {0, NAN, 9, 9};
  const RECT off = rect_of(2000, 0, 2010, 9);
  BITMAPINFOHEADER* const top_down = bitmap(run, run->width, -run->height, 24);
  BITMAPINFOHEADER* const deeper = bitmap(run, run->width, run->height, 32);
  begin(run);
  keep_int(run, call(NULL, from, g.from_rect, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, NULL, g.from_rect, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, NULL, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, g.from_rect, NULL, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, g.from_rect, g.to_header, NULL, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, g.from_rect, g.to_header, to, NULL, 0));
  keep_int(run, call(top_down, from, g.from_rect, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(deeper, from, g.from_rect, deeper, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, empty, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, outside, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, no_number, g.to_header, to, g.to_rect, 0));
  keep_int(run, call(g.from_header, from, g.from_rect, g.to_header, to, &off, 0));
}

static void set_up(Run* run) {
  EXPORT(KVL_SetupResizeDib);
  const Geometry g = make_geometry(run);
  ResizeSetup* const setup = (ResizeSetup*)noise(run, sizeof *setup);
  uint64_t* const needed = (uint64_t*)noise(run, sizeof *needed);
  begin(run);
  keep_int(run, call(g.from_header, g.from_rect, g.to_header, g.to_rect, (uint32_t)run->p[4], setup,
                     needed));
}

/* A rectangle that misses is cleared, before the status tells so. */
static void set_up_outside(Run* run) {
  EXPORT(KVL_SetupResizeDib);
  const Geometry g = make_geometry(run);
  ResizeSetup* const setup = (ResizeSetup*)noise(run, sizeof *setup);
  const RECT off = rect_of(-30, 2, 0, 9);
  *g.to_rect = off;
  begin(run);
  keep_int(run, call(g.from_header, g.from_rect, g.to_header, g.to_rect, 0, setup, NULL));
}

static void refused_set_up(Run* run) {
  EXPORT(KVL_SetupResizeDib);
  const Geometry g = make_geometry(run);
  ResizeSetup* const setup = (ResizeSetup*)noise(run, sizeof *setup);
  uint64_t* const needed = (uint64_t*)noise(run, sizeof *needed);
  const double empty[4] = {9, 5, 5, 9}, no_number[4] = {0, 0, NAN, 9}, below[4] = {0, 500, 9, 600};
  BITMAPINFOHEADER* const grey = bitmap(run, run->width, run->height, 8);
  BITMAPINFOHEADER* const none = bitmap(run, 0, run->height, 24);
  BITMAPINFOHEADER* const coded = bitmap(run, run->width, run->height, 24);
  coded->biCompression = 1;
  begin(run);
  keep_int(run, call(g.from_header, g.from_rect, g.to_header, g.to_rect, 0, NULL, needed));
  keep_int(run, call(NULL, g.from_rect, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(g.from_header, NULL, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(g.from_header, g.from_rect, NULL, g.to_rect, 0, setup, needed));
  keep_int(run, call(g.from_header, g.from_rect, g.to_header, NULL, 0, setup, needed));
  keep_int(run, call(grey, g.from_rect, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(none, g.from_rect, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(coded, g.from_rect, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(g.from_header, empty, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(g.from_header, no_number, g.to_header, g.to_rect, 0, setup, needed));
  keep_int(run, call(g.from_header, below, g.to_header, g.to_rect, 0, setup, needed));
}

/* What is left in the work buffer is the library's own affair; it starts at any address. */
static void execute(Run* run) {
  EXPORT(KVL_CalcResizeDib);
  __typeof__(&KVL_SetupResizeDib) prepare;
  const Function function = run->find("KVL_SetupResizeDib");
  const Geometry g = make_geometry(run);
  const size_t to_size = dib_stride(g.to_header->biWidth, g.bits) * (size_t)g.to_header->biHeight;
  uint8_t* const from =
      picture(run, run->width, run->height, g.bits / 8, dib_stride(run->width, g.bits));
  uint8_t* const to = noise(run, to_size);
  ResizeSetup* const setup = (ResizeSetup*)noise(run, sizeof *setup);
  uint64_t needed = 0;
  uint8_t* work;
  memcpy(&prepare, &function, sizeof prepare);
  keep_int(run, prepare(g.from_header, g.from_rect, g.to_header, g.to_rect, (uint32_t)run->p[4],
                        setup, &needed));
  work = noise(run, needed + 3);
  begin(run);
  keep_int(run, call(setup, from, to, work + 1, needed));
  memset(work + 1, 0, needed);
}

/* A source rectangle of less than a pixel that shrinks: the work buffer is cleared all the same. */
static void execute_narrow(Run* run) {
  EXPORT(KVL_CalcResizeDib);
  ResizeSetup setup;
  uint8_t* const work = noise(run, 4096);
  uint8_t* const rows = noise(run, 64);
  memset(&setup, 0, sizeof setup);
  setup.bytesPerPixel = 3;
  setup.totalBytes = 4000;
  setup.scaleX = setup.scaleY = 1.5;
  setup.srcRectWidth = setup.srcRectHeight = 0.75;
  begin(run);
  keep_int(run, call(&setup, rows, rows + 32, work, 4096));
}

static void refused_execution(Run* run) {
  EXPORT(KVL_CalcResizeDib);
  __typeof__(&KVL_SetupResizeDib) prepare;
  const Function function = run->find("KVL_SetupResizeDib");
  const Geometry g = make_geometry(run);
  const size_t size = dib_stride(run->width, 24) * (size_t)run->height;
  uint8_t* const from = noise(run, size);
  uint8_t* const to = noise(run, size);
  ResizeSetup* const setup = (ResizeSetup*)noise(run, sizeof *setup);
  uint64_t needed = 0;
  ResizeSetup other;
  uint8_t* work;
  memcpy(&prepare, &function, sizeof prepare);
  keep_int(run, prepare(g.from_header, g.from_rect, g.to_header, g.to_rect, 0, setup, &needed));
  work = noise(run, needed);
  begin(run);
  keep_int(run, call(NULL, from, to, work, needed));
  keep_int(run, call(setup, NULL, to, work, needed));
  keep_int(run, call(setup, from, NULL, work, needed));
  keep_int(run, call(setup, from, to, NULL, needed));
  keep_int(run, call(setup, from, to, work, needed - 1));
  other = *setup;
  other.bytesPerPixel = 4;
  keep_int(run, call(&other, from, to, work, needed));
  other = *setup;
  other.dstStride -= 4;
  keep_int(run, call(&other, from, to, work, needed));
  other = *setup;
  other.srcColumnCount += 1;
  keep_int(run, call(&other, from, to, work, needed));
}

static void end(Run* run) {
  EXPORT(KVL_EndResizeDib);
  noise(run, 64);
  begin(run);
  call();
}

const DigestCase resize_cases[] = {
    CASE(CalcResizeDib, "24 bits, to 70% x 70%", execute, every, all, 24, whole, 70, 70, 0),
    CASE(CalcResizeDib, "24 bits, part, to 33% x 140%", execute, every, ends, 24, fractional, 33,
         140, 0),
    CASE(CalcResizeDib, "8 bits, part, to 140% x 33%", execute, every, ends, 8, fractional, 140, 33,
         0),
    CASE(CalcResizeDib, "8 bits, part, to 140% x 150%, border", execute, every, ends, 8, fractional,
         140, 150, 1),
    CASE(CalcResizeDib, "less than a pixel", execute_narrow, every, small, 0),
    REFUSED(CalcResizeDib, refused_execution, 24, whole, 50, 50, 0),
    {"KVL_EndResizeDib", "does nothing", end, {0}, 0, size_small, 1},
    CASE(ResizeDIB_CPP, "24 bits, copy", one_call, every, all, 24, whole, 100, 100, 0),
    CASE(ResizeDIB_CPP, "24 bits, to 2%", one_call, every, larger, 24, whole, 2, 2, 0),
    CASE(ResizeDIB_CPP, "24 bits, to 50%", one_call, every, ends, 24, whole, 50, 50, 0),
    CASE(ResizeDIB_CPP, "24 bits, to 67% x 41%", one_call, every, ends, 24, whole, 67, 41, 0),
    CASE(ResizeDIB_CPP, "24 bits, to 150% x 130%", one_call, every, ends, 24, whole, 150, 130, 0),
    CASE(ResizeDIB_CPP, "24 bits, to 310%", one_call, every, ends, 24, whole, 310, 310, 0),
    CASE(ResizeDIB_CPP, "24 bits, to 80% x 120%", one_call, every, ends, 24, whole, 80, 120, 0),
    CASE(ResizeDIB_CPP, "24 bits, part, to 60%", one_call, every, ends, 24, fractional, 60, 60, 0),
    CASE(ResizeDIB_CPP, "24 bits, part, to 140%", one_call, every, ends, 24, fractional, 140, 140,
         0),
    CASE(ResizeDIB_CPP, "24 bits, part, to 140%, border", one_call, every, ends, 24, fractional,
         140, 140, 1),
    CASE(ResizeDIB_CPP, "24 bits, hanging over, to 75%", one_call, every, ends, 24, hanging_over,
         75, 75, 0),
    CASE(ResizeDIB_CPP, "24 bits, hanging over, to 180%", one_call, every, ends, 24, hanging_over,
         180, 180, 1),
    REFUSED(ResizeDIB_CPP, refused_call, 24, whole, 100, 100, 0),
    CASE(ResizeDIB_RGB24_CPP, "8 bits, to 50%", one_call, every, all, 8, whole, 50, 50, 0),
    CASE(ResizeDIB_RGB24_CPP, "8 bits, to 37% x 220%", one_call, every, ends, 8, whole, 37, 220, 0),
    CASE(ResizeDIB_RGB24_CPP, "8 bits, hanging over, to 80%", one_call, every, ends, 8,
         hanging_over, 80, 80, 0),
    CASE(ResizeDIB_RGB24_CPP, "8 bits, part, to 130%, border", one_call, every, ends, 8, fractional,
         130, 130, 1),
    CASE(ResizeDIB_RGB24_CPP, "24 bits, part, to 45%", one_call, every, ends, 24, fractional, 45,
         45, 0),
    REFUSED(ResizeDIB_RGB24_CPP, refused_call, 24, whole, 100, 100, 0),
    CASE(SetupResizeDib, "24 bits, to 70%", set_up, every, all, 24, whole, 70, 70, 0),
    CASE(SetupResizeDib, "24 bits, part, to 170% x 40%", set_up, every, ends, 24, fractional, 170,
         40, 1),
    CASE(SetupResizeDib, "8 bits, hanging over, to 90%", set_up, every, ends, 8, hanging_over, 90,
         90, 0),
    CASE(SetupResizeDib, "beside the destination", set_up_outside, every, odd, 24, whole, 100, 100,
         0),
    REFUSED(SetupResizeDib, refused_set_up, 24, whole, 100, 100, 0),
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
