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

/*
 * Resizing scales a rectangle of a source bitmap, whose edges may be fractions of pixels, into a
 * rectangle of a destination bitmap. Both bitmaps have 24 bits a pixel, or both have 8. Work is in
 * two phases: KVL_SetupResizeDib checks everything and fills a record, KVL_CalcResizeDib resamples
 * by it as often as the host likes. KVL_ResizeDIB_CPP does both in one call.
 */

/* Statuses of the resize routines: the Windows codes of these names. */
#define KVL_S_OK ((int32_t)0)
#define KVL_S_FALSE ((int32_t)1)
#define KVL_E_FAIL ((int32_t)0x80004005)
#define KVL_E_OUTOFMEMORY ((int32_t)0x8007000E)
#define KVL_E_INVALIDARG ((int32_t)0x80070057)

/*
 * What set-up finds and execution reads. The host owns it and need not initialise it; it holds no
 * resources. L, T, R, B are the edges of the source rectangle, I is the smallest rectangle of whole
 * pixels around it, with a tolerance of 0.000001, and W, H is the source's size.
 */
typedef struct ResizeSetup {
  uint64_t totalBytes;        /* of work buffer: intermediate + weights + border */
  uint64_t intermediateBytes; /* W * intermediateStride */
  uint64_t weightBytes;       /* 8 * max(W, H, width of I, height of I) + 8 */
  uint32_t bytesPerPixel;     /* 3 or 1 */
  uint64_t dstStride;         /* bytes from row to row, a multiple of 4 */
  uint64_t srcStride;
  uint64_t intermediateStride; /* (clip height + 1) * bytesPerPixel, up to a multiple of 16 */
  double srcLeft;              /* L */
  double srcRight;             /* R: note the order */
  double srcTop;               /* T */
  double srcBottom;            /* B */
  RECT dstClip;                /* the destination rectangle, clipped */
  double scaleX;               /* (R - L) / clip width: above 1 means shrinking */
  double scaleY;               /* (B - T) / clip height */
  double srcRectWidth;         /* R - L */
  double srcRectHeight;        /* B - T */
  int32_t dstWidth;
  uint32_t dstHeight;
  int32_t srcWidth;
  uint32_t srcHeight;
  int32_t dstFirstColumn; /* first column written */
  int32_t dstBottomSkip;  /* rows skipped at the start of the bottom-up buffer */
  int32_t srcFirstColumn; /* first column read */
  int32_t srcBottomSkip;
  int32_t dstRowCount; /* rows written */
  int32_t srcRowCount; /* rows read */
  int32_t srcColumnCount;
  uint8_t borderBuffers; /* 1 where the border was asked for */
} ResizeSetup;

KVL_STATIC_ASSERT(sizeof(ResizeSetup) == 184, ResizeSetup_is_184_bytes);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, bytesPerPixel) == 24, bytesPerPixel_is_at_24);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, dstStride) == 32, dstStride_is_at_32);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, srcLeft) == 56, srcLeft_is_at_56);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, dstClip) == 88, dstClip_is_at_88);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, scaleX) == 104, scaleX_is_at_104);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, dstWidth) == 136, dstWidth_is_at_136);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, dstFirstColumn) == 152, dstFirstColumn_is_at_152);
KVL_STATIC_ASSERT(offsetof(ResizeSetup, borderBuffers) == 180, borderBuffers_is_at_180);

/*
 * Checks bitmaps and rectangles, clips the destination rectangle and fills the record.
 *
 *   sourceHeader, destinationHeader  both of 24 bits with biCompression 0 or 0xE436EB7D, or both of
 *                                    8 bits with 0 or 0xE436EB7A; biWidth and biHeight 1 or more
 *   sourceRect       left, top, right and bottom, in pixels from the picture's top left; right and
 *                    bottom are exclusive, and all may lie outside the source
 *   destinationRect  in pixels from the top left of the destination; clipped in place, to all
 *                    zeros where nothing is left
 *   flags            bit 0: enlarging interpolates across the edges of the source rectangle, with
 *                    the pixels beyond them (see KVL_CalcResizeDib). Other bits are ignored
 *   setup            filled when the call returns KVL_S_OK; otherwise not a byte of it changes. Its
 *                    4 bytes after bytesPerPixel and the last 3 are never written
 *   neededBytes      receives totalBytes with KVL_S_OK; may be null
 *
 * Where the rectangle hangs over the source, the destination shrinks with it: with F(v) = v rounded
 * down with a tolerance of 0.000001, F(-L / scaleX) columns at the left are skipped, F((R - W) /
 * scaleX) at the right, and rows alike.
 *
 * Returns, in the order of the checks:
 *
 *   KVL_E_INVALIDARG  setup or sourceHeader is null, the headers are not such a pair (a top-down
 *                     bitmap is none), or sourceRect is null
 *   KVL_S_FALSE       the source rectangle is empty, has an edge that is no number, or misses the
 *                     source. destinationRect has not been read
 *   KVL_E_INVALIDARG  destinationRect is null
 *   KVL_S_FALSE       the destination rectangle misses the destination
 *   KVL_E_INVALIDARG  R - L or B - T is infinite, or weightBytes would be 2^31 or more: source
 *                     sides and rectangles reach to 268435454 pixels (the sides of I, alone, are
 *                     differences of saturated 32-bit edges that wrap)
 *   KVL_S_OK          the record is ready
 */
