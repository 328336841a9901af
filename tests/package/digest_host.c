/*
 * Loads the library at run time and prints the digest of a picture's Gaussian blur for every radius
 * and team size, before and after InitKVLWrapper; fails when two of one radius differ, when a team
 * is not the one asked for, or when the library stays behind after it was unloaded.
 *
 *   digest_host LIBRARY in.bmp [blurred.bmp radius]
 *
 * With a second file, that file's rows must be the picture's blur of that radius.
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

enum { largest_radius = 8 };

typedef void (*Function)(void);
typedef void (*SetThreads)(int);
typedef int32_t (*GetThreads)(void);
typedef void (*GaussianBlur)(const BITMAPINFOHEADER*, uint8_t*, const BITMAPINFOHEADER*, uint8_t*,
                             int32_t);

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

static void blur_all(Library library, const char* state, const Picture* picture,
                     uint64_t* digests) {
  static const int team_sizes[] = {1, 2, 7};
  const SetThreads set_threads = (SetThreads)find_openmp_function(library, "omp_set_num_threads");
  const GetThreads get_threads = (GetThreads)find_function(library, "KVL_GetNumOpenMPThreads");
  const GaussianBlur blur = (GaussianBlur)find_function(library, "KVL_GaussianBlur");
  uint8_t* work = malloc(picture->size);
  uint8_t* bits = malloc(picture->size);
  size_t i;
  int32_t radius;

  if (!set_threads || !get_threads || !blur) fail("the library lacks a function");
  if (!work || !bits) fail("out of memory");
  for (i = 0; i < sizeof team_sizes / sizeof *team_sizes; ++i) {
    set_threads(team_sizes[i]);
    if (get_threads() != team_sizes[i]) fail("the team is not the one asked for");
    for (radius = 1; radius <= largest_radius; ++radius) {
      uint64_t result;
      memcpy(bits, picture->bits, picture->size);
      blur(&picture->header, work, &picture->header, bits, radius);
      result = digest(bits, picture->size);
      printf("%s InitKVLWrapper, %d threads, radius %" PRId32 ": %016" PRIx64 "\n", state,
             team_sizes[i], radius, result);
      if (digests[radius] == 0) digests[radius] = result;
      if (digests[radius] != result) fail("two digests of one radius differ");
      if (radius > 1 && result == digests[radius - 1]) fail("two radii have the same digest");
    }
  }
  free(work);
  free(bits);
}

int main(int argc, char** argv) {
  uint64_t digests[largest_radius + 1] = {0};
  Picture picture;
  Library library;
  Function init;

  if (argc != 3 && argc != 5) fail("usage: digest_host LIBRARY in.bmp [blurred.bmp radius]");
  picture = read_bmp(argv[2]);
  digests[0] = digest(picture.bits, picture.size);
  library = open_library(argv[1]);
  if (!library) fail("the library does not load");
  blur_all(library, "before", &picture, digests);
  init = find_function(library, "InitKVLWrapper");
  if (!init) fail("the library lacks InitKVLWrapper");
  /* What stands now counts as the run-time's default, and asking for the default later on would
     bring the library's own team instead. */
  ((SetThreads)find_openmp_function(library, "omp_set_num_threads"))(3);
  init();
  blur_all(library, "after", &picture, digests);
  if (!unload(library, argv[1])) fail("the library is still loaded");

  if (argc == 5) {
    const Picture blurred = read_bmp(argv[3]);
    const long radius = strtol(argv[4], NULL, 10);
    if (radius < 1 || radius > largest_radius) fail("radius must be 1 to 8");
    if (digest(blurred.bits, blurred.size) != digests[radius]) {
      fail("the second picture is not the blur of the first");
    }
    free(blurred.bits);
  }
  free(picture.bits);
  return 0;
}
