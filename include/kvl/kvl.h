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
 *   Where another process holds a core, the usual run-times' spinning threads make a region dear:
 *   with one of two cores held, a Gaussian blur of 1920 x 1080 and radius 3 took 2.7 ms a call, and
 *   1.5 with OMP_WAIT_POLICY=passive (1.6 with GOMP_SPINCOUNT=1000, GCC's run-time only). A host
 *   sets one of them in its environment before the process starts, or calls omp_set_num_threads()
 *   with a smaller team. scripts/bench-wait measures it.
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
#define KVL_STATIC_ASSERT(condition, name) typedef char kvl_assert_##name[(condition) ? 1 : -1]
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

/* ---- Resize ------------------------------------------------------------------------------ */

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

/*
 * Box blur of a 24-bit image in place, separable, of the same radius both ways.
 *
 * With n = 2 * radius + 1, each line (first every row, then every column of the rounded row result)
 * becomes
 *
 *   out[x] = min(255, (M * (sum over d = -radius .. radius of p[clamp(x + d, 0, w - 1)])
 *                      + 2^(s - 1)) >> s)
 *   s = the largest of 31 .. 2 with 2^s <= (2^32 - 1) / (255 * n), or else 1
 *   M = (2^s + n / 2) / n
 *
 * in integers, divisions truncated: radius 1 has s = 22, M = 1398101. A flat image keeps its value
 * up to radius 128; beyond, the rounding of M shows, at first by one in some values (radius 129
 * turns 254 into 255) and ever more with the radius; from 2056 on M is 0 and the image black. The
 * cost does not depend on the radius.
 *
 * A line of a single pixel is not averaged and not written either: of an image 1 pixel wide the
 * columns are averaged from what the work rows held before, and an image 1 pixel high only has its
 * work rows written.
 *
 *   workHeader, workBits    scratch of the image's size; receives the horizontally blurred image,
 *                           transposed: biWidth rows of biHeight pixels,
 *                           biHeight * stride / biWidth bytes (truncated) from row to row. biWidth
 *                           and biHeight of the header are swapped during the call, so no two
 *                           calls may share it
 *   imageHeader, imageBits  input and result; must not overlap the work rows
 *   radius                  in pixels, 1 or more
 *
 * Changes nothing when the radius is below 1, a pointer is null, the two headers differ in biWidth
 * or biHeight, biWidth or biHeight is 0 or negative, or the rows do not fit in the address space.
 * biBitCount and biCompression are not looked at. Row padding stays as it was. No memory is
 * allocated.
 */
KVL_API void KVL_AveragingBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                               const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits,
                               int32_t radius);

/*
 * Box blur of a rectangle of an 8-, 24- or 32-bit bitmap in place, with a radius along the rows and
 * one along the columns. Lines follow the formula of KVL_AveragingBlur, w being the length of a
 * line of the rectangle: nothing outside the rectangle is read for it. Of a 32-bit pixel all four
 * bytes are averaged.
 *
 *   sourceHeader, sourceBits          input and result
 *   transposedHeader, transposedBits  scratch whose biWidth is the source's |biHeight| and whose
 *                                     |biHeight| is the source's biWidth; receives the rectangle,
 *                                     averaged along the rows, with rows and columns swapped. Must
 *                                     not overlap the source rows
 *   x0, y0                            first column and, in memory order, first row of the rectangle
 *   width, height                     in pixels; what reaches beyond the bitmap is cut off
 *   horizontalRadius, verticalRadius  in pixels, 1 or more; each has the s and M of its own n
 *
 * A rectangle 1 pixel wide has its columns averaged from what the transposed bitmap held before,
 * and one 1 pixel high only has the transposed bitmap written. A negative biHeight has no lines to
 * read: with a negative height of the transposed bitmap the source keeps its content, with one of
 * the source the columns are averaged from what the transposed bitmap held before.
 *
 * Changes nothing when a radius is below 1, a pointer is null, the sizes do not correspond as said,
 * the two biBitCount differ or are not 8, 24 or 32, a biCompression is not one of RGB for that bit
 * count (the row size is 0), x0 or y0 is negative, the rectangle has no pixel inside the bitmap, or
 * the rows do not fit in the address space. Rows are padded to 4 bytes, padding untouched. No
 * memory is allocated.
 */
KVL_API void KVL_AvgBlurUni(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                            const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                            int32_t x0, int32_t y0, int32_t width, int32_t height,
                            int32_t horizontalRadius, int32_t verticalRadius);

/*
 * KVL_AvgBlurUni with fractional radii. With k = floor(r) and q = ceil(r) of a radius r,
 *
 *   out[x] = min(255, (M * (sum over d = -k .. k of p[clamp(x + d, 0, w - 1)])
 *                      + F * (p[clamp(x - k - 1, 0, w - 1)] + p[clamp(x + k + 1, 0, w - 1)])
 *                      + 2^(s - 1)) >> s)
 *   s = the largest of 31 .. 2 with 2^s <= (2^32 - 1) / (510 * q + 255), or else 1
 *   M = floor(2^s / (2 * r + 1) + 0.5)
 *   F = floor(M * (r - k) + 0.5)
 *
 * with M and F computed in double precision. A whole r gives what KVL_AvgBlurUni gives, and 0
 * copies the lines; lines of a single pixel are not written with any radius. Both radii are in
 * pixels, 0 or more; one that is negative, not a number or 2^31 or more makes the call change
 * nothing. Everything else is as for KVL_AvgBlurUni.
 */
