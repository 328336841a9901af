/*
 * Checks what another host of the library made: that the second picture is the first one's Gaussian
 * blur of that radius, and that the library is gone once it is unloaded.
 *
 *   blurred LIBRARY in.bmp blurred.bmp radius
 */
#include <kvl/kvl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "../support/load_library.h"

typedef struct {
  BITMAPINFOHEADER header;
  size_t size;
  uint8_t* bits;
} Picture;

static void fail(const char* what) {
  fprintf(stderr, "blurred: %s\n", what);
  exit(1);
}

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

int main(int argc, char** argv) {
  __typeof__(&KVL_GaussianBlur) blur;
  Picture picture, blurred;
  void* library;
  Function function;
  uint8_t* work;

  if (argc != 5) fail("usage: blurred LIBRARY in.bmp blurred.bmp radius");
  picture = read_bmp(argv[2]);
  blurred = read_bmp(argv[3]);
  work = malloc(picture.size);
  if (!work) fail("out of memory");

  library = open_library(argv[1]);
  if (!library) return 2;
  function = find_function(library, "KVL_GaussianBlur");
  if (!function) fail("the library lacks a function");
  memcpy(&blur, &function, sizeof blur);
  blur(&picture.header, work, &picture.header, picture.bits, (int32_t)strtol(argv[4], NULL, 10));
  if (blurred.size != picture.size || memcmp(blurred.bits, picture.bits, picture.size) != 0) {
    fail("the second picture is not the blur of the first");
  }
  close_library(library);
  if (is_loaded(argv[1])) fail("the library is still loaded");
  free(work);
  free(picture.bits);
  free(blurred.bits);
  return 0;
}
