/*
 * Loads the library at run time and prints a digest of what every routine makes of a picture, for
 * several team sizes, before and after InitKVLWrapper; fails when two of one case differ, when a
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
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "digest_case.h"

typedef void (*SetThreads)(int);
typedef int32_t (*GetThreads)(void);

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

/* More than the cases of all families together. */
enum { case_limit = 256 };

static const DigestCase* const families[] = {
    alpha_cases,   convert_cases, correlation_cases, filter_cases,
    halving_cases, jpeg_cases,    resize_cases,      warp_cases,
};
enum { family_count = sizeof families / sizeof *families };

/* Runs every case for every team. `digests` holds what each has given so far, or 0. */
static void run_all(Library library, int initialised, const Picture* picture, uint64_t* digests) {
  static const int team_sizes[] = {1, 2, 7};
  const SetThreads set_threads = (SetThreads)find_openmp_function(library, "omp_set_num_threads");
  const GetThreads get_threads = (GetThreads)find_function(library, "KVL_GetNumOpenMPThreads");
  /* Transposed rows may have more padding than the picture's. */
  const size_t work_size = picture->size * 2;
  uint64_t previous = 0;
  Frame frame;
  size_t i;
  int f, c;

  /* One block, so that one digest covers the scratch too. */
  frame.picture = picture;
  frame.result = malloc(picture->size + work_size);
  if (!set_threads || !get_threads) fail("the library lacks a function");
  if (!frame.result) fail("out of memory");
  frame.work = frame.result + picture->size;
  for (i = 0; i < sizeof team_sizes / sizeof *team_sizes; ++i) {
    set_threads(team_sizes[i]);
    if (get_threads() != team_sizes[i]) fail("the team is not the one asked for");
    for (f = 0, c = 0; f < family_count; ++f) {
      const DigestCase* one;
      for (one = families[f]; one->export_name; ++one, ++c) {
        const Function function = find_function(library, one->export_name);
        uint64_t untouched, result;
        if (!function) fail("the library lacks a routine");
        if (c == case_limit) fail("there are more cases than case_limit");
        memcpy(frame.result, picture->bits, picture->size);
        memset(frame.work, 0, work_size);
        untouched = digest(frame.result, picture->size + work_size);
        one->run(function, &frame, one->parameter);
        result = digest(frame.result, picture->size + work_size);
        printf("%s InitKVLWrapper, %d threads, %s %g: %016" PRIx64 "\n",
               initialised ? "after" : "before", team_sizes[i], one->export_name, one->parameter,
               result);
        if (result == untouched) fail("a routine does nothing");
        if (initialised && one->two_results && i == 0) digests[c] = 0;
        if (digests[c] == 0) digests[c] = result;
        if (digests[c] != result) fail("two digests of one case differ");
        if (result == previous) fail("two cases have the same digest");
        previous = result;
      }
    }
  }
  free(frame.result);
}

/* Whether `blurred` holds the Gaussian blur of the picture. */
static int is_blur(Library library, const Picture* picture, const Picture* blurred, long radius) {
  const Function function = find_function(library, "KVL_GaussianBlur");
  uint8_t* image = malloc(picture->size);
  uint8_t* work = malloc(picture->size);
  int same;
  EXPORT(KVL_GaussianBlur);
  if (!image || !work) fail("out of memory");
  memcpy(image, picture->bits, picture->size);
  call(&picture->header, work, &picture->header, image, (int32_t)radius);
  same = blurred->size == picture->size && !memcmp(image, blurred->bits, picture->size);
  free(image);
  free(work);
  return same;
}

int main(int argc, char** argv) {
  uint64_t digests[case_limit] = {0};
  Picture picture;
  Library library;
  Function init;

  if (argc != 3 && argc != 5) fail("usage: digest_host LIBRARY in.bmp [blurred.bmp radius]");
  picture = read_bmp(argv[2]);
  library = open_library(argv[1]);
  if (!library) fail("the library does not load");
  run_all(library, 0, &picture, digests);
  init = find_function(library, "InitKVLWrapper");
  if (!init) fail("the library lacks InitKVLWrapper");
  init();
  run_all(library, 1, &picture, digests);
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