KVL_API int32_t KVL_SetupResizeDib(const BITMAPINFOHEADER* sourceHeader, const double* sourceRect,
                                   const BITMAPINFOHEADER* destinationHeader, RECT* destinationRect,
                                   uint32_t flags, ResizeSetup* setup, uint64_t* neededBytes);

/*
 * Resamples by a record. Several calls may run at once, each with a work buffer of its own, also
 * with the same record.
 *
 *   setup            as KVL_SetupResizeDib left it
 *   sourceBits       srcHeight rows of srcStride bytes, bottom-up; read only, padding never
 *   destinationBits  dstHeight rows of dstStride bytes, bottom-up; of it the drawn part of the
 *                    destination rectangle is written and nothing else, padding never. Must not
 *                    overlap the source
 *   work             any address; its first totalBytes are cleared and then used as scratch
 *   workBytes        its size, totalBytes or more
 *
 * Axes are resampled one after the other, columns first and then rows, each on its own: it is
 * averaged where its scale is above 1 and interpolated otherwise. With N outputs of the clip, S the
 * scale, samples p[0] .. p[n - 1] of the whole source and rectangle edges s and e on the axis, rows
 * counted from the bottom (s = L and e = R, or s = H - B and e = H - T):
 *
 *   interpolated  u = s + (o + 0.5) * S - 0.5 for output o, limited to the samples of I (with
 *                 border buffers to one more at each side, where the source has it) and rounded to
 *                 1/65536; k = floor(u), w = (u - k) rounded to 1/16384:
 *                 out[o] = (16384 * (1 - w) * p[k] + 16384 * w * p[k + 1] + h) >> 14
 *   averaged      sample i begins x(i) = (i - s) * N / (e - s) outputs from the clip's edge, and
 *                 X(i) = x(i) * 2^22 + 0.5, truncated; r(i) = the part of output o, 0 to 2^22,
 *                 that lies after X(i), divided by 2^8 and rounded:
 *                 out[o] = (sum over the samples of I of (r(i) - r(i + 1)) * p[i] + h) >> 14
 *
 * h is 8192 for columns and 8191 for rows, so that halves do not brighten twice; the other
 * roundings are to nearest, halves to even. At the rim of an average, the part of I's first and of
 * its last sample that the rectangle covers counts in units of 1/256, rounded to nearest: the
 * sample's inner edge lies that part of a sample from the rectangle's edge (where the two samples
 * have that edge in common, at the mean of the two places). The first and the last output that are
 * drawn, if they lie over the source in part, are the average of that part: within them x is
 * stretched to the whole output. No x lies outside the outputs that are drawn.
 *
 * So equal sizes and whole coordinates copy exactly, flat areas and ramps stay what they are, a
 * mirrored source gives the mirrored result, and each component of 24 bits comes out as it would
 * alone. Results are the same on every processor. Against the same resampling in double precision,
 * PSNR of a picture with edges and grain is 58.4 dB at half the size, 57.3 at 2/3, 57.7 at 0.37,
 * 56.2 at 1.5 and 56.9 at 3.1 times the size.
 *
 * Returns, in the order of the checks:
 *
 *   KVL_E_INVALIDARG  setup is null, bytesPerPixel is neither 1 nor 3, another pointer is null or
 *                     workBytes below totalBytes
 *   KVL_E_FAIL        an axis shrinks and its side of the source rectangle is below one pixel,
 *                     as no record of KVL_SetupResizeDib has it. The work buffer is cleared
 *   KVL_E_INVALIDARG  a field differs from what set-up gives for the record's rectangles and sizes
 *                     (the strides may be longer), or the buffers do not fit in the address space
 *   KVL_S_OK          done; a resize that leaves no column or row over the source draws nothing
 *
 * With KVL_E_INVALIDARG no byte has changed. No memory is allocated.
 */
KVL_API int32_t KVL_CalcResizeDib(const ResizeSetup* setup, const uint8_t* sourceBits,
                                  uint8_t* destinationBits, uint8_t* work, uint64_t workBytes);

/* Ends a resize. Set-up holds nothing, so this does nothing. */
KVL_API void KVL_EndResizeDib(void);

/*
 * KVL_SetupResizeDib and KVL_CalcResizeDib in one call, with a work buffer of the library's. It
 * grows to the largest that was ever needed and is released when the library is unloaded or the
 * process ends; a call that needs no more allocates nothing. Calls from several threads take turns:
 * hosts that resize on several threads at once use the two phases.
 *
 * The parameters are those of the two routines; destinationRect is not changed. Returns their
 * statuses, save that KVL_E_INVALIDARG stands for KVL_S_FALSE too, and KVL_E_OUTOFMEMORY when the
 * work buffer cannot be had.
 */
KVL_API int32_t KVL_ResizeDIB_CPP(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                  const double* sourceRect,
                                  const BITMAPINFOHEADER* destinationHeader,
                                  uint8_t* destinationBits, const RECT* destinationRect,
                                  uint32_t flags);

/* KVL_ResizeDIB_CPP under a second name: 8-bit bitmaps are resized too. */
KVL_API int32_t KVL_ResizeDIB_RGB24_CPP(const BITMAPINFOHEADER* sourceHeader,
                                        const uint8_t* sourceBits, const double* sourceRect,
                                        const BITMAPINFOHEADER* destinationHeader,
                                        uint8_t* destinationBits, const RECT* destinationRect,
                                        uint32_t flags);

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

#ifdef __cplusplus
}
#endif

#endif