KVL_API void KVL_AvgBlurUniFloat(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                                 const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                                 int32_t x0, int32_t y0, int32_t width, int32_t height,
                                 float horizontalRadius, float verticalRadius);

/*
 * Selective or plain box blur of raw rows of 3 interleaved 8-bit components in place, separable:
 * first along every row, then along every column of the rounded row result. Components are
 * filtered alike and independently. Taps beyond a line's ends are left out. All arithmetic is that
 * of 32-bit integers that wrap, and [x] the integer part of x.
 *
 * threshold other than 255, selective: with n = [radius + 0.5], D = 2 * n * threshold and
 * K = [2^24 / D + 0.5], a sample m whose neighbours at the offsets -n .. n, 0 excepted, are the v
 * becomes
 *
 *   g(v) = max(0, threshold - |m - v|)
 *   out = ((D - sum of g(v)) * m + sum of g(v) * v) * K + 2^23, shifted right by 24, low 8 bits
 *
 * A radius below 0.5 leaves the image as it is. The cost grows with n.
 *
 * threshold 255, plain box: with M = [2^24 / (2 * radius + 1) + 0.5],
 * F = [(radius - floor(radius)) * 2^15 + 0.5] and q = ceil(radius),
 *
 *   out = M * (sum of full taps + ((F * sum of edge taps + 2^14) >> 15)) + 2^23, shifted right by
 *         24, low 8 bits
 *
 * where the taps at the offsets -q and q are edge taps when F is above 0 and all others up to q are
 * full. The divisor does not shrink near the ends of a line, which come out darker: a flat 255 with
 * radius 1 gives 170 at both ends. The cost does not depend on the radius.
 *
 *   image, imageStride  `height` rows of `width` pixels, bytes from row to row; input and result
 *   work, workStride    scratch of `width` rows of `height` pixels, bytes from row to row; receives
 *                       the image after the first pass, transposed. Must not overlap the image
 *   width, height       in pixels
 *   threshold           1 or more, in sample values
 *   radius              in pixels, above 0
 *
 * Changes nothing when the radius is 0, negative, not a number or 2^31 or more, the threshold is
 * below 1, a pointer is null, D does not fit in a signed 32-bit integer, there is more than one row
 * and a stride is smaller than the bytes of a row, or the rows do not fit in the address space.
 * Bytes between the rows stay as they were. No memory is allocated.
 */
KVL_API void KVL_BlurClassicUni(uint8_t* image, uint32_t imageStride, uint8_t* work,
                                uint32_t workStride, uint32_t width, uint32_t height,
                                int32_t threshold, float radius);

/*
 * KVL_BlurClassicUni for pixels of 1 or 3 components.
 *
 *   components  1 or 3; any other number changes nothing
 *   layout      1, interleaved; any other changes nothing
 */
KVL_API void KVL_BlurClassicUni_MultiComp(uint8_t* image, uint32_t imageStride, uint8_t* work,
                                          uint32_t workStride, uint32_t width, uint32_t height,
                                          int32_t threshold, float radius, int32_t components,
                                          int32_t layout);

/*
 * Selective blur of a 24-bit image: each byte becomes a mean of the same component around it, in
 * which a neighbour counts the more the closer its value is. With m the byte at (x, y), T the
 * threshold, R the radius, N = (2R + 1)^2 - 1 and g(n) = max(0, T - |m - n|), in integers:
 *
 *   D = N * T,  K = 65536 / D (truncated)
 *   out = min(255, ((D - sum of g(n)) * m + sum of n * g(n)) * K >> 16)
 *
 * over the neighbours n of the (2R + 1) x (2R + 1) square that lie inside the image. The centre
 * keeps what the neighbours do not take. Because K is truncated a flat area can come out one lower
 * (255 becomes 254 for R = 1, T = 10), and everything comes out 0 once D exceeds 65536 (R = 8 from
 * T = 228 on).
 *
 *   sourceHeader, sourceBits            the image, read only
 *   destinationHeader, destinationBits  the result, of the same size; must not overlap the source
 *   threshold                           T, in steps of a byte's value, at least 1
 *   radius                              R, in pixels, at least 1
 *
 * Changes nothing when the radius or the threshold is below 1, a pointer is null, the two headers
 * differ in biWidth or biHeight, biWidth or biHeight is 0 or negative, the row size or D does not
 * fit in a signed 32-bit integer, or the rows do not fit in the address space. biBitCount and
 * biCompression are not looked at: both buffers are 24-bit rows of ((biWidth + 1) * 3) & ~3 bytes,
 * padding untouched. No memory is allocated. The work grows with N.
 */
KVL_API void KVL_SelectiveBlur(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                               const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                               int32_t threshold, int32_t radius);

