/*
 * A host that knows the library only by its file name: it loads it at run time, blurs a 24-bit .bmp
 * file, and unloads it again, as often as asked.
 *
 *   host LIBRARY in.bmp out.bmp radius [repeats]
 *
 * LIBRARY is what dlopen or LoadLibrary takes, such as ./libkvl.so or kvl.dll.
 */
#include <kvl/kvl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- Loading ----------------------------------------------------------------------------- */

typedef void (*Function)(void);
typedef void (*InitFunction)(void);
typedef void (*GaussianBlurFunction)(const BITMAPINFOHEADER*, uint8_t*, const BITMAPINFOHEADER*,
                                     uint8_t*, int32_t);

#ifdef _WIN32
typedef HMODULE Library;

static Library open_library(const char* name) {
  Library library = LoadLibraryA(name);
  if (!library) fprintf(stderr, "host: %s: Windows error %lu\n", name, GetLastError());
  return library;
}

static Function find_function(Library library, const char* name) {
  return (Function)GetProcAddress(library, name);
}

static void close_library(Library library) {
  FreeLibrary(library);
}
#else
#include <dlfcn.h>
typedef void* Library;

static Library open_library(const char* name) {
  Library library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (!library) fprintf(stderr, "host: %s\n", dlerror());
  return library;
}

static Function find_function(Library library, const char* name) {
  void* address = dlsym(library, name);
  Function function;
  memcpy(&function, &address, sizeof function); /* ISO C has no cast between the two */
  return function;
}

static void close_library(Library library) {
  dlclose(library);
}
#endif

/* ---- .bmp files -------------------------------------------------------------------------- */

enum { file_header_size = 14, info_header_size = 40, header_size = 54 };

typedef struct {
  BITMAPINFOHEADER header; /* biHeight made positive: a blur does not care which end is up */
  int top_down;
  size_t size; /* of the rows, in bytes */
  uint8_t* bits;
} Picture;

static uint32_t get32(const uint8_t* p) {
  return p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

static void put32(uint8_t* p, uint32_t value) {
  int i;
  for (i = 0; i < 4; ++i) p[i] = (uint8_t)(value >> (8 * i));
}

/* Reads the headers; 0 when this is not a plain 24-bit .bmp of a sane size. */
static int parse_headers(const uint8_t* bytes, Picture* picture) {
  const int64_t width = (int32_t)get32(bytes + 18);
  const int64_t height = (int32_t)get32(bytes + 22);
  const int64_t rows = height < 0 ? -height : height;
  const int64_t stride = (width * 3 + 3) & ~(int64_t)3;

  if (bytes[0] != 'B' || bytes[1] != 'M') return 0;
  if (get32(bytes + 10) < header_size || get32(bytes + 14) < info_header_size) return 0;
  if ((get32(bytes + 26) >> 16) != 24 || get32(bytes + 30) != 0) return 0;
  if (width <= 0 || rows == 0 || width > 65535 || rows > 65535) return 0;

  memset(&picture->header, 0, sizeof picture->header);
  picture->header.biSize = info_header_size;
  picture->header.biWidth = (int32_t)width;
  picture->header.biHeight = (int32_t)rows;
  picture->header.biPlanes = 1;
  picture->header.biBitCount = 24;
  picture->top_down = height < 0;
  picture->size = (size_t)(stride * rows);
  return 1;
}

static int read_bmp(const char* path, Picture* picture) {
  uint8_t bytes[header_size];
  FILE* file = fopen(path, "rb");
  int done = 0;

  picture->bits = NULL;
  if (file && fread(bytes, 1, sizeof bytes, file) == sizeof bytes &&
      parse_headers(bytes, picture) && fseek(file, (long)get32(bytes + 10), SEEK_SET) == 0) {
    picture->bits = malloc(picture->size);
    done = picture->bits && fread(picture->bits, 1, picture->size, file) == picture->size;
  }
  if (file) fclose(file);
  if (!done) fprintf(stderr, "host: %s: not a readable 24-bit .bmp file\n", path);
  return done;
}

static int write_bmp(const char* path, const Picture* picture) {
  const int32_t height = picture->header.biHeight;
  uint8_t bytes[header_size] = {'B', 'M'};
  FILE* file = fopen(path, "wb");
  int done = 0;

  put32(bytes + 2, (uint32_t)(header_size + picture->size));
  put32(bytes + 10, header_size);
  put32(bytes + 14, info_header_size);
  put32(bytes + 18, (uint32_t)picture->header.biWidth);
  put32(bytes + 22, (uint32_t)(picture->top_down ? -height : height));
  put32(bytes + 26, 1 | 24u << 16);
  put32(bytes + 34, (uint32_t)picture->size);
  if (file) {
    done = fwrite(bytes, 1, sizeof bytes, file) == sizeof bytes &&
           fwrite(picture->bits, 1, picture->size, file) == picture->size;
    done = fclose(file) == 0 && done;
  }
  if (!done) fprintf(stderr, "host: %s: cannot be written\n", path);
  return done;
}

/* ---- The work ---------------------------------------------------------------------------- */

static int blur(Library library, Picture* picture, int32_t radius) {
  const InitFunction init = (InitFunction)find_function(library, "InitKVLWrapper");
  const GaussianBlurFunction gaussian_blur =
      (GaussianBlurFunction)find_function(library, "KVL_GaussianBlur");
  uint8_t* work;

  if (!init || !gaussian_blur) {
    fprintf(stderr, "host: the library lacks InitKVLWrapper or KVL_GaussianBlur\n");
    return 0;
  }
  work = malloc(picture->size);
  if (!work) return 0;
  init();
  gaussian_blur(&picture->header, work, &picture->header, picture->bits, radius);
  free(work);
  return 1;
}

static int run_once(const char* name, const char* in, const char* out, int32_t radius) {
  Picture picture;
  Library library = open_library(name);
  int done;

  if (!library) return 0;
  done = read_bmp(in, &picture) && blur(library, &picture, radius) && write_bmp(out, &picture);
  free(picture.bits);
  close_library(library);
  return done;
}

int main(int argc, char** argv) {
  int32_t radius;
  int repeats, i;

  if (argc < 5 || argc > 6) {
    fprintf(stderr, "usage: host LIBRARY in.bmp out.bmp radius [repeats]\n");
    return 2;
  }
  radius = (int32_t)strtol(argv[4], NULL, 10);
  repeats = argc == 6 ? (int)strtol(argv[5], NULL, 10) : 1;
  if (radius < 1 || repeats < 1) {
    fprintf(stderr, "host: radius and repeats are whole numbers from 1 up\n");
    return 2;
  }
  for (i = 0; i < repeats; ++i) {
    if (!run_once(argv[1], argv[2], argv[3], radius)) return 1;
  }
  printf("host: blurred %s into %s, %d time%s\n", argv[2], argv[3], repeats,
         repeats == 1 ? "" : "s");
  return 0;
}
