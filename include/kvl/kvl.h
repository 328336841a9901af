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
 *   Called from inside a parallel region of the host's, a routine works on the calling thread alone.
 *   A host that allows a second active level (omp_set_max_active_levels) gets a team for each such
 *   call: threads that call times the team size.
 *
 * Forks (Linux)
 *   A process that has used the library may fork, from any thread and while others are in calls, and
 *   parent and child go on to use it. A fork ends the idle OpenMP threads of the forking thread, the
 *   host's own ones too where it shares the run-time; the next region starts new ones. It waits for
 *   a one-call resize that is under way, and for no other call. Calls that other threads had under
 *   way do not go on in the child.
 *   A thread that forks inside a parallel region may make calls in the child, which run on it alone,
 *   also after a region of one thread. A region of more threads cannot be left there, because the
 *   others that would have to reach its end are not in the child; that is so for writeRows and
 *   readRows of a JPEG coder, which are called from inside one. Such a child ends with _exit() or
 *   calls exec().
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
 * routine; calling it again, also on several threads at once, repeats the work and is harmless while
 * no other routine is under way.
 * Where they cannot be counted, also for want of memory, the team has one thread a logical
 * processor.
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

/*
 * The colour matrices of the conversions, one block for both directions. The caller owns it; the
 * library only reads it, and of the reserved bytes nothing. KVL_FillColorConversionParams fills it.
 *
 * From RGB to YUV, with shift 8 and rounding 128 in every block that the vector paths read too:
 *   rgbToYuv       the matrix as fractions, rows Y, U, V, columns R, G, B; not read
 *   yOffset ...    added to luma and chroma after the shift; each routine says where
 *   shift          right shift of the sums on the scalar paths
 *   rounding       added to every sum before the shift on the scalar paths
 *   chromaRounding added to the chroma sums besides, on the scalar paths
 *   rgbToYuvInt    the factors of the scalar paths, in the order of rgbToYuv
 *   rgbToYuvShort  the factors of the vector paths, in units of 1/256
 *
 * From YUV to RGB, for KVL_ConvertYUVToRgb24, whose formula tells how they act:
 *   lumaFactor     of Y, in units of 1/8192
 *   redFromV, greenFromU, greenFromV, blueFromU
 *                  factors of U and V, in units of 1/8192
 *   lumaBias       R, G and B of a pixel with Y = 128 and without colour, in units of 1/64, and 32
 *                  for rounding
 *   uCentre, vCentre
 *                  the values of U and V that mean no colour
 */
typedef struct ColorConversionParams {
  double rgbToYuv[9];
  int16_t yOffset;
  int16_t uOffset;
  int16_t vOffset;
  int32_t shift;
  int32_t rounding;
  int32_t chromaRounding;
  int32_t rgbToYuvInt[9];
  int16_t rgbToYuvShort[9];
  uint8_t reserved1[78];
  int16_t lumaFactor;
  int16_t redFromV;
  int16_t greenFromU;
  int16_t greenFromV;
  int16_t blueFromU;
  int16_t lumaBias;
  uint8_t uCentre;
  uint8_t vCentre;
  uint8_t reserved2[50];
} ColorConversionParams;

KVL_STATIC_ASSERT(sizeof(ColorConversionParams) == 288, ColorConversionParams_is_288_bytes);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, yOffset) == 72, yOffset_is_at_72);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, uOffset) == 74, uOffset_is_at_74);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, vOffset) == 76, vOffset_is_at_76);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, shift) == 80, shift_is_at_80);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, rounding) == 84, rounding_is_at_84);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, chromaRounding) == 88, chromaRounding_is_at_88);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, rgbToYuvInt) == 92, rgbToYuvInt_is_at_92);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, rgbToYuvShort) == 128, rgbToYuvShort_is_at_128);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, reserved1) == 146, reserved1_is_at_146);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, lumaFactor) == 224, lumaFactor_is_at_224);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, redFromV) == 226, redFromV_is_at_226);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, greenFromU) == 228, greenFromU_is_at_228);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, greenFromV) == 230, greenFromV_is_at_230);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, blueFromU) == 232, blueFromU_is_at_232);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, lumaBias) == 234, lumaBias_is_at_234);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, uCentre) == 236, uCentre_is_at_236);
KVL_STATIC_ASSERT(offsetof(ColorConversionParams, vCentre) == 237, vCentre_is_at_237);

/*
 * What KVL_FillColorConversionParams can fill a block for: the matrix, by its standard, and whether
 * luma runs over 16 .. 235 and chroma over 16 .. 240 (studio) or both over 0 .. 255 (full).
 */
enum { KVL_MATRIX_BT601 = 0, KVL_MATRIX_BT709 = 1, KVL_MATRIX_BT2020 = 2 };
enum { KVL_RANGE_STUDIO = 0, KVL_RANGE_FULL = 1 };

/*
 * Fills a block, reserved bytes with 0. Returns 0, or 0x80070057 (invalid argument) with the block
 * unchanged where it is null or matrix or range is none of the above. Part of this header, so that
 * a host needs no other import for it.
 *
 * From RGB to YUV, with k(R), k(G), k(B) the standard's share of each in luma, luma is
 * s * (sum of k * component) + yOffset and Cb and Cr are c / 2 * (B - luma) / (1 - k(B)) and
 * c / 2 * (R - luma) / (1 - k(R)), all times 256 and rounded to whole factors that sum to 256 * s
 * (220 or 256) for luma and to 0 for chroma, so that grey stays without colour. Studio range has
 * s = 219/255, c = 224/255 and yOffset = 16, full range s = c = 1 and yOffset = 0.
 *
 * Chroma is centred on 128 in every routine, on the scalar paths and on the vector ones. uOffset
 * and vOffset are 0, to which each vector path adds 128 of its own. The scalar paths get theirs
 * from chromaRounding, which the vector paths do not read: 128 << shift, for full range one less,
 * so that the largest chroma, 255.5, does not wrap to 0. A block with uOffset = 128 in its place
 * would be centred on 128 by KVL_ConvertRgb24ToYUY2, but not by KVL_RtyConvert, whose vector path
 * would add it to the 128 that it always adds; and one with all three 0, as the built-in blocks,
 * leaves the last pixels of a row, which no vector path takes, centred on 0.
 *
 * Full range is for KVL_ConvertRgb24ToY and KVL_RtyConvert. KVL_ConvertRgb24ToYUY2 adds 16 to luma
 * on its vector path whatever the block says, and the chroma of a saturated colour wraps there.
 */
static inline int32_t KVL_FillColorConversionParams(ColorConversionParams* params, int32_t matrix,
                                                    int32_t range) {
  /* k(R), k(G), k(B) */
  static const double shares[3][3] = {
      {0.299, 0.587, 0.114}, {0.2126, 0.7152, 0.0722}, {0.2627, 0.678, 0.0593}};
  static const int16_t toYuv[3][2][9] = {
      {{66, 129, 25, -38, -74, 112, 112, -94, -18}, {77, 150, 29, -43, -85, 128, 128, -107, -21}},
      {{47, 157, 16, -26, -86, 112, 112, -102, -10}, {54, 183, 19, -29, -99, 128, 128, -116, -12}},
      {{58, 149, 13, -31, -81, 112, 112, -103, -9}, {67, 174, 15, -36, -92, 128, 128, -118, -10}}};
  /* lumaFactor, redFromV, greenFromU, greenFromV, blueFromU, lumaBias */
  static const int16_t toRgb[3][2][6] = {
      {{9539, 13075, -3209, -6660, 16525, 8378}, {8192, 11485, -2819, -5850, 14516, 8224}},
      {{9539, 14686, -1747, -4366, 17305, 8378}, {8192, 12901, -1535, -3835, 15201, 8224}},
      {{9539, 13752, -1535, -5328, 17545, 8378}, {8192, 12080, -1348, -4681, 15412, 8224}}};
  static const ColorConversionParams zero = {{0}, 0, 0, 0, 0, 0, 0, {0}, {0}, {0},
                                             0,   0, 0, 0, 0, 0, 0, 0,   {0}};
  const int16_t* forward;
  const int16_t* backward;
  double lumaScale, chromaScale;
  int i;
  if (!params || matrix < 0 || matrix > KVL_MATRIX_BT2020 || range < 0 || range > KVL_RANGE_FULL) {
    return (int32_t)0x80070057;
  }
  forward = toYuv[matrix][range];
  backward = toRgb[matrix][range];
  lumaScale = range == KVL_RANGE_FULL ? 1.0 : 219.0 / 255.0;
  chromaScale = range == KVL_RANGE_FULL ? 1.0 : 224.0 / 255.0;
  *params = zero;
  for (i = 0; i < 3; ++i) {
    const double share = shares[matrix][i];
    params->rgbToYuv[i] = lumaScale * share;
    params->rgbToYuv[3 + i] =
        chromaScale / 2 * ((i == 2 ? 1.0 : 0.0) - share) / (1.0 - shares[matrix][2]);
    params->rgbToYuv[6 + i] =
        chromaScale / 2 * ((i == 0 ? 1.0 : 0.0) - share) / (1.0 - shares[matrix][0]);
  }
  for (i = 0; i < 9; ++i) {
    params->rgbToYuvInt[i] = forward[i];
    params->rgbToYuvShort[i] = forward[i];
  }
  params->yOffset = range == KVL_RANGE_FULL ? 0 : 16;
  params->shift = 8;
  params->rounding = 128;
  params->chromaRounding = range == KVL_RANGE_FULL ? 128 * 256 - 1 : 128 * 256;
  params->lumaFactor = backward[0];
  params->redFromV = backward[1];
  params->greenFromU = backward[2];
  params->greenFromV = backward[3];
  params->blueFromU = backward[4];
  params->lumaBias = backward[5];
  params->uCentre = 128;
  params->vCentre = 128;
  return 0;
}