/*
 * The separable form of KVL_SelectiveBlur, in place: the rows first, then the columns of the
 * truncated row result, each by the same formula over the at most 2R neighbours in its line, with
 *
 *   D = 2 * T * R,  K = 65536 / D (truncated)
 *
 *   workHeader, workBits    scratch of the image's size. After the call row x of the work bits, for
 *                           x in 0 .. W - 1, holds column x of the row result: 3 * H bytes from
 *                           byte x * (S * H / W) on (W, H the image's size, S its row size in
 *                           bytes, the quotient truncated); its other bytes stay as they were.
 *                           biWidth and biHeight are exchanged while the call runs and restored
 *                           before it returns.
 *   imageHeader, imageBits  input and result; must not overlap the work rows
 *   threshold, radius       T and R, as above
 *
 * Changes nothing in the cases in which KVL_SelectiveBlur does not, with this D. The headers may be
 * one and the same. Padding of the image rows is untouched. No memory is allocated.
 */
KVL_API void KVL_ModifiedSelectiveBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                                       const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits,
                                       int32_t threshold, int32_t radius);

/*
 * Selective sharpens of a 24-bit image: each byte m is pushed away from its neighbours n, the same
 * component of the up to 8 pixels around it that lie inside the image, where it differs enough from
 * them. With N the number of neighbours, T the threshold, A the gain, L = 8 * T wrapped to 32 bits,
 * trunc() towards zero to 32 bits and clamp() to 0 .. 255:
 *
 *   KVL_SelectiveSharpenSimple
 *     out = m                                          where sum of |m - n| < L, else
 *     out = clamp(trunc(m * A) + sum of trunc(n * -q))
 *
 *   KVL_ModifiedSelectiveSharpenSimple
 *     out = m                                          where sum of |m - n| < L, else
 *     out = clamp(trunc(m * A) + trunc((sum of n) * -q))
 *
 *   with q = (A - 1) / max(N, 1); m * A in single, the rest in double precision.
 *
 *   KVL_SelectiveSharpen
 *     e(n) = max(0, |m - n| - T),  E = sum of e(n)
 *     f    = max(1, A * min(1, E / L))                 in single precision
 *     out  = clamp(trunc(m * f) + sum of trunc(n * ((1 - f) * e(n) / E)))
 *                                                      in double precision, the sum where E > 0
 *
 * A gain of 1 copies the image, and so does any gain where nothing differs.
 *
 *   sourceHeader, sourceBits            the image, read only
 *   destinationHeader, destinationBits  the result, of the same size; must not overlap the source
 *   threshold                           T, in steps of a byte's value, at least 1
 *   gain                                A, at least 1
 *
 * trunc() saturates at the 32-bit limits and the sums do not wrap, so that any gain is safe; where
 * an infinite gain meets a 0 the product counts as 0. From T = 2^28 on L is the wrapped value,
 * which may be 0 or negative: the simple forms compare with it as it is. The third copies the image
 * from T = 255 on, save that where L = 0 the quotient E / L counts as 1.
 *
 * Changes nothing when the gain is below 1 or not a number, the threshold is below 1, a pointer is
 * null, the two headers differ in biWidth or biHeight, biWidth or biHeight is 0 or negative, or the
 * row size does not fit in a signed 32-bit integer or all the rows in the address space. biBitCount
 * and biCompression are not looked at: both buffers are 24-bit rows of ((biWidth + 1) * 3) & ~3
 * bytes, padding untouched. No memory is allocated.
 */
KVL_API void KVL_SelectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader,
                                        const uint8_t* sourceBits,
                                        const BITMAPINFOHEADER* destinationHeader,
                                        uint8_t* destinationBits, int32_t threshold, float gain);
KVL_API void KVL_ModifiedSelectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader,
                                                const uint8_t* sourceBits,
                                                const BITMAPINFOHEADER* destinationHeader,
                                                uint8_t* destinationBits, int32_t threshold,
                                                float gain);
KVL_API void KVL_SelectiveSharpen(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                  const BITMAPINFOHEADER* destinationHeader,
                                  uint8_t* destinationBits, int32_t threshold, float gain);

/*
 * The blurs and sharpens from here on take raw images: rows of 8-bit samples without a header.
 *
 *   source, sourceStride            first row and the bytes from one row to the next; read only
 *   destination, destinationStride  the same for the result: the width * components bytes of every
 *                                   row are written, bytes of padding never. The two images must
 *                                   not overlap.
 *   width, height                   in pixels, 1 .. 1048576 (2^20) each
 *   components                      interleaved samples a pixel: 1, 3 or 4, all filtered alike
 *
 * Every pixel beyond an edge of the image has the value of the nearest pixel of the edge. Pixel
 * (x, y) has its centre at the coordinates (x, y), so the image reaches from (0, 0) to
 * (width - 1, height - 1); x counts along a row and y counts rows in memory order. In an image that
 * is stored bottom-up y therefore grows upwards.
 *
 * They change nothing when a pointer is null, a side is 0 or above 2^20, components is none of 1, 3
 * and 4, a stride is shorter than a row, the rows do not fit in the address space, memory for the
 * call cannot be had, or one of the values named at the routine is out of bounds.
 *
 * Results are exact integers, the same on every processor. A flat image stays flat, and a mirrored
 * image, with its centre or angle mirrored, gives the mirrored result. In the formulas
 *
 *   even(v)    is v rounded to the nearest integer, halves to the even one
 *   away(v)    is v rounded to the nearest integer, halves away from 0; v is an exact fraction
 *   floor, /   are exact; // is the division of integers that truncates
 */

