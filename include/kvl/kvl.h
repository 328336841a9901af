/*
 * kvl: parallel image-processing routines for video hosts.
 *
 * The one public header. It compiles as C99 and as C++, alone, and includes nothing but the
 * platform's types.
 *
 * Pixel layouts
 *   An image is a BITMAPINFOHEADER and a separate pointer to its rows. Rows are stored bottom-up
 *   when biHeight is positive. A 24-bit pixel is three bytes: blue, green, red. A row is padded to
 *   a multiple of 4 bytes (the stride); bytes of padding are neither read nor written unless a
 *   routine says so. The caller owns every image, header and record for the whole call; the library
 *   never keeps a pointer.
 *
 * Errors
 *   Filters and conversions return nothing: at the first invalid argument they return at once and
 *   have changed no byte. No routine throws.
 *
 * Threads
 *   Every routine may be called from any host thread, also from several at once; a call opens its
 *   own OpenMP regions and returns when its last row is written. The team has one thread a physical
 *   core once InitKVLWrapper has run, and the OpenMP run-time's default before. Results never
 *   depend on the size of the team. A host thread that sets its own team size with
 *   omp_set_num_threads() keeps it (only a thread that asks for exactly the run-time's default
 *   before its first call here cannot be told from one that never asked).
 *   Where another process holds a core, the run-time's waiting threads can cost milliseconds a
 *   region: see OMP_WAIT_POLICY in the README.
 */
#ifndef KVL_KVL_H
#define KVL_KVL_H

#include <stddef.h>
#include <stdint.h>

#define KVL_VERSION_MAJOR 0
#define KVL_VERSION_MINOR 1
#define KVL_VERSION_PATCH 0
#define KVL_VERSION_STRING "0.1.0"

#if defined(_WIN32)
#include <windows.h>
#elif !defined(KVL_HOST_HAS_WINDOWS_TYPES) && !defined(_WINGDI_) && !defined(__WINE_WINGDI_H)
/*
 * The Windows types with their Windows layout. A host that has its own defines
 * KVL_HOST_HAS_WINDOWS_TYPES before it includes this header.
 */
typedef struct tagBITMAPINFOHEADER {
  uint32_t biSize;
  int32_t biWidth;
  int32_t biHeight;
  uint16_t biPlanes;
  uint16_t biBitCount;
  uint32_t biCompression;
  uint32_t biSizeImage;
  int32_t biXPelsPerMeter;
  int32_t biYPelsPerMeter;
  uint32_t biClrUsed;
  uint32_t biClrImportant;
} BITMAPINFOHEADER;

typedef struct tagRECT {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} RECT;

typedef struct tagPOINT {
  int32_t x;
  int32_t y;
} POINT;

typedef struct tagSIZE {
  int32_t cx;
  int32_t cy;
} SIZE;

typedef struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;
#endif

#if !defined(_WIN32)
#define KVL_API __attribute__((visibility("default")))
#elif defined(KVL_STATIC)
#define KVL_API
#else
#define KVL_API __declspec(dllimport)
#endif

#ifdef __cplusplus
#define KVL_STATIC_ASSERT(condition, name) static_assert(condition, #name)
#else
#define KVL_STATIC_ASSERT(condition, name) \
  typedef char kvl_assert_##name[(condition) ? 1 : -1]
#endif

KVL_STATIC_ASSERT(sizeof(BITMAPINFOHEADER) == 40, BITMAPINFOHEADER_is_40_bytes);
KVL_STATIC_ASSERT(offsetof(BITMAPINFOHEADER, biBitCount) == 14, biBitCount_is_at_14);
KVL_STATIC_ASSERT(offsetof(BITMAPINFOHEADER, biClrImportant) == 36, biClrImportant_is_at_36);
KVL_STATIC_ASSERT(sizeof(RECT) == 16, RECT_is_16_bytes);
KVL_STATIC_ASSERT(sizeof(POINT) == 8, POINT_is_8_bytes);
KVL_STATIC_ASSERT(sizeof(SIZE) == 8, SIZE_is_8_bytes);
KVL_STATIC_ASSERT(sizeof(GUID) == 16, GUID_is_16_bytes);

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The library ------------------------------------------------------------------------- */

/*
 * Counts processors and caches, sets the OpenMP team to one thread a physical core that this
 * process may use, and switches the vector paths on. Call it once, on one thread, before any other
 * routine; calling it again repeats the work and is harmless while no other call is under way.
 * Without it every routine still works, on its scalar path and with the OpenMP default team.
 * There is nothing to shut down.
 */
KVL_API void InitKVLWrapper(void);

/*
 * The number of threads that a routine called now from this thread would use: the value of
 * omp_get_max_threads(), which after InitKVLWrapper is the team size that it set.
 */
KVL_API int32_t KVL_GetNumOpenMPThreads(void);

/* ---- Blur and sharpen filters ------------------------------------------------------------ */

/*
 * Gaussian blur of a 24-bit image in place, separable, in 16.16 fixed-point integers.
 *
 * With w the weights of the radius r in units of 1/65536, each line (first every row, then every
 * column of the truncated row result) becomes
 *
 *   out[x] = min(255, (sum over d = -r .. r of w[|d|] * p[clamp(x + d, 0, n - 1)]) >> 16)
 *
 *   r   w[0]   w[1]   w[2]  ...                                          sum of the full kernel
 *   1  58394   3571                                                                      65536
 *   2  26386  16004   3571                                                               65536
 *   3  15639  13271   8109   3568                                                        65535
 *   4  10684   9976   8121   5763   3566                                                 65536
 *   5   7887   7641   6946   5927   4745   3566                                          65537
 *   6   6112   6022   5758   5343   4813   4207   3570                                   65538
 *   7   4902   4871   4777   4625   4420   4170   3884   3570                            65536
 *   8   4031   4023   4001   3963   3911   3845   3765   3674   3571                     65537
 *
 * Nothing is rounded, so radius 3, whose kernel falls one short, darkens a flat 255 to 253.
 *
 *   workHeader, workBits    scratch of the image's size; receives the horizontally blurred image
 *   imageHeader, imageBits  input and result; must not overlap the work rows
 *   radius                  in pixels; above 8 counts as 8
 *
 * Changes nothing when the radius is below 1, a pointer is null, the two headers differ in biWidth
 * or biHeight, biWidth or biHeight is 0 or negative, or the row size does not fit in a signed
 * 32-bit integer or all the rows in the address space. biBitCount and biCompression are not looked
 * at: both buffers are 24-bit rows of ((biWidth + 1) * 3) & ~3 bytes, padding untouched. Images
 * narrower or lower than 2r + 1 pixels follow the same formula. No memory is allocated.
 */
KVL_API void KVL_GaussianBlur(const BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                              const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits,
                              int32_t radius);

#ifdef __cplusplus
}
#endif

#endif