/*
 * How the routines from here to KVL_RtyConvert turn RGB into YUV. There are two arithmetics, which
 * differ in places, deliberately:
 *
 *   scalar  32-bit integers that wrap. With the factors of rgbToYuvInt, by rows,
 *             y(p) = ((yR * R + yG * G + yB * B + rounding) >> shift) + yOffset
 *             u(p) = ((uR * R + uG * G + uB * B + rounding + chromaRounding) >> shift) + uOffset
 *             v(p) likewise with vOffset. Shifts are arithmetic, by the low 5 bits of `shift`.
 *   vector  16-bit integers that wrap. With the factors of rgbToYuvShort, s being the sum of a
 *           pixel's products; only what a formula names is read of the block.
 *
 * The vector arithmetic is that of whole blocks of 16 pixels from the start of a row's converted
 * span, once InitKVLWrapper has found SSSE3; the scalar one is that of the other pixels of a row,
 * and of all pixels before. Each routine states both. A width that is a multiple of 16 has blocks
 * alone.
 *
 * Two blocks are built in, for KVL_CopyRgbBmpToYUYVFrame: studio range, factors
 * trunc(256 * fraction + 0.5) with fractions of three digits, both copies alike,
 *
 *             Y                U                  V
 *   BT.601    66, 129, 25      -37, -73, 112      112, -93, -17
 *   BT.709    47, 157, 16      -25, -86, 112      112, -101, -9
 *
 * yOffset 16, shift 8, rounding 128, all else 0. Their chroma factors do not sum to 0, so that white
 * comes out with chroma 2 above the centre, and the scalar arithmetic centres their chroma on 0.
 *
 * A frame is dstSize.cy rows, or dstHeight, of |dstStride| bytes each, the first at dst; with a
 * negative stride they walk towards lower addresses. `area` is the size of the rectangle that is
 * converted, dstPos where its top left pixel comes to lie in the frame and srcPos which pixel of the
 * source that is, all in pixels, rows counted from the top. Frame and source must not overlap.
 *
 * The frame around the rectangle becomes black, but not always, deliberately:
 *
 *   above and below      only where dstPos.y > 0, both together: the dstPos.y rows above and those
 *                        from dstPos.y + area.cy to the end. Place the rectangle in row 0 and
 *                        neither is touched
 *   left and right of    only where there is a left margin, both together. In 4:2:2 both end at
 *   the rectangle's rows whole pairs of pixels, and there is a left margin from dstPos.x = 2 on; in
 *                        the RGB frame from 1 on
 *
 * Black in 4:2:2 is luma 15 and chroma 128, not luma 16, and is written in words of 4 bytes: what
 * remains of a margin, or with a positive stride of all the rows above or below as a whole, keeps
 * its bytes. In the RGB frame it is 0.
 *
 * What does not fit is left out. No byte outside the frame is written and none outside the bitmap is
 * read, whatever the position and the area: rows of the rectangle outside the frame are skipped, and
 * of the others those pixels (in 4:2:2, pairs) keep their bytes that reach over the end of a frame's
 * row, or whose source lies outside the bitmap. Black rows and margins are cut at the frame's edges.
 * An area of 0 or less has no pixels and still has its margins; a 4:2:2 rectangle 0 pixels wide or
 * less has the pairs of its odd edges all the same, that of the left one where it is and that of the
 * right one in the next whole pair. No memory is allocated.
 */

/*
 * Converts a rectangle of raw 24-bit rows into a YUY2 frame (Y0 U Y1 V).
 *
 *   src, srcStride  bytes from row to row. Positive: src is the lowest address and the rows are
 *                   stored bottom-up, so that the top one is (srcSize.cy - 1) * srcStride further.
 *                   0 or negative: src is the top row and row r lies at src + r * srcStride. (Either
 *                   way rows lie bottom-up in memory. For a source that is stored top-down, give the
 *                   frame's last row as dst and a negative dstStride, and count rows from there.)
 *                   A row has |srcStride| / 3 pixels; with 0 all rows are the one at src and may be
 *                   of any length
 *   srcSize         only cy, the number of rows, is read
 *   dst, dstStride, dstSize, srcPos, dstPos, area
 *                   as above; of dstSize only cy is read
 *   params          the colour matrix
 *
 * For the pixels a and b of each pair, columns 2k and 2k + 1 of the frame:
 *
 *   scalar  Y0, Y1 = y(a), y(b);  U = (u(a) + u(b) + 1) / 2, halves cut towards 0, V likewise; the
 *           low 8 bits of each, without clamping. The pairs of which only one pixel lies in the
 *           rectangle are always scalar, with black (0, 0, 0) as the other
 *   vector  Y = ((s + 128) >> 8) + 16;  U = ((((s(a) + 128) >> 8) + ((s(b) + 128) >> 8)) >> 1) + 128
 *           with the sums of U, V likewise; then the 16-bit words Y0 + 256 * U, Y1 + 256 * V. A
 *           luma sum of 32640 .. 61311, that of a bright pixel, makes Y negative, and the chroma
 *           byte above it one less. Offsets, rounding and shift are not read
 *
 * Chroma is centred on 128 everywhere, save for that carry, with a studio block from
 * KVL_FillColorConversionParams. Planes from KVL_RtyConvert are free of the carry.
 *
 * Changes nothing when a pointer is null, srcSize.cy or dstSize.cy is 0 or negative, dstStride is 0,
 * or the rows of either side do not fit in the address space.
 */
KVL_API void KVL_ConvertRgb24ToYUY2(const uint8_t* src, int32_t srcStride, SIZE srcSize,
                                    uint8_t* dst, int32_t dstStride, SIZE dstSize, POINT srcPos,
                                    POINT dstPos, SIZE area, const ColorConversionParams* params);

/*
 * Converts raw 24-bit rows into a plane of luma.
 *
 *   src, srcStride  the first row and the bytes from row to row, of either sign or 0
 *   dst, dstStride  the same of the plane: `width` bytes of each row are written, padding never
 *   width, height   in pixels. Rows keep their order in memory: nothing is flipped and there are no
 *                   margins
 *   params          the colour matrix
 *
 *   scalar  clamp(y(p), 0, 255)
 *   vector  min(255, (min(65535, s + 128) >> 8) + (yOffset & 255)), s taken as unsigned
 *
 * Both are the same where the two copies of the factors are, no sum leaves 0 .. 65535, rounding is
 * 128, shift 8 and yOffset 0 .. 255: with every block of KVL_FillColorConversionParams.
 *
 * Changes nothing when a pointer is null, width or height is 0 or negative, |dstStride| is less than
 * width and there is more than one row, or the rows do not fit in the address space. No memory is
 * allocated.
 */
KVL_API void KVL_ConvertRgb24ToY(const uint8_t* src, int32_t srcStride, uint8_t* dst,
                                 int32_t dstStride, int32_t width, int32_t height,
                                 const ColorConversionParams* params);