/*
 * Zoom blur: every pixel becomes the mean of the samples of the ray through it from a centre, as if
 * the camera had moved or zoomed during the exposure.
 *
 *   centreX, centreY  in pixels, fractions count; may lie outside the image, up to 2^20 from 0. The
 *                     middle of the image is ((width - 1) / 2.0, (height - 1) / 2.0).
 *   strength          length of the blurred stretch of the ray, as a fraction of the pixel's
 *                     distance from the centre; the pixel is its middle. 0.1 blurs from 95 to 105
 *                     per cent of the distance. Above 2, where the stretch would pass the centre,
 *                     counts as 2. A strength that rounds to S = 0 copies the image.
 *
 * Changes nothing for a strength that is negative, infinite or no number, or such a centre, or one
 * farther than 2^20 from 0 in x or y.
 *
 *   Centre and strength   cx = even(256 * centreX), cy = even(256 * centreY), S = even(65536 *
 *                         strength). The pixel is at (dx, dy) = (256 * x - cx, 256 * y - cy).
 *   Number of samples n   With Q the largest dx * dx + dy * dy of the image, the pixel lies in the
 *                         first ring i of 1 .. 8 with dx * dx + dy * dy <= floor(Q * i * i / 64).
 *                         In doubles, from left to right, l = S / 65536.0 * (sqrt(Q) / 256.0) * i /
 *                         8; n = min(1024, ceil(l) + 1). So samples are less than a pixel apart
 *                         wherever the blur is not longer than 1024 pixels, and the cost of a pixel
 *                         grows with its distance from the centre.
 *   Sample k of 0 .. n-1  m = away(8192 * S * (2 * k + 1 - n) / n); the sample lies at
 *                         u = clamp(64 * x + away(m * dx / 2^32), 0, 64 * (width - 1)),
 *                         v = clamp(64 * y + away(m * dy / 2^32), 0, 64 * (height - 1)),
 *                         in 1/64 pixel. With X = u // 64, f = u mod 64, Y = v // 64, g = v mod 64
 *                         and p the source, its value is
 *                         b = (64 - g) * ((64 - f) * p[X, Y] + f * p[X + 1, Y])
 *                             + g * ((64 - f) * p[X, Y + 1] + f * p[X + 1, Y + 1]).
 *   Result                (the sum of the n values b + 2048 * n) // (4096 * n)
 *
 * Takes memory for a copy of the image with 2 bytes a pixel, or 8 if it has 3 or 4 components.
 */
KVL_API void KVL_BlurZoom(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                          uint32_t destinationStride, uint32_t width, uint32_t height,
                          double centreX, double centreY, double strength, int32_t components);

/*
 * Radial blur: every pixel becomes the mean of the samples of an arc through it round a centre, as
 * if the camera had turned during the exposure.
 *
 *   centreX, centreY  as for KVL_BlurZoom
 *   angle             of the whole arc, in degrees; the pixel is its middle. Above 360 counts as
 *                     360. An angle that rounds to A = 0 copies the image.
 *
 * Changes nothing for an angle that is negative, infinite or no number, or a centre that
 * KVL_BlurZoom would refuse.
 *
 * The arithmetic is that of KVL_BlurZoom, except for
 *
 *   Angle                 A = even(65536 * angle)
 *   Number of samples n   l = A / 65536.0 * 0.017453292519943295 * (sqrt(Q) / 256.0) * i / 8
 *   Sample k              t = away(4 * A * (2 * k + 1 - n) / n), in 2^-19 degrees; C and D are the
 *                         cosine and the sine of t times 2^30, each rounded to the nearest integer.
 *                         u = clamp(64 * x + away(((C - 2^30) * dx - D * dy) / 2^32), ...),
 *                         v = clamp(64 * y + away((D * dx + (C - 2^30) * dy) / 2^32), ...)
 *
 * Takes memory for a copy of the image with 2 bytes a pixel, or 8 if it has 3 or 4 components.
 */
KVL_API void KVL_BlurRadial(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                            uint32_t destinationStride, uint32_t width, uint32_t height,
                            double centreX, double centreY, double angle, int32_t components);

/*
 * Directional blur: every pixel becomes the mean of the samples of a straight line through it, as
 * if the camera had been swept past during the exposure.
 *
 *   angle   of the line, in degrees from the direction of growing x towards that of growing y. Any
 *           finite value; the half turn changes nothing.
 *   length  of the line, in pixels; the pixel is its middle. Above 1024 counts as 1024. Up to half
 *           a pixel (L of 4 or less) copies the image.
 *
 * Changes nothing for a length that is negative, infinite or no number, or an angle that is
 * infinite or no number.
 *
 *   Line       A = even(65536 * fmod(angle, 360)), in 2^-16 degrees, and L = even(8 * length). C
 *              and D are the cosine and the sine of A times 2^30, each rounded to the
 *              nearest integer.
 *   Sample j   for every j with a weight w above 0, where w = 8 for j = 0 and else
 *              w = clamp(L + 4 - 8 * |j|, 0, 8). It lies half a pixel from the next, at
 *              u = 32 * x + away(j * C / 2^26), v = 32 * y + away(j * D / 2^26), in 1/32 pixel.
 *              With X = floor(u / 32), f = u - 32 * X, Y = floor(v / 32), g = v - 32 * Y and p the
 *              source, continued beyond its edges, its value is
 *              b = (32 - g) * ((32 - f) * p[X, Y] + f * p[X + 1, Y])
 *                  + g * ((32 - f) * p[X, Y + 1] + f * p[X + 1, Y + 1]).
 *   Result     with W the sum of the weights, (the sum of w * b + 512 * W) // (1024 * W)
 *
 * Takes memory for a copy of the image with its rows lengthened by the reach of the line to both
 * sides.
 */
