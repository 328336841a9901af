/*
 * Writes a small 24-bit .bmp whose rows have padding: coloured blocks under noise.
 *
 *   picture out.bmp
 */
#include <kvl/kvl.h>
#include <stdio.h>
#include <string.h>

enum { width = 333, height = 97, stride = (width * 3 + 3) / 4 * 4 };

int main(int argc, char** argv) {
  static uint8_t bits[stride * height];
  const uint32_t offset = 54, size = offset + sizeof bits;
  uint8_t file_header[14] = {'B', 'M'};
  BITMAPINFOHEADER header;
  uint32_t state = 1;
  int x, y, channel, done;
  FILE* file = argc == 2 ? fopen(argv[1], "wb") : NULL;

  if (!file) {
    fprintf(stderr, "usage: picture out.bmp\n");
    return 2;
  }
  for (y = 0; y < height; ++y) {
    for (x = 0; x < width; ++x) {
      for (channel = 0; channel < 3; ++channel) {
        state = state * 1664525u + 1013904223u;
        bits[y * stride + x * 3 + channel] =
            (uint8_t)((x / 16 * 40 + y / 12 * 70 + channel * 90) % 224 + (int)(state >> 27));
      }
    }
  }
  memcpy(file_header + 2, &size, sizeof size);
  memcpy(file_header + 10, &offset, sizeof offset);
  memset(&header, 0, sizeof header);
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = 24;
  done = fwrite(file_header, sizeof file_header, 1, file) == 1 &&
         fwrite(&header, sizeof header, 1, file) == 1 && fwrite(bits, sizeof bits, 1, file) == 1;
  return fclose(file) == 0 && done ? 0 : 1;
}