/*
 * Copies a rectangle of a 24- or 32-bit bitmap into a frame of 4 bytes a pixel: blue, green, red
 * and, from 24 bits, 0; from 32 bits all four bytes.
 *
 *   bmp        header of a packed bitmap, which may lie at any address: the rows lie right behind it,
 *              after biSize bytes (40 where biSize is 0) and 12 more for BI_BITFIELDS, else
 *              4 * biClrUsed
 *   srcPos     its x counts 3 bytes a pixel in every bitmap, deliberately: a rectangle of a 32-bit
 *              bitmap starts at byte 3 * x, which is a pixel's only for multiples of 4
 *              (3 * 4 = 12 bytes are 3 pixels of 4 bytes)
 *   dst, dstPos, dstStride, dstHeight, area
 *              as above
 *
 * A bitmap of another depth only has its margins and black rows written. Changes nothing when a
 * pointer is null, biWidth is 0 or negative, biHeight is 0, the row size is 0 (a biCompression that
 * the bit count does not go with), dstStride is 0, dstHeight is 0 or negative, or the rows of either
 * side do not fit in the address space.
 */
KVL_API void KVL_CopyRgbBmpToRGBFrame(const BITMAPINFOHEADER* bmp, POINT srcPos, uint8_t* dst,
                                      POINT dstPos, int32_t dstStride, int32_t dstHeight,
                                      SIZE area);

/*
 * Converts a rectangle of a packed bitmap into a UYVY frame (U Y0 V Y1, despite the name).
 *
 *   bmp        as for KVL_CopyRgbBmpToRGBFrame; a pixel has biBitCount / 8 bytes, of which the first
 *              three are blue, green, red
 *   dst, dstSize, dstStride, srcPos, dstPos, area
 *              as above; of dstSize only cy is read
 *   useBt601   0 for the built-in block of BT.709, anything else for that of BT.601
 *
 * Pairs follow the formulas of KVL_ConvertRgb24ToYUY2, with this of the words in the vector
 * arithmetic: of the 16 bytes of 8 pixels the 16-bit words are U0 or V0 + 256 * Y, and a negative Y
 * has 255 added to the word after it, which makes the next chroma one less and, where that was not
 * 0, the next luma one more; past the eighth pixel it is lost.
 *
 * The scalar arithmetic centres the chroma on 0 here, the vector one on 128: for chroma centred on
 * 128 everywhere give an even dstPos.x and areas whose width is a multiple of 16, after
 * InitKVLWrapper. A frame of another width can be made of two such rectangles, the second's dst
 * moved to the right instead of its dstPos.x, so that it has no margins.
 *
 * With fewer than 24 bits a pixel only margins and the pairs of an odd left or right edge are
 * written, from the three bytes at their pixel, bytes past the bitmap's last counting as 0. With
 * more than 32, blocks take pixels of 4 bytes. Changes nothing in the cases in which
 * KVL_CopyRgbBmpToRGBFrame does not.
 */
KVL_API void KVL_CopyRgbBmpToYUYVFrame(const BITMAPINFOHEADER* bmp, POINT srcPos, uint8_t* dst,
                                       SIZE dstSize, int32_t dstStride, POINT dstPos, SIZE area,
                                       uint8_t useBt601);

/*
 * What KVL_RtyConvert is to do. The library only reads it, and the reserved bytes not at all.
 * The bytes from rgbToYuv to rgbToYuvShort are the first 146 of a ColorConversionParams;
 * KVL_SetRtyConvertColors copies them.
 */
typedef struct RtyConvertRecord {
  uint32_t flags; /* KVL_RTY_INTERLACED, KVL_RTY_BOTTOM_UP; others are not looked at */
  uint32_t reserved1;
  uint32_t mode;     /* KVL_RTY_420_BOX and so on */
  uint32_t width;    /* in pixels */
  uint32_t height;   /* in pixels */
  int32_t srcStride; /* bytes from row to row of the source, of either sign */
  double rgbToYuv[9];
  int16_t yOffset;
  int16_t uOffset;
  int16_t vOffset;
  int32_t shift;
  int32_t rounding;
  int32_t chromaRounding;
  int32_t rgbToYuvInt[9];
  int16_t rgbToYuvShort[9];
  uint8_t* scratchA; /* 2 * scratchRowSize bytes for each thread of the team */
  uint8_t* scratchB; /* the same */
  uint8_t reserved2[12];
  uint32_t uPlaneOffset; /* bytes from dst to the first row of Cb */
  uint32_t vPlaneOffset; /* and of Cr */
  uint32_t yStride;      /* bytes from row to row */
  uint32_t uStride;
  uint32_t vStride;
  uint32_t scratchRowSize; /* at least width, in bytes */
  uint8_t reserved3[84];
} RtyConvertRecord;

KVL_STATIC_ASSERT(sizeof(RtyConvertRecord) == 312, RtyConvertRecord_is_312_bytes);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, mode) == 8, mode_is_at_8);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, width) == 12, width_is_at_12);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, height) == 16, height_is_at_16);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, srcStride) == 20, srcStride_is_at_20);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, rgbToYuv) == 24, rty_rgbToYuv_is_at_24);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, yOffset) == 96, rty_yOffset_is_at_96);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, shift) == 104, rty_shift_is_at_104);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, rounding) == 108, rty_rounding_is_at_108);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, chromaRounding) == 112, rty_chromaRounding_is_at_112);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, rgbToYuvInt) == 116, rty_rgbToYuvInt_is_at_116);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, rgbToYuvShort) == 152, rty_rgbToYuvShort_is_at_152);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, scratchA) == 176, scratchA_is_at_176);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, scratchB) == 184, scratchB_is_at_184);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, uPlaneOffset) == 204, uPlaneOffset_is_at_204);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, vPlaneOffset) == 208, vPlaneOffset_is_at_208);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, yStride) == 212, yStride_is_at_212);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, uStride) == 216, uStride_is_at_216);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, vStride) == 220, vStride_is_at_220);
KVL_STATIC_ASSERT(offsetof(RtyConvertRecord, scratchRowSize) == 224, scratchRowSize_is_at_224);

enum { KVL_RTY_INTERLACED = 1, KVL_RTY_BOTTOM_UP = 8 };
enum { KVL_RTY_420_BOX = 0, KVL_RTY_422 = 1, KVL_RTY_444 = 2, KVL_RTY_420_VERTICAL = 3 };

/* Copies a block's RGB-to-YUV half into the record. Part of this header, as the filler is. */
static inline void KVL_SetRtyConvertColors(RtyConvertRecord* record,
                                           const ColorConversionParams* params) {
  int i;
  for (i = 0; i < 9; ++i) {
    record->rgbToYuv[i] = params->rgbToYuv[i];
    record->rgbToYuvInt[i] = params->rgbToYuvInt[i];
    record->rgbToYuvShort[i] = params->rgbToYuvShort[i];
  }
  record->yOffset = params->yOffset;
  record->uOffset = params->uOffset;
  record->vOffset = params->vOffset;
  record->shift = params->shift;
  record->rounding = params->rounding;
  record->chromaRounding = params->chromaRounding;
}