KVL_API void KVL_BlurDirectional(const uint8_t* source, uint32_t sourceStride, uint8_t* destination,
                                 uint32_t destinationStride, uint32_t width, uint32_t height,
                                 double angle, double length, int32_t components);

/*
 * Sharpens a plane of 8-bit samples, components being 1: a sample that differs enough from the mean
 * of its eight neighbours is pushed away from it.
 *
 *   threshold  smallest difference from the mean that is sharpened, in levels; 0 sharpens all, and
 *              from 256 on nothing is
 *   gain       the difference is increased by this factor: 0 copies the image, 1 doubles it. Above
 *              127.99609375 (32767/256) counts as that.
 *
 * Changes nothing for a threshold below 0 or a gain that is negative or no number.
 *
 *   G = even(256 * gain), e = 8 * p[x, y] - the sum of the eight neighbours
 *   result = p[x, y]                                       where |e| < 8 * threshold
 *            clamp(p[x, y] + away(e * G / 2048), 0, 255)   elsewhere
 *
 * No memory is allocated.
 */
KVL_API void KVL_SharpenSimpleUni(const uint8_t* source, uint32_t sourceStride,
                                  uint8_t* destination, uint32_t destinationStride, uint32_t width,
                                  uint32_t height, int32_t threshold, float gain);

/*
 * The same for images of several components, each of which is sharpened by itself.
 *
 *   layout  1, interleaved; nothing is changed for another value
 */
KVL_API void KVL_SharpenSimpleUni_MultiComp(const uint8_t* source, uint32_t sourceStride,
                                            uint8_t* destination, uint32_t destinationStride,
                                            uint32_t width, uint32_t height, int32_t threshold,
                                            float gain, int32_t components, int32_t layout);

/* ---- Pixel-format conversion ------------------------------------------------------------- */

/* ---- Alpha and colour -------------------------------------------------------------------- */

/* ---- Warp -------------------------------------------------------------------------------- */

/* ---- Motion ------------------------------------------------------------------------------ */

/* ---- JPEG raw data ----------------------------------------------------------------------- */

/*
 * Bitmaps to and from JPEG through a coder that the host brings. The coder knows files, blocks and
 * entropy codes; the library does the colours, the sampling and the threads. Between them go raw
 * component rows, as the usual JPEG libraries take and give them. examples/libjpeg_coder.c is such a
 * coder, over libjpeg.
 *
 * Status
 *   The three routines return 0 when everything is done, one of the statuses below, or the status
 *   with which a function of the coder failed, as it is. A coder's own statuses are best positive
 *   and above 1.
 */
#define KVL_JPEG_OK 0
/* The buffer for the picture is null or too small: nothing was decoded, the needed size is told. */
#define KVL_JPEG_NEEDS_BUFFER 1
/* A null pointer, a table of the wrong size, a bitmap of another kind, a rectangle outside. */
#define KVL_JPEG_INVALID_ARGUMENT ((int32_t)0x80070057u)
/* Memory for the call cannot be had. */
#define KVL_JPEG_OUT_OF_MEMORY ((int32_t)0x8007000Eu)
/* The coder told a geometry that cannot be (a side of 0, factors that are not 1 .. 4), or let an
   exception out. */
#define KVL_JPEG_BAD_CODER ((int32_t)0x80004005u)
/* The picture has a colour space that is not supported, such as CMYK. */
#define KVL_JPEG_UNSUPPORTED ((int32_t)0x80004001u)
/* The picture is larger than the caller's limits allow. */
#define KVL_JPEG_OVER_LIMIT ((int32_t)0x80070718u)

/* Colour spaces of a JPEG picture, and its components in their order. */
#define KVL_JPEG_GREY 1  /* Y */
#define KVL_JPEG_YCBCR 2 /* Y, Cb, Cr: full-range BT.601, as JFIF has it */
#define KVL_JPEG_RGB 3   /* R, G, B, stored without a transform */

/* Sampling of a picture that is written. */
#define KVL_JPEG_444 0
#define KVL_JPEG_422 1
#define KVL_JPEG_420 2

/*
 * What a picture consists of. H and V being the largest factors of all components, a component with
 * the factors h and v has
 *
 *   ceil(width * h / H) x ceil(height * v / V) samples,
 *
 * in rows of that many samples rounded up to a multiple of 8, and the picture has
 * ceil(height / (8 * V)) rows of MCUs, each with 8 * v rows of every component. Rows always pass
 * between library and coder as whole rows of MCUs, in the order of the file, top row first.
 */
