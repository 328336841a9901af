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

/*
 * The temporary image of a warp is an object of the host, reached through tables of operations so
 * that plain C can supply it. Every operation has the object itself as its first argument. The
 * library calls createImage of the allocator, and release, getHeader and getBits of the image; the
 * other places of the tables belong to the host and may be null.
 */
typedef struct KvlWarpImageRequest {
  uint32_t size;        /* of this record: 64 */
  uint32_t unused4;     /* 0; hosts accept any value */
  uint32_t zero8;       /* 0 */
  GUID subtype;         /* MEDIASUBTYPE_RGB8, _RGB24 or _RGB32: E436EB7A, E436EB7D or
                           E436EB7E-524F-11CE-9F53-0020AF0BA770 */
  uint32_t unused28[2]; /* 0; hosts accept any value */
  int32_t width;        /* of the picture, in pixels */
  int32_t height;       /* in rows: those of the picture, and spare ones behind it */
  int32_t paddedWidth;  /* width rounded up to a multiple of 16 */
  uint32_t zero48;      /* 0 */
  uint32_t unused52;    /* 0; hosts accept any value */
  int32_t imageWidth;   /* width again */
  int32_t imageHeight;  /* height again */
} KvlWarpImageRequest;

KVL_STATIC_ASSERT(sizeof(KvlWarpImageRequest) == 64, KvlWarpImageRequest_is_64_bytes);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, subtype) == 12, subtype_is_at_12);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, unused28) == 28, unused28_is_at_28);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, width) == 36, width_is_at_36);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, height) == 40, height_is_at_40);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, paddedWidth) == 44, paddedWidth_is_at_44);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, unused52) == 52, unused52_is_at_52);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, imageWidth) == 56, imageWidth_is_at_56);
KVL_STATIC_ASSERT(offsetof(KvlWarpImageRequest, imageHeight) == 60, imageHeight_is_at_60);

typedef struct KvlWarpHostImage KvlWarpHostImage;
typedef struct KvlWarpHostAllocator KvlWarpHostAllocator;

typedef struct KvlWarpHostImageOperations {
  void (*unused0)(void);
  void (*unused1)(void);
  /* Frees the image; its result is not looked at. Called exactly once for every image. */
  uint32_t (*release)(KvlWarpHostImage* image);
  /* A header of the requested width, in pixels of the requested size, that stays valid until
     release. The library writes its biHeight. */
  BITMAPINFOHEADER* (*getHeader)(KvlWarpHostImage* image);
  /* The rows: the header's row size times the requested height bytes, readable and writable. */
  uint8_t* (*getBits)(KvlWarpHostImage* image);
} KvlWarpHostImageOperations;

struct KvlWarpHostImage {
  const KvlWarpHostImageOperations* operations;
};

typedef struct KvlWarpHostAllocatorOperations {
  void (*unused0)(void);
  void (*unused1)(void);
  void (*unused2)(void);
  /* Stores a new image and returns 0 or more, or returns a negative status and stores none.
     `flags` is 8; `file` and `line` are constants for the host's own bookkeeping. */
  int32_t (*createImage)(KvlWarpHostAllocator* allocator, KvlWarpHostImage** image,
                         const KvlWarpImageRequest* request, int32_t flags, const char* file,
                         int32_t line);
} KvlWarpHostAllocatorOperations;

struct KvlWarpHostAllocator {
  const KvlWarpHostAllocatorOperations* operations;
};

KVL_STATIC_ASSERT(offsetof(KvlWarpHostImageOperations, release) == 2 * sizeof(void*),
                  release_is_the_third_operation);
KVL_STATIC_ASSERT(offsetof(KvlWarpHostImageOperations, getBits) == 4 * sizeof(void*),
                  getBits_is_the_fifth_operation);
KVL_STATIC_ASSERT(offsetof(KvlWarpHostAllocatorOperations, createImage) == 3 * sizeof(void*),
                  createImage_is_the_fourth_operation);