/*
 * Converts raw 24-bit rows into planes of Y, Cb and Cr in one buffer.
 *
 *   record  as above. With KVL_RTY_BOTTOM_UP the first row is src + (height - 1) * srcStride and
 *           they go on by -srcStride
 *   src     the source's row 0; must not overlap the planes
 *   dst     the plane of Y, `height` rows; Cb and Cr lie at their offsets. Nothing but the samples
 *           named here is written, padding never
 *
 * Returns 1 when height is 0 or the record null, else 0, also where nothing was done.
 *
 *   scalar  the low 8 bits of y(p), u(p), v(p)
 *   vector  Y   min(255, (min(65535, s + 128) >> 8) + (yOffset & 255)), s taken as unsigned
 *           Cb  clamp((t >> 8) + uOffset + 128, 0, 255), t being s + 128, or s - 128 where s is
 *               negative, saturated at 16 signed bits; Cr likewise with vOffset
 *
 * so that the vector arithmetic rounds chroma away from 0 and adds a 128 that the scalar one lacks.
 * A block from KVL_FillColorConversionParams centres both on 128.
 *
 * Chroma, with c the rows of chroma at full width and n = (width + 1) / 2:
 *
 *   KVL_RTY_444           height rows of c
 *   KVL_RTY_422           height rows of the n even columns: the odd ones are not averaged in,
 *                         deliberately
 *   KVL_RTY_420_BOX       for each pair of rows a and b, with a vector arithmetic in whole blocks of
 *                         16 outputs (a[2i] + a[2i+1] + b[2i] + b[2i+1] + 2) >> 2, else
 *                         (a[2i] + b[2i] + 1) >> 1. With an odd width whose n is a multiple of 16
 *                         the last output takes for a[width] the byte of the scratch row after
 *                         those of this call, or a[width - 1] where scratchRowSize is width
 *   KVL_RTY_420_VERTICAL  (a[2i] + b[2i] + 1) >> 1
 *
 * In the 4:2:0 modes there are (height + 2) / 4 + height / 4 rows of chroma and as many pairs of
 * rows. Progressive, pair k is of the rows 2k and 2k + 1; interlaced, of the rows 4 * (k / 2) + k % 2
 * and the second after it, so that each field stays by itself. Rows that make no pair are not
 * converted, nor is their luma written: progressive, the last of an odd height; interlaced, the row
 * height - 1 where height % 4 is 1 or 2, and height - 2 where it is 3 (give heights that are
 * multiples of 4). Where it is 2, the last pair of the first field has one row alone, which counts
 * as its own partner: nothing past `height` rows is read or written.
 *
 * Pairs are always srcStride * 4 apart in the source, also with KVL_RTY_BOTTOM_UP, deliberately:
 * that then starts at the row height - 1, goes up within a pair and down from pair to pair, and in
 * 4:2:0 reads rows as far as height - 1 + 4 * ((height + 2) / 4 - 1), counted from src, which the
 * caller must own. To flip a picture in these modes leave the flag out, and give the address of the
 * last row and a negative srcStride.
 *
 * The scratch areas hold a row of Cb and one of Cr for each of the KVL_GetNumOpenMPThreads() threads
 * and what they hold after the call is of no meaning. 4:4:4 needs none, 4:2:2 only the first
 * 2 * scratchRowSize bytes of scratchA. The 4:2:0 modes share their pairs out over the team; 4:4:4
 * and 4:2:2 run on the calling thread. No memory is allocated.
 *
 * Changes nothing when another pointer is null, too, the mode is none of these, width or height is
 * above 2147483647, a stride is less than its samples where there is more than one row,
 * scratchRowSize is less than width or a scratch area null where one is needed, or the rows do not
 * fit in the address space.
 */
KVL_API int32_t KVL_RtyConvert(const RtyConvertRecord* record, const uint8_t* src, uint8_t* dst);

/*
 * DirectShow's media subtypes, which name the layout of a frame to the routines below. A size is in
 * pixels.
 *
 *   YUY2, UYVY, YVYU  packed: four bytes for two pixels, in the order of the name, Y0 U Y1 V for
 *                     YUY2
 *   YV12, YV16, YV24  the plane of Y, then that of V, then that of U
 *   IYUV, I420        the same layout as YV12, but U before V
 *   NV12              the plane of Y, then one of pairs U V
 *   RGB24, RGB32      pixels of blue, green, red and, in RGB32, a fourth byte
 *   RGB8              indices of one byte
 *
 * Planar layouts are tight, and the strides given with them are not looked at: with W the width
 * rounded up to even, a row of Y has W bytes, one of V or U has W / 2, in YV24 W; NV12's pairs have
 * W bytes. YV16 and YV24 have as many rows of chroma as of Y, the others half as many, rounded up.
 */
#define KVL_FOURCC_SUBTYPE(a, b, c, d)                                                       \
  {                                                                                          \
    (uint32_t)(a) | (uint32_t)(b) << 8 | (uint32_t)(c) << 16 | (uint32_t)(d) << 24, 0, 16, { \
      0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71                                         \
    }                                                                                        \
  }
#define KVL_RGB_SUBTYPE(first)                       \
  {                                                  \
    (first), 0x524F, 0x11CE, {                       \
      0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70 \
    }                                                \
  }

static const GUID KVL_SUBTYPE_YUY2 = KVL_FOURCC_SUBTYPE('Y', 'U', 'Y', '2');
static const GUID KVL_SUBTYPE_UYVY = KVL_FOURCC_SUBTYPE('U', 'Y', 'V', 'Y');
static const GUID KVL_SUBTYPE_YVYU = KVL_FOURCC_SUBTYPE('Y', 'V', 'Y', 'U');
static const GUID KVL_SUBTYPE_YV12 = KVL_FOURCC_SUBTYPE('Y', 'V', '1', '2');
static const GUID KVL_SUBTYPE_IYUV = KVL_FOURCC_SUBTYPE('I', 'Y', 'U', 'V');
static const GUID KVL_SUBTYPE_I420 = KVL_FOURCC_SUBTYPE('I', '4', '2', '0');
static const GUID KVL_SUBTYPE_NV12 = KVL_FOURCC_SUBTYPE('N', 'V', '1', '2');
static const GUID KVL_SUBTYPE_YV16 = KVL_FOURCC_SUBTYPE('Y', 'V', '1', '6');
static const GUID KVL_SUBTYPE_YV24 = KVL_FOURCC_SUBTYPE('Y', 'V', '2', '4');
static const GUID KVL_SUBTYPE_RGB24 = KVL_RGB_SUBTYPE(0xE436EB7Du);
static const GUID KVL_SUBTYPE_RGB32 = KVL_RGB_SUBTYPE(0xE436EB7Eu);
static const GUID KVL_SUBTYPE_RGB8 = KVL_RGB_SUBTYPE(0xE436EB7Au);

/*
 * Halves a frame in width and height, in its own layout.
 *
 *   subtype            YV12, YV16, YV24, NV12, YUY2, RGB24, RGB32 or RGB8, as above
 *   src, srcSize       the source frame, read only, and its size in pixels
 *   srcStride          bytes from row to row of a layout that is not planar. 0 or less stands for
 *                      the packed row of the width w: (2 * w + 3) & ~3 for YUY2, (3 * (w + 1)) & ~3
 *                      for RGB24, 4 * w for RGB32, (w + 3) & ~3 for RGB8
 *   dst, dstStride, dstSize
 *                      the same for the destination. The two frames must not overlap
 *   flags              1: interlaced; 2: average; others are not looked at
 *
 * Returns 0; 0x80070057 (invalid argument) if a pointer is null, a size is 0 or negative, or a
 * frame of that size does not fit in the address space; 0x80004001 (not implemented) for any other
 * subtype. Then no byte has changed.
 *
 * The result has R = min(dstSize.cy, srcSize.cy / 2) rows, in a plane of chroma min(its rows in the
 * destination, half of its rows in the source). Row j is made of the source rows 2 * j and
 * 2 * j + 1; interlaced, of the row 4 * (j / 2) + j % 2 and the second after it, so that each field
 * stays by itself. Interlaced rows come two at a time: the last of an odd number is left as it was.
 *
 * An output is made of a0, a1 in the first row and b0, b1 below them, in chroma and RGB of the same
 * component. It is one of
 *
 *   down    (a0 + a1 + b0 + b1) >> 2
 *   up      up1(up1(a0, b0), up1(a1, b1)) with up1(x, y) = (x + y + 1) >> 1
 *   sample  a0
 *
 * and with the flag 2 in every layout, without it in all but the planes of YV12, YV16, YV24, the Y
 * of NV12, and RGB8, which take samples, the average:
 *
 *   planes, RGB8   up in whole blocks of 16 outputs from the start of a row, with SSSE3
 *   NV12's pairs   up in whole blocks of 8 pairs
 *   YUY2           up in whole blocks of 4 words (8 pixels). Word j is made of the source words
 *                  2 * j and 2 * j + 1: its first Y of those of the former, its second of those
 *                  of the latter, U and V of both
 *   RGB32          up in whole blocks of 4 pixels
 *   RGB24          never up
 *
 * and down for the rest of the row, and everywhere before InitKVLWrapper. (1 and 2 one above the
 * other average to 2 in a block and to 1 after the last; a width of the result that is a multiple
 * of 16, in YV12 and YV16 of 32, has blocks alone.)
 *
 * Outputs in a row, and what else is written:
 *
 *   planes of Y    dstSize.cx, and 0 in the rest of the row
 *   chroma         the whole row; in YV24 dstSize.cx, and 127 in the rest
 *   RGB8           min(dstSize.cx, dstStride), and 0 up to the stride
 *   RGB24, RGB32   min(dstSize.cx, srcSize.cx / 2) pixels, and 0 up to the stride
 *   YUY2           half of that in words, rounded down, then 0 and 255 in turn up to the stride
 *
 * Rows after the result are filled up to the stride: Y, RGB with 0, chroma with 127. In NV12 the
 * chroma has (R + 1) / 2 rows; where the source has an odd number of them and the last of these
 * lacks its pair, it is made of the source's last row and itself. (In YV12 that row is 127: give it
 * a height that is a multiple of 4.)
 *
 * In planes, and RGB8, the number of outputs does not depend on the source's width. Samples past a
 * row's end are those that follow in memory, of the next row or plane, and after the frame's last
 * byte (in RGB8 that of its last row's padding) that byte (in pairs, that pair) over and over. So it
 * is with the chroma of a source width that is even, but no multiple of 4: its last output sees one
 * sample too far. Give widths that are multiples of 4. The other layouts are cut to what both
 * strides hold. Nothing outside the source's srcSize.cy rows is read, and nothing outside the
 * destination's dstSize.cy rows written.
 *
 * YUY2, RGB24 and RGB32 share their rows out over the team; the others run on the calling thread.
 * No memory is allocated.
 */
