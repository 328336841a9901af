/* A host that brings the Windows types itself, as hosts ported from Windows do; C and C++. */
#include <stdint.h>

#ifdef _WIN32
#include <windows.h>
#else
typedef int32_t LONG;
typedef uint32_t DWORD;
typedef uint16_t WORD;

typedef struct {
  DWORD biSize;
  LONG biWidth, biHeight;
  WORD biPlanes, biBitCount;
  DWORD biCompression, biSizeImage;
  LONG biXPelsPerMeter, biYPelsPerMeter;
  DWORD biClrUsed, biClrImportant;
} BITMAPINFOHEADER;

typedef struct {
  LONG left, top, right, bottom;
} RECT;

typedef struct {
  LONG x, y;
} POINT;

typedef struct {
  LONG cx, cy;
} SIZE;

typedef struct {
  uint32_t Data1;
  uint16_t Data2, Data3;
  uint8_t Data4[8];
} GUID;
#endif

#define KVL_HOST_HAS_WINDOWS_TYPES
#include <kvl/kvl.h>

int32_t pixels_of(const BITMAPINFOHEADER* header);

int32_t pixels_of(const BITMAPINFOHEADER* header) {
  return (int32_t)(header->biWidth * header->biHeight);
}