/*
 * Draws a rectangle of a source bitmap into a destination bitmap through a 4 x 4 homogeneous matrix:
 * a perspective, a turn in space, an affine map or a plain scale or shift. Minification averages all
 * source pixels that fall on a destination pixel, magnification subdivides the source first, and
 * the rim of the picture is blended with what the destination holds.
 *
 *   destinationHeader,    the bitmap that is drawn into, of 8, 24 or 32 bits a pixel (8 .. 15 count
 *   destinationBits       as 8 and so on, by biBitCount / 8). All channels are treated alike, alpha
 *                         and palette indices too
 *   destinationRect       the region that the picture is meant for, in pixels; exclusive right and
 *                         bottom. It decides which source pixels are used, and does not cut the
 *                         result: what the used ones reach is drawn anywhere in the bitmap
 *   sourceHeader,         the picture, only read; must not overlap the destination. Its pixels have
 *   sourceBits            the size of the destination's; its biBitCount is used for its row size
 *   sourceRect            the part of it that is warped; what reaches beyond the bitmap is cut off
 *   matrix                16 doubles, row-major, m[4 * row + column]; not written
 *   allocator             supplies the image that holds the subdivided source; asked only for
 *                         levels above 0
 *   supersampleLevel      the source is subdivided 2^level times each way; below 0 counts as 0,
 *                         above 15 as 15
 *   warpFlags             bit 0: the level is chosen, with supersampleLevel as its bias; other bits
 *                         are ignored
 *
 * Rectangles and matrix count rows from the top of the picture, however it is stored: bottom-up
 * where biCompression is 0, 0xE436EB7A or 0xE436EB7D and biHeight positive, else top-down. Pixel
 * (i, j) covers i .. i + 1 and j .. j + 1; its centre is (i + 0.5, j + 0.5).
 *
 * All arithmetic is in double precision, from left to right, unless said otherwise.
 *
 * Forward, a source point (x, y) goes to (X * r, Y * r), where r = 1 / W and
 *
 *   X = x * m[0] + y * m[4] + m[12],  Y = x * m[1] + y * m[5] + m[13]
 *   W = x * m[3] + y * m[7] + m[11] * 0.0 + m[15]
 *
 * (so an m[11] that is not finite spoils every point; set it to 0). Back, with I the inverse matrix,
 *
 *   z = -(x * I[2] + y * I[6] + I[14]) / I[10],  w = x * I[3] + y * I[7] + z * I[11] + I[15]
 *   ((x * I[0] + y * I[4] + z * I[8] + I[12]) / w, (x * I[1] + y * I[5] + z * I[9] + I[13]) / w)
 *
 * A matrix that only serves the plane still has to be regular: m[10] = 1 and zeros beside and above
 * it do. The inverse is found by LU decomposition with partial pivoting by rows, the first of equal
 * pivots, where only a pivot of exactly 0 counts as singular. A w of 0 or less is projected like any
 * other; to avoid the mirrored picture beyond the horizon, cut the source rectangle.
 *
 * Source box   The source rectangle. Where the images of its corners do not all lie in the
 *              destination rectangle (left <= x < right, top <= y < bottom), each edge moves to a
 *              corner of the destination rectangle that lies inside the picture, carried back, if
 *              that is the outermost point on its side of what the rectangle shows. Then the box
 *              is widened by the points up to one destination pixel left, right, above and below
 *              of its corners' images, carried back, and rounded outwards, right and bottom by one
 *              more, within the source rectangle.
 * Level        supersampleLevel; with bit 0 of the flags the smallest n of 0 .. 15 for which
 *              4^n * s / 4^supersampleLevel >= 0.75, s being 1 / the area of the image of a source
 *              pixel where that is largest among the four corners of the box. Lowered as long as
 *              the subdivided box, rows padded to 4 bytes, takes more than 200 MiB.
 * Subdivision  With F = 2^level, h = F / 2 and d = b - a, the F samples between two neighbours a
 *              and b are (h + (a << level) + (d >> 1) + k * d) >> level, k = 0 .. F - 1; the first
 *              and the last pixel of a line are repeated h times before and behind. Rows first,
 *              then columns.
 * Splat        Each sample of the box, carried forward to (x, y) from its centre, counts where
 *              0 <= x <= W and 0 <= y <= H, the size of the destination. It adds value * q to each
 *              channel and q to the weight of the up to nine pixels i, j in floor(x) - 1 ..
 *              floor(x) + 1, floor(y) - 1 .. floor(y) + 1:
 *                w = 1 - ((i + 0.5 - x)^2 + (j + 0.5 - y)^2),  q = floor(w * 256 + 0.5) where w > 0
 *              Sums wrap at 32 bits, which takes more than 65000 samples on one pixel.
 *              A sample that lies in the first column, x < 1, counts for that column with
 *              1.5 - x in place of 0.5 - x and not for the second; likewise for the first row. So
 *              they hardly take part in the picture: place it a pixel off them.
 *              After InitKVLWrapper, on processors with SSSE3, x, y, the floors and all that
 *              follows are of single precision, and q is w * 256 rounded to the nearest integer,
 *              halves to the even one: it may differ by one.
 * Rim          In each row, from either end, the pixels from the first that has weight on, up to
 *              the first whose surroundings lie inside the box: the bounding box of (i - 0.5 or
 *              i + 1.5, j - 0.5 or j + 1.5), carried back. Of those on the way, with p the part of
 *              the surroundings' area that the box covers, the destination's own pixel enters with
 *              the weight k = floor((1 - p) * weight / p + 0.5), at most 2^31 - 1; where p is 0
 *              the pixel keeps its value.
 * Result       (sum + own * k + t / 2) / t with t = weight + k in integers, at most 255. Pixels
 *              without weight, and row padding, are never written.
 *
 * Of a photograph of 1280 x 720 in a mild perspective that keeps its size, at level 0, the PSNR
 * against the same formulas without any rounding is 59.9 dB and the largest difference 0.71, or 9.3
 * in the outermost pixels of the rim, which have less weight than 192.
 *
 * Changes nothing when a pointer is null; a biHeight is 0 or -2^31; a biWidth is 0 or negative; the
 * matrix is singular; the destination has other than 1, 3 or 4 bytes a pixel, or either bitmap a
 * biCompression that is not one of RGB for its bit count; a rectangle has a negative left or top or
 * no pixel, or the source rectangle none inside the bitmap; the source's rows are too short for its
 * rectangle in pixels of the destination's size; rows do not fit in the address space; memory for
 * the call cannot be had; or, for levels above 0, createImage fails, the image's header or bits are
 * null, its rows are shorter than asked for, or its header tells fewer of them.
 *
 * Takes memory for at most 64 destination rows a thread with 16 bytes a pixel (32 for 32-bit
 * bitmaps), or for all of them where w is not of one sign in the box, and for levels above 0 two
 * rows of the subdivided source a thread.
 */
KVL_API void KVL_CalcQvWarpPixel(const BITMAPINFOHEADER* destinationHeader,
                                 uint8_t* destinationBits, const RECT* destinationRect,
                                 const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                 const RECT* sourceRect, const double* matrix,
                                 KvlWarpHostAllocator* allocator, int32_t supersampleLevel,
                                 uint32_t warpFlags);

/* ---- Motion ------------------------------------------------------------------------------ */

#ifdef __cplusplus
}
#endif

#endif