KVL_API int32_t KVL_ShrinkToHalf(const GUID* subtype, const uint8_t* src, int32_t srcStride,
                                 SIZE srcSize, uint8_t* dst, int32_t dstStride, SIZE dstSize,
                                 uint32_t flags);

/*
 * Copies one field of a bitmap into another: row 2 * k of the source to row 2 * k of the
 * destination for k = 0 .. biHeight / 2 - 1, or with secondField row 2 * k + 1. Called twice, with
 * the fields of two frames, it weaves them into one.
 *
 *   bmp          the size and format of both; its pixels are not looked at
 *   dst, src     first rows in memory, padded to 4 bytes; must not overlap
 *   secondField  0 for the rows 0, 2, 4 ... in memory, anything else for 1, 3, 5 ...
 *
 * Whole rows are copied, padding included; the other rows stay as they were, and so does the last
 * row of an odd height. Changes nothing when a pointer is null, biHeight is 1, 0 or negative
 * (bitmaps that are stored top-down must be given with a positive height), the row size is 0 or the
 * rows do not fit in the address space. No memory is allocated.
 */
KVL_API void KVL_VoeCombineHalfFramesLpbi(const BITMAPINFOHEADER* bmp, uint8_t* dst,
                                          const uint8_t* src, int32_t secondField);

/*
 * Converts a YUV frame to a 24-bit bitmap of the same size.
 *
 *   subtype     YUY2, UYVY, YVYU, YV12, IYUV, I420, NV12, YV16 or YV24, as above
 *   src, size   the source frame, read only, and its size in pixels; an odd width has a whole word
 *               or chroma sample for its last pixel
 *   srcStride   bytes from row to row of a packed layout; 0 or less stands for
 *               (2 * width + 3) & ~3. Planar layouts are tight and do not look at it
 *   dst         the lowest address of the bitmap; must not overlap the source
 *   dstStride   bytes from row to row of the bitmap. Positive: its rows are stored bottom-up, as a
 *               DIB's with a positive biHeight. Negative: top-down, the same distance apart. 0:
 *               bottom-up, (3 * width + 3) & ~3 apart. Padding stays as it was
 *   params      of which only the fields from lumaFactor on are read
 *
 * Returns 0; 0x80070057 (invalid argument) if a pointer is null, width or height is 0 or negative,
 * a stride is shorter than a row, a frame does not fit in the address space, or lumaFactor is 0, as
 * in a block that only holds the other direction; 0x80004001 (not implemented) for any other
 * subtype. Then no byte has changed.
 *
 *   p(x, f)  = (x * f + 64) >> 7
 *   luma     = s(p(Y - 128, lumaFactor) + lumaBias)
 *   u, v     = U - uCentre, V - vCentre, taken modulo 256 into -128 .. 127
 *   R        = clamp(s(luma + p(v, redFromV)) >> 6)
 *   G        = clamp(s(luma + s(p(u, greenFromU) + p(v, greenFromV))) >> 6)
 *   B        = clamp(s(luma + p(u, blueFromU)) >> 6)
 *
 * with arithmetic shifts, s() saturating at 16 signed bits and clamp() at 0 and 255. A factor of
 * -32768 counts as -32767. The results are the same on every processor.
 *
 * Pixels that share a chroma sample all take it as it is: two in a row (4:2:2), two in each of two
 * rows (4:2:0). That is exact for chroma sited in the middle of them, as JPEG and MPEG-1 have it;
 * for chroma sited on the left pixel, as MPEG-2 and later have it, colour moves right by half a
 * pixel. uCentre = vCentre = 0 reads chroma that is centred on 0.
 *
 * Largest errors with the blocks of KVL_FillColorConversionParams, in levels: of any Y, U, V from
 * the exact value, before that is rounded; and of any R, G, B that KVL_RtyConvert turns into 4:4:4,
 * by its scalar and by its vector arithmetic, and this routine back:
 *
 *                       of a code   there and back, scalar   vector
 *   BT.601   studio         0.527                        3        4
 *            full           0.519                        2        4
 *   BT.709   studio         0.526                        3        4
 *            full           0.519                        2        4
 *   BT.2020  studio         0.529                        3        4
 *            full           0.519                        2        4
 *
 * No memory is allocated.
 */
KVL_API int32_t KVL_ConvertYUVToRgb24(const GUID* subtype, const uint8_t* src, int32_t srcStride,
                                      SIZE size, uint8_t* dst, int32_t dstStride,
                                      const ColorConversionParams* params);

/* ---- Alpha and colour -------------------------------------------------------------------- */

/*
 * Premultiplication of the colour of a 24-bit image by an alpha plane of 8 bits, in place, and its
 * reverse. The colour has 3 bytes a pixel, the plane one: 0 is transparent, 255 opaque. Rows are
 * taken in memory order, so both must be stored the same way up.
 *
 * With SSSE3, known from InitKVLWrapper on, each row's whole blocks of 16 pixels, counted from its
 * start, follow the block formula; the up to 15 pixels that are left, and without SSSE3 every
 * pixel, follow the pixel formula. Divisions truncate. Each colour byte x with its pixel's alpha a
 * becomes
 *
 *   premultiply   pixels  (x * a + 127) / 255, the exact product rounded to nearest
 *                 blocks  ((x * a + 127) * 257) >> 16
 *
 * The two differ in 128 of the 65,536 pairs, where blocks give one less: 0 for (x, a) = (1, 128) or
 * (8, 16), 4 for (7, 164). A row whose width is below 16 has no blocks.
 *
 *   reverse       pixels  min(255, (x * 255 + a / 2) / a); a pixel of alpha 0 or 255 stays as it is
 *                 blocks  with R = (65536 + a / 2) / a, or 65535 for a = 0 and a = 1, and
 *                         h = (R * x) >> 8: h up to 255, 255 up to 32767, 0 above.
 *                         A block whose alphas are all 0 or all 255 stays as it is.
 *
 * Blocks so approximate 256 * x / a (x = 100, a = 128 gives 200 and not 199), and in a block that
 * mixes alphas a pixel of alpha 0 or 1 becomes 255 for x in 1 .. 128 and 0 above: colour under an
 * alpha of 0 is not kept, and whoever wants it kept saves it. Nothing premultiplied is hurt: there
 * x is at most a.
 *
 *   colour, colourBits   input and result; must not overlap the alpha rows
 *   alpha, alphaBits     the plane, read only
 *   colourStride,
 *   alphaStride          bytes from one row to the next in memory; may be 0 or negative, and rows
 *                        that overlap are done one after the other
 *   width, lineCount     in pixels and rows
 *
 * Written are the width * 3 colour bytes of each row, bytes of padding never. The forms that take
 * headers have width = biWidth and lineCount = |biHeight| of the colour header, and the row sizes
 * of the two headers, biWidth * biBitCount bits rounded up to 4 bytes. Nothing else of the alpha
 * header is looked at: it is for the host to see that every row has width alphas, and that the
 * colour header has 24 bits or more, because rows of fewer overlap and the last one reaches beyond
 * them.
 *
 * Changes nothing when a pointer is null, width or lineCount is below 1, or the rows do not fit in
 * the address space; in the header forms also when biHeight is -2^31 or a row size is 0: biWidth is
 * 0 or negative, biBitCount is 0, or biCompression is not one that has that bit count.
 *
 * These four work on the calling thread alone; a host that wants more splits the rows between its
 * own. No memory is allocated.
 */
