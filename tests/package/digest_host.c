/*
 * Loads the library at run time and prints a digest of what every filter makes of a picture, for
 * several team sizes, before and after InitKVLWrapper; fails when two of one filter differ, when a
 * team is not the one asked for, or when the library stays behind after it was unloaded.
 *
 *   digest_host LIBRARY in.bmp [blurred.bmp radius]
 *
 * With a second file, that file's rows must be the picture's Gaussian blur of that radius.
 */
#ifndef _WIN32
#define _GNU_SOURCE /* RTLD_NOLOAD */
#include <dlfcn.h>
#endif
#include <inttypes.h>
#include <kvl/kvl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef void (*Function)(void);
typedef void (*SetThreads)(int);
typedef int32_t (*GetThreads)(void);

typedef struct {
  BITMAPINFOHEADER header;
  size_t size;
  uint8_t* bits;
} Picture;

static void fail(const char* what) {
  fprintf(stderr, "digest_host: %s\n", what);
  exit(1);
}

#ifdef _WIN32
typedef HMODULE Library;

static Library open_library(const char* name) {
  return LoadLibraryA(name);
}
static Function find_function(Library library, const char* name) {
  return (Function)GetProcAddress(library, name);
}
static Function find_openmp_function(Library library, const char* name) {
  (void)library;
  return find_function(GetModuleHandleA("libgomp-1.dll"), name);
}
static int unload(Library library, const char* name) {
  FreeLibrary(library);
  return !GetModuleHandleA(name);
}
#else
typedef void* Library;

static Library open_library(const char* name) {
  return dlopen(name, RTLD_NOW | RTLD_LOCAL);
}
static Function find_function(Library library, const char* name) {
  void* address = dlsym(library, name);
  Function function;
  memcpy(&function, &address, sizeof function);
  return function;
}
/* dlsym also looks through what the library itself has loaded. */
static Function find_openmp_function(Library library, const char* name) {
  return find_function(library, name);
}
static int unload(Library library, const char* name) {
  dlclose(library);
  return !dlopen(name, RTLD_NOW | RTLD_NOLOAD);
}
#endif

/* The headers in the file have the layout of the structs, and both systems their byte order. */
static Picture read_bmp(const char* path) {
  Picture picture;
  uint8_t file_header[14];
  uint32_t offset;
  FILE* file = fopen(path, "rb");
  if (!file || fread(file_header, sizeof file_header, 1, file) != 1 ||
      fread(&picture.header, sizeof picture.header, 1, file) != 1) {
    fail("a picture cannot be read");
  }
  if (picture.header.biBitCount != 24) fail("a picture does not have 24 bits");
  memcpy(&offset, file_header + 10, sizeof offset);
  picture.header.biHeight = abs((int)picture.header.biHeight);
  picture.size = (size_t)((picture.header.biWidth * 3 + 3) & ~3);
  picture.size *= (size_t)picture.header.biHeight;
  picture.bits = malloc(picture.size);
  if (!picture.bits || fseek(file, (long)offset, SEEK_SET) != 0 ||
      fread(picture.bits, 1, picture.size, file) != picture.size) {
    fail("a picture is cut short");
  }
  fclose(file);
  return picture;
}