typedef struct KVL_JpegGeometry {
  uint32_t size;          /* sizeof(KVL_JpegGeometry); set by the library */
  int32_t width;          /* in pixels, 1 .. 65535 */
  int32_t height;         /* in pixels, 1 .. 65535 */
  int32_t colorSpace;     /* KVL_JPEG_GREY, KVL_JPEG_YCBCR, KVL_JPEG_RGB, or 0 for another */
  int32_t componentCount; /* 1 for grey, else 3 */
  uint8_t horizontal[4];  /* factor h of each component, 1 .. 4 */
  uint8_t vertical[4];    /* factor v of each component, 1 .. 4 */
} KVL_JpegGeometry;

/*
 * A coder is a table of functions. Each gets `user` as it stands in the table, and returns 0 or the
 * status with which the call is to fail; after a failure only `error` is called. The library copies
 * nothing out of the table and keeps no pointer beyond the call.
 *
 *   Order    open; for a decoder, readHeader; writeRows or readRows for rows of MCUs 0, 1, 2, ...,
 *            each once; finish. When anything fails after open has succeeded, error is called once,
 *            last, with the status that the host will get, whoever caused it: also after a finish
 *            that failed. When open fails nothing else is called.
 *   Threads  writeRows and readRows are called on any thread of the team, the others on the thread
 *            of the call. No two functions of any coder run at once anywhere in the process: one
 *            lock, held for the length of one function, guards them all. So a coder needs no lock
 *            of its own, and a slow one holds up others; a function of a coder must not call the
 *            three routines here, or it waits for itself.
 *   Unwind   A function must return: no longjmp may leave it. A C++ exception that leaves one is
 *            caught, where host and library share the run-time, and counts as KVL_JPEG_BAD_CODER.
 *   Rows     rows[c][r] is row r, of 0 .. 8 * v - 1, of component c in this row of MCUs. Every row
 *            has its padding to a multiple of 8 samples, and the last row of MCUs all its rows. The
 *            pointers are good until the function returns.
 *
 * `size` is sizeof the table that the host was compiled with. A smaller one than the library's is
 * refused, of a larger one the rest is ignored. Functions must not be null, except error.
 */
typedef struct KVL_JpegEncoder {
  uint32_t size; /* sizeof(KVL_JpegEncoder) */
  void* user;
  /* Begins a picture. The coder chooses quality, tables and where the bytes go. */
  int32_t (*open)(void* user, const KVL_JpegGeometry* geometry);
  /* Takes one row of MCUs, padding included: repetitions of the last column and row. */
  int32_t (*writeRows)(void* user, int32_t mcuRow, const uint8_t* const* const* rows);
  /* Ends the picture, of which every row was taken. */
  int32_t (*finish)(void* user);
  /* Gives the picture up and frees what open took. May be null. */
  void (*error)(void* user, int32_t status);
} KVL_JpegEncoder;

typedef struct KVL_JpegDecoder {
  uint32_t size; /* sizeof(KVL_JpegDecoder) */
  void* user;
  /* Begins with the bytes of a file, which stay where they are until finish or error; data and
     dataSize are those of the call. The coder is to take no more than memoryLimit bytes, and to
     fail at a picture of more than scanLimit scans. */
  int32_t (*open)(void* user, const uint8_t* data, size_t dataSize, uint64_t memoryLimit,
                  int32_t scanLimit);
  /* Tells what the picture consists of; all fields but size come as 0. */
  int32_t (*readHeader)(void* user, KVL_JpegGeometry* geometry);
  /* Fills one row of MCUs; what it writes into padding does not matter. */
  int32_t (*readRows)(void* user, int32_t mcuRow, uint8_t* const* const* rows);
  /* Ends the picture and frees what open took. Rows may remain unread, after a crop all below it
     and where only the size was asked for all. */
  int32_t (*finish)(void* user);
  /* Gives the picture up and frees what open took. May be null. */
  void (*error)(void* user, int32_t status);
} KVL_JpegDecoder;

