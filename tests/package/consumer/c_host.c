/* Blurs one bright pixel and looks at the weights that it leaves behind. */
#include <kvl/kvl.h>
#include <stdio.h>
#include <string.h>

enum { side = 5, stride = 16 };

int main(void) {
  /* 255 * 58394 >> 16 = 227 and 255 * 3571 >> 16 = 13, then either * 58394 >> 16 */
  static const uint8_t expected[3] = {202, 11, 0};
  uint8_t work[stride * side], image[stride * side];
  BITMAPINFOHEADER header;
  int distance;

  memset(work, 0, sizeof work);
  memset(image, 0, sizeof image);
  memset(&header, 0, sizeof header);
  header.biSize = sizeof header;
  header.biWidth = side;
  header.biHeight = side;
  header.biPlanes = 1;
  header.biBitCount = 24;
  image[2 * stride + 2 * 3 + 1] = 255;

  InitKVLWrapper();
  KVL_GaussianBlur(&header, work, &header, image, 1);
  for (distance = 0; distance < 3; ++distance) {
    const int green = image[2 * stride + (2 + distance) * 3 + 1];
    if (green != expected[distance]) {
      printf("%d pixels away: %d instead of %d\n", distance, green, expected[distance]);
      return 1;
    }
  }
  printf("C host: blurred by %d threads\n", (int)KVL_GetNumOpenMPThreads());
  return KVL_GetNumOpenMPThreads() < 1;
}