KVL_API void KVL_PremultiplyAlpha(const BITMAPINFOHEADER* colourHeader, uint8_t* colourBits,
                                  const BITMAPINFOHEADER* alphaHeader, const uint8_t* alphaBits);
KVL_API void KVL_PremultiplyAlphaLines(uint8_t* colour, int32_t colourStride, const uint8_t* alpha,
                                       int32_t alphaStride, int32_t width, int32_t lineCount);
KVL_API void KVL_ReverseAlphaPremul(const BITMAPINFOHEADER* colourHeader, uint8_t* colourBits,
                                    const BITMAPINFOHEADER* alphaHeader, const uint8_t* alphaBits);
KVL_API void KVL_ReverseAlphaPremulLines(uint8_t* colour, int32_t colourStride,
                                         const uint8_t* alpha, int32_t alphaStride, int32_t width,
                                         int32_t lineCount);

/*
 * Tints a 24-bit image in place: each channel is pulled towards 0 or 255 by an amount of its own,
 * then the pixel's luminance is restored.
 *
 *   header, bits       the image; rows of biWidth pixels of 3 bytes, the row size in bytes being
 *                      biWidth * biBitCount bits rounded up to 4 bytes
 *   red, green, blue   amounts s: negative towards 0, positive towards 255, 1 and -1 the strongest
 *                      meant. Any value is taken; from 255/220 on channels turn negative.
 *   preserveByRatio    0: the luminance is restored by adding what it lost; else by scaling, which
 *                      keeps black black
 *
 * With SSSE3, known from InitKVLWrapper on, each row's whole blocks of 16 pixels follow the first
 * column, in single precision from left to right, each operation rounded; the pixels that are left,
 * and without SSSE3 every pixel, follow the second, in 32-bit integers that wrap, divisions
 * truncated. [x] is the integer part, and -2^31 where x is not a number or does not fit. v stands
 * for each of R, G and B with its own s.
 *
 *       blocks                                      pixels
 *   Y   0.587 * G + 0.299 * R + 0.114 * B           19595 * R + 38470 * G + 7471 * B
 *   v'  v * a + b                                   v * k / 256 + c, or v where s = 0
 *       a = 1 - |s| * 0.8627451                     k = [255 - |s| * 220]
 *       b = (1 - a) * 255 where s > 0, else 0       c = 255 - k where s > 0, else 0
 *   Y'  as Y, of R', G' and B'                      as Y, of R', G' and B'
 *
 *   by ratio (the quotient is in single precision in both)
 *       v" = v' * (Y / Y')                          v" = [v' * (Y / Y')]
 *   by difference
 *       R" = R' + (Y - Y'), B" = B' + (Y - Y')      R" = R' + ((Y - Y') >> 16), B" likewise
 *       G" = (Y - 0.299 * R" - 0.114 * B")          G" = (Y - 7471 * B" - 19595 * R") / 38470
 *            * 1.7035775
 *
 * The result is v" clamped to 0 .. 255, in blocks rounded to nearest with halves to the even one,
 * so the two may differ by one. By ratio, a pixel that the shift has left without luminance
 * (Y' = 0) becomes 0 where it follows the second column; in a block, its channels become 255 where
 * v' is above 0, unless Y is 0 too, and 0 elsewhere.
 *
 * Changes nothing when a pointer is null, all amounts are 0, biHeight is 0 or negative (an image
 * that is stored top-down is not shifted), the row size is 0 (biWidth is 0 or negative, biBitCount
 * is 0, or biCompression is not one that has that bit count), or the rows do not fit in the address
 * space. A biBitCount below 24 makes rows overlap, and the last one reaches beyond them: such rows
 * are done one after the other. Row padding stays as it was. No memory is allocated.
 */
KVL_API void KVL_ApplyRGBColorShift(const BITMAPINFOHEADER* header, uint8_t* bits, float red,
                                    float green, float blue, int32_t preserveByRatio);

/*
 * Colour key: writes a mask that tells for each pixel of a 24-bit image how far it is from a key
 * colour, and takes the key's hue out of what is not transparent.
 *
 *   mask, maskStride              one byte a pixel: 0 where it matches the key, 255 where it is far
 *   image, imageStride            rows of B, G, R; changed in place. Must not overlap the mask
 *   width, height                 in pixels and rows
 *   keyRed, keyGreen, keyBlue     the key colour, 0 .. 255 each
 *   lowTolerance, highTolerance   in per cent of the distance between black and white: pixels up to
 *                                 the low one are transparent, from the high one on opaque
 *   spillStrength                 in per cent, taken as a signed integer: 100 takes all saturation
 *                                 out of the key's hue and ever less out of those up to 90 degrees
 *                                 away. Values below and above 100 do less, alike for an equal
 *                                 difference; 0 and 200 leave the image as it is
 *
 * Strides are in bytes, from one row to the next in memory; they may be 0 or negative, and rows
 * that overlap are done one after the other. Divisions truncate towards zero; [x] is the integer
 * part, and -2^31 where it does not fit.
 *
 *   Mask        low = [lowTolerance^2 * 0.0001 * 3.0 * 255.0 * 255.0 + 0.5], high likewise, in
 *               double precision from left to right; d2 = the sum of the squared differences from
 *               the key in B, R and G. alpha = 0 where d2 <= low, else (d2 - low) * 255 /
 *               (high - low) where d2 < high, else 255.
 *   Hue         with max, min and d = max - min of R, G and B: 0 where d = 0; (G - B) * 60 / d
 *               where R = max, else (R - G) * 60 / d + 240 where G is not max, else
 *               (B - R) * 60 / d + 120; a negative one plus 360.
 *   Spill       with k = |spillStrength - 100| * 1.5 / 100 and, for each hue h of 0 .. 359,
 *               v = sin((h - hue of the key + 90) * pi / 180) * 1.5 - k, in double precision,
 *               f(h) = 16384 where v <= 0, 0 where v >= 1, else [(1 - v) * 16384 + 0.5].
 *               Where alpha is above 0 and f of the pixel's hue below 16384, with
 *               L = (max + min) >> 1, S = d * 255 / (max + min) for L <= 128, else
 *               d * 255 / (510 - max - min), or 0 where d = 0, and T = (f * S) >> 14:
 *               q = T + L - T * L / 255 for L > 128, else (T + 255) * L / 255; p = 2 * L - q;
 *               R, G and B = channel(hue + 120), channel(hue) and channel(hue - 120), and all
 *               three L where T = 0.
 *   channel(h)  with h less 360 above 360 and plus 360 below 0: p + (q - p) * h / 60 for h < 60, q
 *               for h < 180, p + (q - p) * (240 - h) / 60 for h < 240, else p.
 *
 * Other keys and tolerances are taken too. Their integers wrap at 32 bits, the mask then being the
 * low byte of alpha, and no tolerance above 100 per cent is of use.
 *
 * Changes nothing when a pointer is null, width or height is below 1, or the rows do not fit in the
 * address space. Bytes between the rows stay as they were. No memory is allocated.
 */
KVL_API void KVL_CalcAlphaBmpForMix_ColorBox(uint8_t* mask, int32_t maskStride, uint8_t* image,
                                             int32_t imageStride, int32_t width, int32_t height,
                                             int32_t keyRed, int32_t keyGreen, int32_t keyBlue,
                                             int32_t lowTolerance, int32_t highTolerance,
                                             uint32_t spillStrength);

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

/*
 * Grey images and block motion search: for a rectangle of grey image A, the displacement at which
 * grey image B matches best. Two families of searches do it, each with an exhaustive and an
 * iterative form:
 *
 *   KVL_CalcCorrelationNormal, ...Iterativ  sums of squared differences, any stride, optional mask
 *   KVL_CalcCorrelationNorm, ...It, ...Sub  sums of positive differences on packed images, with the
 *                                           geometry in a CorrelationOptions; refinement to
 *                                           fractions of a pixel
 *
 * A score is a negated sum: larger is better and 0 the best possible.
 */

/*
 * A displacement in pixels: what A has in column c of memory row r is looked for in column c + x of
 * row r - y of B. With rows stored bottom-up, what moved right and down on the screen has a positive
 * x and y.
 */
typedef struct CorrelationVector {
  double x;
  double y;
} CorrelationVector;

/*
 * The host's settings. Bytes named reserved are neither read nor written, and a host's record may go
 * on after the last member.
 */