/*
 * Writes a bitmap as a JPEG picture.
 *
 *   encoder       the coder
 *   header, bits  the bitmap, rows padded to 4 bytes; read only. One of
 *                   24 bits, biCompression 0 or 0xE436EB7D    YCbCr picture
 *                   8 bits, biCompression 0 or 0xE436EB7A     grey picture: a palette is not looked
 *                                                             at, 0 is black and 255 white
 *                   16 bits, packed 4:2:2                     YCbCr picture
 *                 Rows are bottom-up when biHeight is positive and top-down when it is negative,
 *                 those of packed 4:2:2 always top-down. The codes of packed 4:2:2 are V422, YUY2,
 *                 YUNV, YUYV (Y U Y V); YVYU; VYUY; Y422, UYNV, UYVY (U Y V Y). Of an odd width the
 *                 V sample of the last pixel is read from the padding, or the one that the order
 *                 puts there.
 *   sampling      of the picture: KVL_JPEG_444, _422 or _420; not looked at for 8 bits
 *   videoRange    for packed 4:2:2, else not looked at: 0 takes the samples as they are, 1 widens
 *                 those of the video range (Y 16 .. 235, U and V 16 .. 240) to the full one. A
 *                 BT.709 matrix is not changed into BT.601.
 *   bandRows      rows of pixels that a thread converts at once, rounded up to whole rows of MCUs
 *                 (8 pixels high, 16 for 4:2:0); 0 lets the library choose. A matter of speed and
 *                 memory, not of the result.
 *   rowsWritten   may be null; receives the rows of pixels, from the top of the picture, that the
 *                 coder has taken. All of them when the call succeeds, 0 when nothing was begun.
 *
 * Arithmetic, all in integers; >> rounds down, and [i odd] is 1 for an odd i and else 0:
 *
 *   Y  = (19595 * R + 38470 * G + 7471 * B + 32768) >> 16
 *   Cb = (-11059 * R - 21709 * G + 32768 * B + 8421375) >> 16
 *   Cr = (32768 * R - 27439 * G - 5329 * B + 8421375) >> 16
 *
 *   Chroma sample (i, j), for colours p of full size:
 *     4:4:4  p[i, j]
 *     4:2:2  (p[2i, j] + p[2i + 1, j] + [i odd]) >> 1
 *     4:2:0  (p[2i, 2j] + p[2i + 1, 2j] + p[2i, 2j + 1] + p[2i + 1, 2j + 1] + 1 + [i odd]) >> 2
 *   and for chroma q of packed 4:2:2:
 *     4:4:4  q[i >> 1, j]
 *     4:2:2  q[i, j]
 *     4:2:0  (q[i, 2j] + q[i, 2j + 1] + [i odd]) >> 1
 *   videoRange: Y' = clamp(((Y - 16) * 510 + 219) // 438), U' and V' = clamp((C * 510 - 7712) //
 *     448), // rounding down, clamp to 0 .. 255, before the chroma is sampled.
 *
 * Beyond the picture's right edge the last column of pixels repeats, likewise the last row for the
 * second row of a pair; below its last row of samples a component repeats that row.
 *
 * Nothing is called and 0 rows are told when a pointer is null, the table is not as said, the
 * bitmap is of another kind, a side is 0 or above 65535, biWidth is negative, sampling or videoRange
 * is not one of its values, bandRows is negative, or the rows do not fit in the address space.
 *
 * One thread hands rows to the coder while the others convert the next bands. Memory is taken for
 * two bands a thread, or the picture if that is less, as component rows: up to 3 bytes a pixel.
 */
KVL_API int32_t KVL_JpegWriteRawImage(const KVL_JpegEncoder* encoder,
                                      const BITMAPINFOHEADER* header, const uint8_t* bits,
                                      int32_t sampling, int32_t videoRange, int32_t bandRows,
                                      int32_t* rowsWritten);

/*
 * How pictures are read. A null pointer to it stands for one of zeros.
 */
typedef struct KVL_JpegReadOptions {
  uint32_t size;        /* sizeof(KVL_JpegReadOptions); a table smaller than that is refused */
  int32_t threads;      /* team of this call, 1 .. 1024; 0 for the library's choice */
  RECT crop;            /* in pixels from the picture's top left; all 0 for the whole picture. What
                           reaches beyond the picture is cut off. */
  int32_t bitCount;     /* KVL_QvjJpegToDib: 8 or 24; 0 for 8 of a grey picture, else 24 */
  int32_t topDown;      /* KVL_QvjJpegToDib: 0 for bottom-up rows, 1 for top-down */
  uint64_t pixelLimit;  /* most pixels, width * height, of a picture; 0 for no limit */
  uint64_t memoryLimit; /* most bytes for the rows of the call, and as many for the coder; 0 for
                           2^29 */
  int32_t scanLimit;    /* most scans of a picture; 0 for 100 */
  int32_t reserved;     /* 0 */
} KVL_JpegReadOptions;

/*
 * Reads a JPEG picture into a bitmap of its own size, or of the crop's.
 *
 *   decoder         the coder
 *   data, dataSize  the file, in bytes; handed to the coder's open. data may be null where dataSize
 *                   is 0, for coders that find their bytes elsewhere.
 *   options         see above; may be null
 *   header          receives the bitmap's header: biSize 40, biWidth, biHeight (negative for
 *                   top-down rows), biPlanes 1, biBitCount, biSizeImage (0 where 32 bits do not
 *                   hold it), all else 0. An 8-bit bitmap has the 256 greys from 0 as its palette,
 *                   which the host supplies.
 *   bits            receives the rows, padded to 4 bytes, padding untouched; null to ask for the
 *                   size only
 *   bitsSize        must hold the bytes of bits; receives the bytes that the picture needs
 *   rowsRead        may be null; receives the rows of the bitmap, from its top edge as one sees it,
 *                   that hold the picture. All of them when the call succeeds. When it fails in the
 *                   midst these are good, and the others as they were.
 *
 * header and bitsSize are written as soon as the picture's header was read and found usable, so
 * that both are right when KVL_JPEG_NEEDS_BUFFER comes back.
 *
 * Arithmetic. Component samples become pixels by the component's factors: with H / h and V / v both
 * 1 or 2, a line is doubled by weighing the nearer of two neighbouring samples with 3 and the other
 * with 1. For the samples s, and with s beyond an edge the value at the edge,
 *
 *   along the rows only     p[x, y] = (3 * s[i, y] + s[i - 1, y] + 1) >> 2 for x = 2i,
 *                                     (3 * s[i, y] + s[i + 1, y] + 2) >> 2 for x = 2i + 1
 *   along the columns only  p[x, y] = (3 * s[x, j] + s[x, j - 1] + 1) >> 2 for y = 2j,
 *                                     (3 * s[x, j] + s[x, j + 1] + 2) >> 2 for y = 2j + 1
 *   both                    t[i] = 3 * s[i, j] + s[i, j - 1] for y = 2j, 3 * s[i, j] + s[i, j + 1]
 *                           for y = 2j + 1;
 *                           p[x, y] = (3 * t[i] + t[i - 1] + 8) >> 4 for x = 2i,
 *                                     (3 * t[i] + t[i + 1] + 7) >> 4 for x = 2i + 1
 *
 * With other quotients p[x, y] = s[x * h // H, y * v // V], // truncating. Then, with u = Cb - 128
 * and v = Cr - 128, clamped to 0 .. 255:
 *
 *   R = Y + ((91881 * v + 32768) >> 16)
 *   G = Y + ((-22554 * u - 46802 * v + 32768) >> 16)
 *   B = Y + ((116130 * u + 32768) >> 16)
 *
 * A grey picture has R = G = B = Y. Into 8 bits goes Y, of an RGB picture the Y of
 * KVL_JpegWriteRawImage. These are the sums that libjpeg-turbo's own colour output gives, for every
 * picture that its smooth upsampling covers.
 *
 * Changes nothing, and calls nothing, when a pointer that must not be is null, a table is not as
 * said, or an option is out of bounds; changes nothing when the coder fails before rows were read,
 * or the picture is not supported, over a limit, or does not meet the crop (invalid argument).
 *
 * While the call runs, the thread's team has options->threads threads, or else its usual size but
 * no more than 3: one thread drives the coder, and two convert as fast as the fastest coder decodes.
 * The old size is back when the call returns, in every case. Memory is taken for component rows of
 * about 256 rows of pixels, and none for the picture.
 */