/* 64-bit FNV-1a. */
static uint64_t digest(const uint8_t* bytes, size_t size) {
  uint64_t hash = UINT64_C(0xcbf29ce484222325);
  size_t i;
  for (i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * UINT64_C(0x100000001b3);
  return hash;
}

/* What a filter works on: the picture, a buffer for its result and one of scratch. */
typedef struct {
  const Picture* picture;
  uint8_t* result;
  uint8_t* work;
} Frame;

/* Declares the exported function as it stands in the header, under the name `call`. */
#define EXPORT(name)      \
  __typeof__(&name) call; \
  memcpy(&call, &function, sizeof call)

static void gaussian(Function function, const Frame* f, double radius) {
  EXPORT(KVL_GaussianBlur);
  call(&f->picture->header, f->work, &f->picture->header, f->result, (int32_t)radius);
}

static void averaging(Function function, const Frame* f, double radius) {
  EXPORT(KVL_AveragingBlur);
  BITMAPINFOHEADER work_header = f->picture->header;
  call(&work_header, f->work, &f->picture->header, f->result, (int32_t)radius);
}

static BITMAPINFOHEADER transposed(const BITMAPINFOHEADER* header) {
  BITMAPINFOHEADER result = *header;
  result.biWidth = header->biHeight;
  result.biHeight = header->biWidth;
  return result;
}

static void rectangle_box(Function function, const Frame* f, double radius) {
  EXPORT(KVL_AvgBlurUni);
  const BITMAPINFOHEADER* header = &f->picture->header;
  const BITMAPINFOHEADER work_header = transposed(header);
  call(header, f->result, &work_header, f->work, header->biWidth / 5, header->biHeight / 7,
       header->biWidth / 2, header->biHeight / 3, (int32_t)radius, (int32_t)radius + 1);
}

static void fractional_box(Function function, const Frame* f, double radius) {
  EXPORT(KVL_AvgBlurUniFloat);
  const BITMAPINFOHEADER* header = &f->picture->header;
  const BITMAPINFOHEADER work_header = transposed(header);
  call(header, f->result, &work_header, f->work, 0, 0, header->biWidth, header->biHeight,
       (float)radius, (float)radius / 2);
}

static void selective(Function function, const Frame* f, double radius) {
  EXPORT(KVL_SelectiveBlur);
  call(&f->picture->header, f->picture->bits, &f->picture->header, f->result, 20, (int32_t)radius);
}

static void separable_selective(Function function, const Frame* f, double radius) {
  EXPORT(KVL_ModifiedSelectiveBlur);
  BITMAPINFOHEADER work_header = f->picture->header;
  call(&work_header, f->work, &f->picture->header, f->result, 20, (int32_t)radius);
}

/* The three sharpens have one signature. */
static void selective_sharpen(Function function, const Frame* f, double gain) {
  EXPORT(KVL_SelectiveSharpen);
  call(&f->picture->header, f->picture->bits, &f->picture->header, f->result, 4, (float)gain);
}

static uint32_t stride(const Picture* picture) {
  return (uint32_t)(picture->header.biWidth * 3 + 3) & ~3u;
}

static void classic(Function function, const Frame* f, double threshold) {
  EXPORT(KVL_BlurClassicUni);
  const Picture* p = f->picture;
  call(f->result, stride(p), f->work, (uint32_t)p->header.biHeight * 3, (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, (int32_t)threshold, 4.5f);
}

/* The rows as a grey image of three times the width. */
static void classic_plane(Function function, const Frame* f, double threshold) {
  EXPORT(KVL_BlurClassicUni_MultiComp);
  const Picture* p = f->picture;
  call(f->result, stride(p), f->work, (uint32_t)p->header.biHeight, (uint32_t)p->header.biWidth * 3,
       (uint32_t)p->header.biHeight, (int32_t)threshold, 4.5f, 1, 1);
}

static void zoom(Function function, const Frame* f, double strength) {
  EXPORT(KVL_BlurZoom);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, p->header.biWidth * 0.4, p->header.biHeight * 0.3, strength,
       3);
}

static void radial(Function function, const Frame* f, double angle) {
  EXPORT(KVL_BlurRadial);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, p->header.biWidth * 0.4, p->header.biHeight * 0.3, angle, 3);
}

static void directional(Function function, const Frame* f, double angle) {
  EXPORT(KVL_BlurDirectional);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, angle, 21.5, 3);
}

static void sharpen_plane(Function function, const Frame* f, double gain) {
  EXPORT(KVL_SharpenSimpleUni);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth * 3,
       (uint32_t)p->header.biHeight, 3, (float)gain);
}

static void sharpen(Function function, const Frame* f, double gain) {
  EXPORT(KVL_SharpenSimpleUni_MultiComp);
  const Picture* p = f->picture;
  call(p->bits, stride(p), f->result, stride(p), (uint32_t)p->header.biWidth,
       (uint32_t)p->header.biHeight, 3, (float)gain, 3, 1);
}