typedef struct CorrelationOptions {
  uint8_t reserved0[12];
  int32_t width;  /* pixels a row of the grey images, whose rows have no padding */
  int32_t height; /* rows of the grey images */
  uint8_t reserved20[4];
  int32_t blockLeft; /* the block, as a RECT: from the top left, right and bottom excluded */
  int32_t blockTop;
  int32_t blockRight;
  int32_t blockBottom;
  uint8_t reserved40[20];
  uint32_t fieldRepair;     /* other than 0: the mode below is in force */
  uint32_t fieldRepairMode; /* KVL_Convert2Gray: 1 blanks, 2 repeats, 4 interpolates the rows of one
                               field; searches: 3 compares the rows of one field only */
  uint32_t source16Bit;     /* other than 0: the source has 16 bits a pixel, brightness first */
  uint8_t reserved72[48];
  uint32_t channel;     /* 1, 2 or 3: that byte of a pixel is its grey; others: the grey formula */
  uint32_t fieldParity; /* which field */
  uint8_t reserved128[8];
  float subStep; /* KVL_CalcCorrelationSub only */
  float subScale;
  float subRange;
} CorrelationOptions;

KVL_STATIC_ASSERT(sizeof(CorrelationOptions) == 148, CorrelationOptions_is_148_bytes);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, width) == 12, options_width_is_at_12);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, height) == 16, options_height_is_at_16);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, blockLeft) == 24, blockLeft_is_at_24);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, blockBottom) == 36, blockBottom_is_at_36);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, fieldRepair) == 60, fieldRepair_is_at_60);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, fieldRepairMode) == 64, fieldRepairMode_is_at_64);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, source16Bit) == 68, source16Bit_is_at_68);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, channel) == 120, channel_is_at_120);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, fieldParity) == 124, fieldParity_is_at_124);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, subStep) == 136, subStep_is_at_136);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, subScale) == 140, subScale_is_at_140);
KVL_STATIC_ASSERT(offsetof(CorrelationOptions, subRange) == 144, subRange_is_at_144);

/* The host's record of a block. Searches write `score` and `limitHit` and nothing else. */
typedef struct CorrelationBlockResult {
  uint32_t blockId; /* the host's */
  uint8_t reserved4[4];
  double score;
  uint8_t reserved16[80];
  uint8_t limitHit; /* set to 1 by KVL_CalcCorrelationIt, never to 0 */
  uint8_t reserved97[7];
} CorrelationBlockResult;

KVL_STATIC_ASSERT(sizeof(CorrelationVector) == 16, CorrelationVector_is_16_bytes);
KVL_STATIC_ASSERT(sizeof(CorrelationBlockResult) == 104, CorrelationBlockResult_is_104_bytes);
KVL_STATIC_ASSERT(offsetof(CorrelationBlockResult, score) == 8, result_score_is_at_8);
KVL_STATIC_ASSERT(offsetof(CorrelationBlockResult, limitHit) == 96, limitHit_is_at_96);

/*
 * Grey rows from rows of 24-bit pixels. Of the bytes b0, b1, b2 of a pixel in memory order,
 *
 *   grey = (77 * b0 + 151 * b1 + 28 * b2) >> 8
 *
 * so that in the usual order it is blue that has the weight 77 and red 28. Pure blue gives 76, pure
 * red 27. For the brightness of a picture use KVL_ConvertRgb24ToY.
 *
 *   source, sourceStride            first row and the bytes from one row to the next, read only
 *   destination, destinationStride  the same for the result, of which `width` bytes a row are
 *                                   written; must not overlap the source
 *   width, height                   in pixels and rows
 *
 * A stride may be negative: the rows are those at start + r * stride for r = 0 .. height - 1. Rows
 * of the result that share bytes are written in no certain order.
 * Changes nothing when a pointer is null, the width or the height is below 1, or the rows do not fit
 * in the address space. No memory is allocated.
 */
KVL_API void KVL_ConvertFrameToGray(const uint8_t* source, int32_t sourceStride,
                                    uint8_t* destination, int32_t destinationStride, int32_t width,
                                    int32_t height);

/*
 * Grey image of a packed bitmap, optionally of one colour channel, and optionally with the rows of
 * one field replaced.
 *
 *   source       a header with its pixels behind it, which start at the byte offset that the low 16
 *                bits of biSize give. No other member is looked at. May lie at any address.
 *   destination  receives options->height rows of options->width bytes, without padding, in the
 *                order of the source; must not overlap it
 *   options      width, height, fieldRepair, fieldRepairMode, source16Bit, channel, fieldParity
 *
 * source16Bit 0: the source has rows of ((width + 1) * 3) & ~3 bytes. Row r, memory order, becomes
 *
 *   the row before it       where fieldRepair is not 0, fieldRepairMode is 2 or 4, r >= 2, and
 *                           height - 1 - r is odd (fieldParity not 0) or even (fieldParity 0)
 *   all 0                   likewise with fieldRepairMode 1
 *   byte channel - 1        of each pixel elsewhere where channel is 1, 2 or 3
 *   grey                    of each pixel elsewhere, by the formula of KVL_ConvertFrameToGray
 *
 * In mode 4 each row r <= height - 2 of that parity, row 0 or 1 included, then becomes
 * (row r + row r + 1) / 2, byte by byte and truncated: a repeated row becomes the mean of its
 * neighbours.
 *
 * source16Bit not 0: grey byte i of a row is byte 2 * i of the next 2 * width bytes of the source;
 * rows follow each other without padding. Where fieldRepair is not 0, odd rows become 0 (mode 1) or
 * the row before (mode 2) and take nothing from the source, which then holds the kept field only.
 * fieldParity, channel and mode 4 mean nothing there.
 *
 * Changes nothing when a pointer is null, the width or the height is below 1, or the rows do not fit
 * in the address space. No memory is allocated.
 */
KVL_API void KVL_Convert2Gray(const BITMAPINFOHEADER* source, uint8_t* destination,
                              const CorrelationOptions* options);

/*
 * What the searches share.
 *
 * Images are width x height bytes, rows stored bottom-up. The block is given from the picture's top
 * left: of memory rows it has S = height - bottom up to but not including E = height - top, of
 * columns L = left up to but not including R = right. It may reach beyond the image, or lie outside.
 *
 * Score of the displacement (x, y), with dx = x and dy = -y:
 *
 *   L' = max(L, -dx, 0), R' = min(R, width, width - dx)
 *   S' = max(S, -dy, 0), E' = min(E, height, height - dy)
 *   score = 0                                    where that is empty, else
 *   score = -(sum over L' <= c < R', S' <= r < E' of measure(a[r, c], b[r + dy, c + dx]))
 *   score = score * (R - L) / (R' - L')          where R' - L' < R - L, then
 *   score = score * (bottom - top) / (E' - S')   where E' - S' < bottom - top
 *
 * with divisions truncated towards 0. A displacement that pushes the block off the image thus scores
 * as well as a perfect match: keep the range below the block's distance from the edge, or below the
 * block's size, unless that is wanted.
 *
 *   squared differences   measure = (b - a)^2, or (255 - mask[r + dy, c + dx]) * (b - a)^2, in
 *                         64-bit integers
 *   positive differences  measure = max(0, b - a), in 32-bit integers that wrap; scores are compared
 *                         signed. From 2^31 on, for blocks of over 8 million pixels, that misleads.
 *
 * A score table has width x height entries. The score of (x, y) has the index
 *
 *   (y + height / 2) * width + (x + width / 2)
 *
 * with truncated halves, and 0 means that it is not known yet. The library never clears a table: the
 * host zeroes it before the first search of a block, and no two searches may use one at once. A
 * score that truly is 0 is computed anew each time that it is needed. A displacement whose index lies
 * outside the table is scored without it. One with x outside -width / 2 .. (width - 1) / 2 shares the
 * entry of another: keep ranges below half the width.
 *
 * Rows or candidates are shared out over the team; results do not depend on how. Scores, vectors and
 * tables are the same on every processor.
 */