KVL_API int32_t KVL_QvjJpegToDib(const KVL_JpegDecoder* decoder, const uint8_t* data,
                                 size_t dataSize, const KVL_JpegReadOptions* options,
                                 BITMAPINFOHEADER* header, uint8_t* bits, size_t* bitsSize,
                                 int32_t* rowsRead);

/*
 * Reads a JPEG picture into a rectangle of a bitmap that exists. As KVL_QvjJpegToDib, but for
 *
 *   header    of the bitmap: 8 or 24 bits of RGB (the codes of KVL_JpegWriteRawImage), rows
 *             bottom-up when biHeight is positive, else top-down; read only
 *   bits      the bitmap, from its first row in memory
 *   stride    bytes from one row to the next in memory, at least the bytes of a row; 0 for rows
 *             padded to 4 bytes
 *   rect      where the picture, or its crop, goes, in pixels from the bitmap's top left as one
 *             sees it; null for the whole bitmap. Must lie inside the bitmap and not be empty. A
 *             picture that is larger is cut off at the right and below, beside a smaller one the
 *             bitmap stays as it was.
 *   rowsRead  counts rows of the rectangle
 *
 * bitCount and topDown of the options are not looked at. Bytes between the rows and outside the
 * rectangle are never written.
 */
KVL_API int32_t KVL_QvjDecompress(const KVL_JpegDecoder* decoder, const uint8_t* data,
                                  size_t dataSize, const KVL_JpegReadOptions* options,
                                  const BITMAPINFOHEADER* header, uint8_t* bits, int32_t stride,
                                  const RECT* rect, int32_t* rowsRead);

KVL_STATIC_ASSERT(sizeof(KVL_JpegGeometry) == 28, KVL_JpegGeometry_is_28_bytes);
KVL_STATIC_ASSERT(offsetof(KVL_JpegGeometry, horizontal) == 20, horizontal_is_at_20);
KVL_STATIC_ASSERT(offsetof(KVL_JpegGeometry, vertical) == 24, vertical_is_at_24);
KVL_STATIC_ASSERT(sizeof(KVL_JpegEncoder) == 48, KVL_JpegEncoder_is_48_bytes);
KVL_STATIC_ASSERT(offsetof(KVL_JpegEncoder, user) == 8, KVL_JpegEncoder_user_is_at_8);
KVL_STATIC_ASSERT(offsetof(KVL_JpegEncoder, error) == 40, KVL_JpegEncoder_error_is_at_40);
KVL_STATIC_ASSERT(sizeof(KVL_JpegDecoder) == 56, KVL_JpegDecoder_is_56_bytes);
KVL_STATIC_ASSERT(offsetof(KVL_JpegDecoder, user) == 8, KVL_JpegDecoder_user_is_at_8);
KVL_STATIC_ASSERT(offsetof(KVL_JpegDecoder, error) == 48, KVL_JpegDecoder_error_is_at_48);
KVL_STATIC_ASSERT(sizeof(KVL_JpegReadOptions) == 56, KVL_JpegReadOptions_is_64_bytes);
KVL_STATIC_ASSERT(offsetof(KVL_JpegReadOptions, crop) == 8, crop_is_at_8);
KVL_STATIC_ASSERT(offsetof(KVL_JpegReadOptions, pixelLimit) == 32, pixelLimit_is_at_32);
KVL_STATIC_ASSERT(offsetof(KVL_JpegReadOptions, scanLimit) == 48, scanLimit_is_at_48);

#ifdef __cplusplus
}
#endif

#endif