static const struct {
  const char* export_name;
  void (*run)(Function, const Frame*, double);
  double parameter;
} cases[] = {
    {"KVL_GaussianBlur", gaussian, 1},
    {"KVL_GaussianBlur", gaussian, 2},
    {"KVL_GaussianBlur", gaussian, 3},
    {"KVL_GaussianBlur", gaussian, 4},
    {"KVL_GaussianBlur", gaussian, 5},
    {"KVL_GaussianBlur", gaussian, 6},
    {"KVL_GaussianBlur", gaussian, 7},
    {"KVL_GaussianBlur", gaussian, 8},
    {"KVL_AveragingBlur", averaging, 10},
    {"KVL_AvgBlurUni", rectangle_box, 6},
    {"KVL_AvgBlurUniFloat", fractional_box, 2.25},
    {"KVL_SelectiveBlur", selective, 2},
    {"KVL_ModifiedSelectiveBlur", separable_selective, 5},
    {"KVL_BlurClassicUni", classic, 30},
    {"KVL_BlurClassicUni", classic, 255},
    {"KVL_BlurClassicUni_MultiComp", classic_plane, 30},
    {"KVL_SelectiveSharpenSimple", selective_sharpen, 1.7},
    {"KVL_ModifiedSelectiveSharpenSimple", selective_sharpen, 1.7},
    {"KVL_SelectiveSharpen", selective_sharpen, 1.7},
    {"KVL_BlurZoom", zoom, 0.06},
    {"KVL_BlurRadial", radial, 3},
    {"KVL_BlurDirectional", directional, 0},
    {"KVL_BlurDirectional", directional, 33},
    {"KVL_SharpenSimpleUni", sharpen_plane, 0.8},
    {"KVL_SharpenSimpleUni_MultiComp", sharpen, 0.8},
};
enum { case_count = sizeof cases / sizeof *cases };

static void filter_all(Library library, const char* state, const Picture* picture,
                       uint64_t* digests) {
  static const int team_sizes[] = {1, 2, 7};
  const SetThreads set_threads = (SetThreads)find_openmp_function(library, "omp_set_num_threads");
  const GetThreads get_threads = (GetThreads)find_function(library, "KVL_GetNumOpenMPThreads");
  /* Transposed rows may have more padding than the picture's. */
  const size_t work_size = picture->size * 2;
  Frame frame;
  size_t i;
  int c;

  /* One block, so that one digest covers the scratch too. */
  frame.picture = picture;
  frame.result = malloc(picture->size + work_size);
  if (!set_threads || !get_threads) fail("the library lacks a function");
  if (!frame.result) fail("out of memory");
  frame.work = frame.result + picture->size;
  for (i = 0; i < sizeof team_sizes / sizeof *team_sizes; ++i) {
    set_threads(team_sizes[i]);
    if (get_threads() != team_sizes[i]) fail("the team is not the one asked for");
    for (c = 0; c < case_count; ++c) {
      const Function function = find_function(library, cases[c].export_name);
      uint64_t result;
      if (!function) fail("the library lacks a filter");
      memcpy(frame.result, picture->bits, picture->size);
      memset(frame.work, 0, work_size);
      cases[c].run(function, &frame, cases[c].parameter);
      if (memcmp(frame.result, picture->bits, picture->size) == 0) fail("a filter does nothing");
      result = digest(frame.result, picture->size + work_size);
      printf("%s InitKVLWrapper, %d threads, %s %g: %016" PRIx64 "\n", state, team_sizes[i],
             cases[c].export_name, cases[c].parameter, result);
      if (digests[c] == 0) digests[c] = result;
      if (digests[c] != result) fail("two digests of one filter differ");
      if (c > 0 && result == digests[c - 1]) fail("two filters have the same digest");
    }
  }
  free(frame.result);
}

/* Whether `blurred` holds the Gaussian blur of the picture. */
static int is_blur(Library library, const Picture* picture, const Picture* blurred, long radius) {
  Frame frame;
  int same;
  frame.picture = picture;
  frame.result = malloc(picture->size);
  frame.work = malloc(picture->size);
  if (!frame.result || !frame.work) fail("out of memory");
  memcpy(frame.result, picture->bits, picture->size);
  gaussian(find_function(library, "KVL_GaussianBlur"), &frame, (double)radius);
  same = blurred->size == picture->size && !memcmp(frame.result, blurred->bits, picture->size);
  free(frame.result);
  free(frame.work);
  return same;
}

int main(int argc, char** argv) {
  uint64_t digests[case_count] = {0};
  Picture picture;
  Library library;
  Function init;

  if (argc != 3 && argc != 5) fail("usage: digest_host LIBRARY in.bmp [blurred.bmp radius]");
  picture = read_bmp(argv[2]);
  library = open_library(argv[1]);
  if (!library) fail("the library does not load");
  filter_all(library, "before", &picture, digests);
  init = find_function(library, "InitKVLWrapper");
  if (!init) fail("the library lacks InitKVLWrapper");
  init();
  filter_all(library, "after", &picture, digests);
  if (argc == 5) {
    const Picture blurred = read_bmp(argv[3]);
    if (!is_blur(library, &picture, &blurred, strtol(argv[4], NULL, 10))) {
      fail("the second picture is not the blur of the first");
    }
    free(blurred.bits);
  }
  if (!unload(library, argv[1])) fail("the library is still loaded");
  free(picture.bits);
  return 0;
}