/*
 * Exhaustive search by squared differences: of all (x, y) with -range <= x, y <= range the one with
 * the best score; of equals the first, y counting before x, both from -range up.
 *
 *   bestScore         receives the score
 *   imageA, strideA   first row and bytes from row to row, which may be negative; read only. The
 *   imageB, strideB   images may be one and the same
 *   mask              `width` bytes a row without padding, lying over image B: 255 leaves a pixel
 *                     out, 0 counts it 255 times; null for no mask, each pixel counted once
 *   width, height     of both images; where one is below 1 every score is 0
 *   block             see above
 *   range             in pixels; of 0 only (0, 0) is scored
 *
 * Returns (0, 0) and writes nothing when bestScore, imageA, imageB or block is null. Returns (0, 0)
 * with the score 0 when the range is negative or rows do not fit in the address space. The time is
 * bounded by the image, however large the range. Takes memory of up to 10 bytes for each pixel that
 * the block can be compared with, and is slower where that cannot be had.
 */
KVL_API CorrelationVector KVL_CalcCorrelationNormal(int64_t* bestScore, const uint8_t* imageA,
                                                    int32_t strideA, const uint8_t* imageB,
                                                    int32_t strideB, const uint8_t* mask,
                                                    int32_t width, int32_t height,
                                                    const RECT* block, int32_t range);

/*
 * Iterative search by squared differences, which follows ever better scores from `start`.
 *
 *   v = *start, s = 1
 *   while s <= maxSteps and |v.x| + s <= 4 * limit and |v.y| + s <= 4 * limit:
 *     score those of the (2s + 1)^2 displacements around v whose entry is 0, and store the scores
 *     best = v, or the displacement of the square with a better score; of equals the first, y
 *            counting before x, both from below
 *     *bestScore = its score
 *     if best is not v, |best.y| + maxSteps < height / 2 - 1 and |best.x| + maxSteps < width / 2 - 1:
 *       v = best, s = 1
 *     else: s = s + 1
 *   return v
 *
 * So *bestScore is that of the last square, which may lie beside v when the best was too near the
 * edge of the table, and stays 0 when no square was searched.
 *
 *   start       null for (0, 0)
 *   maxSteps    largest square; below 1 *start is returned. Counts as at most twice width + height
 *   limit       a quarter of how far from (0, 0) a square may reach, in pixels
 *   scoreTable  see above
 *
 * Everything else is as for KVL_CalcCorrelationNormal. Returns (0, 0) and writes nothing when
 * bestScore, imageA, imageB, block or scoreTable is null, and *start with the score 0 when rows or
 * table do not fit in the address space. Always ends, whatever the table held before. No memory is
 * allocated.
 */
KVL_API CorrelationVector KVL_CalcCorrelationIterativ(
    int64_t* bestScore, const uint8_t* imageA, int32_t strideA, const uint8_t* imageB,
    int32_t strideB, const uint8_t* mask, int32_t width, int32_t height, const RECT* block,
    const POINT* start, int32_t maxSteps, int32_t limit, int64_t* scoreTable);

/*
 * Exhaustive search by positive differences, of the same displacements in the same order.
 *
 *   result           `score` receives the best score
 *   imageA, imageB   options->height rows of options->width bytes, read only
 *   range            in pixels
 *   options          width, height, the block, fieldRepair, fieldRepairMode and fieldParity
 *   scoreTable       receives every score; what it held before is not used
 *
 * With fieldRepair not 0 and fieldRepairMode 3 only every second row counts, from S' on; or from
 * S' + 1 on, and then up to and including E' where that row lies inside both images, if
 * height - S' - 1 is odd and fieldParity not 0, or even and fieldParity 0. The correction for the
 * area stays that of all rows.
 *
 * Returns (0, 0) and writes nothing when a pointer is null. Returns (0, 0) with the score 0 when the
 * range is negative or images or table do not fit in the address space. Displacements farther than
 * twice width + height in x or y, which score 0, are not stored. No memory is allocated.
 */
KVL_API CorrelationVector KVL_CalcCorrelationNorm(CorrelationBlockResult* result,
                                                  const uint8_t* imageA, const uint8_t* imageB,
                                                  int32_t range, const CorrelationOptions* options,
                                                  uint32_t* scoreTable);

/*
 * Iterative search by positive differences from (0, 0).
 *
 *   v = (0, 0), s = 1
 *   while s <= range / 2:
 *     if stopAtLimit and |v.x + s| > 2 * range or |v.y + s| > 2 * range:
 *       result->limitHit = 1; if *firstLimitBlock is 0xFFFFFFFF it becomes result->blockId; end
 *     score and store as KVL_CalcCorrelationIterativ does
 *     best = v, or the displacement of the square with a better score; of equals the first, x
 *            counting before y, both from below
 *     if best is v: result->score = its score, s = s + 1
 *     else if |best.y| + range < height / 2 - 1 and |best.x| + range < width / 2 - 1:
 *       v = best, s = 1
 *     else: s = s + 1
 *   return v
 *
 *   result           `score` is 0 at first and then that of the last v that was the best of a square;
 *                    blockId is read, limitHit written as told
 *   stopAtLimit      other than 0: see above
 *   firstLimitBlock  the host sets it to 0xFFFFFFFF before a run over many blocks, and finds in it
 *                    the first that came to the limit; may be null
 *
 * Everything else is as for KVL_CalcCorrelationNorm. Returns (0, 0) and writes nothing when result,
 * imageA, imageB, options or scoreTable is null, and (0, 0) with the score 0 when images or table do
 * not fit in the address space. Squares grow to at most twice width + height. Always ends, whatever
 * the table held before. No memory is allocated.
 */
KVL_API CorrelationVector KVL_CalcCorrelationIt(CorrelationBlockResult* result,
                                                const uint8_t* imageA, const uint8_t* imageB,
                                                int32_t range, uint8_t stopAtLimit,
                                                const CorrelationOptions* options,
                                                uint32_t* scoreTable, uint32_t* firstLimitBlock);

/*
 * Refines a vector to fractions of a pixel. With step = options->subStep, d = options->subRange and
 * k = options->subScale, and in doubles:
 *
 *   candidates   y = centre->y - d, repeatedly increased by step, while y <= centre->y + d; for each
 *                x likewise. The first of the best scores wins.
 *   columns of A xi = xf + i * step for i = 0, 1, ... while xi <= xl, with
 *                mx = floor(min(k * max(|centre->x - d|, |centre->x + d|), (R - L) / 4))
 *                xf = ceil(max(L + mx, 0, d - centre->x))
 *                xl = min(R - 1 - mx, width - 1, width - 1 - d - centre->x)
 *   rows of A    yj = yf + j * step for j = 0, 1, ... while yj <= yl, with
 *                my = floor(min(k * max(|centre->y - d|, |centre->y + d|), (E - S) / 4))
 *                yf = ceil(max(S + my, 0, centre->y + d))
 *                yl = min(E - 1 - my, height - 1, height - 1 + centre->y - d)
 *   sample       image p at (u, v), with fu and fv the fractions of u and v, is
 *                top    = p[v, u]     + fu * (p[v, u + 1]     - p[v, u])
 *                bottom = p[v + 1, u] + fu * (p[v + 1, u + 1] - p[v + 1, u])
 *                top + fv * (bottom - top), truncated to an integer modulo 256
 *                where indices are integer parts, at most width - 1 and height - 1
 *   score        -(sum over all xi, yj of max(0, B(xi + x, yj - y) - A(xi, yj)))
 *
 * All candidates have the same samples of A, and B is inside its image for each of them. Where that
 * leaves no sample every score is 0 and the first candidate is returned. Identical images score 0 at
 * (0, 0).
 *
 *   result          `score` receives the best score
 *   imageA, imageB  as for KVL_CalcCorrelationNorm
 *   centre          the vector to refine; must not be null
 *   options         width, height, the block, and
 *     subStep       in pixels, for candidates and samples alike, at least 1 / 1024
 *     subScale      share of the vector that is kept away from the ends of the block, up to a
 *                   quarter of its side; counts as 1 unless it is positive and finite
 *     subRange      in pixels, 0 or more
 *
 * The cost of a candidate grows with 1 / step^2, and so does their number. Returns (0, 0) and writes
 * nothing when a pointer is null. Returns (0, 0) with the score 0 when width or height is below 1,
 * subStep is smaller or not a finite number, subRange is negative or not a finite number, nor is the
 * centre, the images do not fit in the address space, there are 2^31 candidates or more, or memory,
 * a byte a sample and 24 bytes a candidate, cannot be had.
 */
KVL_API CorrelationVector KVL_CalcCorrelationSub(CorrelationBlockResult* result,
                                                 const uint8_t* imageA, const uint8_t* imageB,
                                                 const CorrelationVector* centre,
                                                 const CorrelationOptions* options);

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
 *            three routines here.
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
