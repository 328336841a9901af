#include "filters/averaging_blur.h"

#include <algorithm>
#include <cmath>

#include "core/bitmap.h"
#include "filters/averaging_blur_kernels.h"
#include "filters/parallel_lines.h"
#include "filters/swapped_size.h"

namespace kvl {
namespace {

// The largest shift for which a weighted sum of `largestSum` stays below 2^32.
int shiftFor(uint64_t largestSum) {
  const uint64_t quotient = UINT32_MAX / largestSum;
  int shift = 31;
  while (shift > 1 && (uint64_t{1} << shift) > quotient) --shift;
  return shift;
}

// A full weight of 0 makes the sum irrelevant; dropping the reach keeps it small.
BoxWeights makeWeights(int64_t reach, uint32_t full, uint32_t edge, int shift) {
  return {full != 0 ? static_cast<int32_t>(reach) : 0, full, edge, shift};
}

void blurLineScalar(const uint8_t* in, int bytesPerPixel, uint8_t* out, ptrdiff_t outStride,
                    int64_t length, const BoxWeights& weights) {
  const auto sample = [&](int64_t i) -> uint32_t {
    return in[std::clamp<int64_t>(i, 0, length - 1) * bytesPerPixel];
  };
  const int64_t reach = weights.reach;
  const int64_t inside = std::min(reach, length - 1);
  const uint32_t half = 1u << (weights.shift - 1);
  // The first box: what lies beyond the ends counts at once, or short lines would cost the reach.
  uint32_t sum = static_cast<uint32_t>(reach + 1) * sample(0) +
                 static_cast<uint32_t>(reach - inside) * sample(length - 1);
  for (int64_t i = 1; i <= inside; ++i) sum += sample(i);
  for (int64_t i = 0; i < length; ++i) {
    const uint32_t entering = sample(i + reach + 1);
    const uint32_t edges = sample(i - reach - 1) + entering;
    const uint32_t average = (weights.full * sum + weights.edge * edges + half) >> weights.shift;
    out[i * outStride] = static_cast<uint8_t>(std::min(average, 255u));
    sum += entering - sample(i - reach);
  }
}

void blurLinesScalar(const LinePass& bundle, const BoxWeights& weights) {
  for (int64_t line = 0; line < bundle.lines; ++line) {
    for (int c = 0; c < bundle.bytesPerPixel; ++c) {
      blurLineScalar(bundle.in + line * bundle.inStride + c, bundle.bytesPerPixel,
                     bundle.out + line * bundle.bytesPerPixel + c, bundle.outStride, bundle.length,
                     weights);
    }
  }
}

// Rows of pixels as a line pass sees them; the height keeps the header's sign.
struct Rows {
  uint8_t* bits;
  ptrdiff_t stride;
  int64_t width;
  int64_t height;
  int bytesPerPixel;
};

// The lines of `rectangle` of `in` on their way to the transposed place in `out`.
LinePass linePass(const Rows& in, const Rows& out, const BlurRectangle& rectangle) {
  const int64_t x0 = rectangle.left, y0 = rectangle.top;
  return {in.bits + y0 * in.stride + x0 * in.bytesPerPixel,
          in.stride,
          out.bits + x0 * out.stride + y0 * in.bytesPerPixel,
          out.stride,
          std::min<int64_t>(in.width - x0, rectangle.width),
          std::min<int64_t>(in.height - y0, rectangle.height),
          in.bytesPerPixel};
}

// The rectangle of `in`, a pixel inside it at least, averaged along its rows into `out`.
void blurPass(const Rows& in, const Rows& out, const BlurRectangle& rectangle,
              const BoxWeights& weights) {
  if (rectangle.left >= in.width || rectangle.top >= in.height) return;
  const LinePass pass = linePass(in, out, rectangle);
  if (pass.length < 2) return;
  const AveragingBlurKernels kernels = averagingBlurKernels(instructionSet());
  forEachBundle(pass, [&](const LinePass& bundle) { kernels.blurLines(bundle, weights); });
}

int64_t magnitude(int32_t height) {
  return height < 0 ? -int64_t{height} : int64_t{height};
}

// A source and its transposed bitmap, checked against each other.
struct RowsPair {
  bool usable;
  Rows source;
  Rows transposed;
};

bool hasBlurredBitCount(const BITMAPINFOHEADER& header) {
  return header.biBitCount == 8 || header.biBitCount == 24 || header.biBitCount == 32;
}

Rows rowsOf(const BITMAPINFOHEADER& header, uint8_t* bits) {
  return {bits, static_cast<ptrdiff_t>(CalcDibStride(&header)), header.biWidth, header.biHeight,
          header.biBitCount / 8};
}

RowsPair rowsPair(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                  const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits) {
  constexpr RowsPair none = {};
  if (sourceHeader == nullptr || transposedHeader == nullptr) return none;
  if (sourceBits == nullptr || transposedBits == nullptr) return none;
  const BITMAPINFOHEADER &from = *sourceHeader, &to = *transposedHeader;
  if (from.biWidth != magnitude(to.biHeight)) return none;
  if (magnitude(from.biHeight) != to.biWidth) return none;
  if (from.biBitCount != to.biBitCount || !hasBlurredBitCount(from)) return none;
  const RowsPair pair = {true, rowsOf(from, sourceBits), rowsOf(to, transposedBits)};
  if (pair.source.stride == 0 || pair.transposed.stride == 0) return none;
  if (!isAddressable(sourceBits, pair.source.stride, to.biWidth)) return none;
  if (!isAddressable(transposedBits, pair.transposed.stride, from.biWidth)) return none;
  return pair;
}

void blurRectangle(const RowsPair& pair, const BlurRectangle& rectangle,
                   const BoxWeights& horizontal, const BoxWeights& vertical) {
  if (!pair.usable || rectangle.left < 0 || rectangle.top < 0) return;
  blurPass(pair.source, pair.transposed, rectangle, horizontal);
  const BlurRectangle back = {rectangle.top, rectangle.left, rectangle.height, rectangle.width};
  blurPass(pair.transposed, pair.source, back, vertical);
}

}  // namespace

AveragingBlurKernels averagingBlurKernels(InstructionSet level) {
  AveragingBlurKernels kernels{blurLinesScalar};
  if (level >= InstructionSet::avx2) addAveragingBlurAvx2(kernels);
  return kernels;
}

BoxWeights boxWeights(int32_t radius) {
  const uint64_t box = 2 * static_cast<uint64_t>(radius) + 1;
  const int shift = shiftFor(255 * box);
  const uint64_t full = ((uint64_t{1} << shift) + box / 2) / box;
  return makeWeights(radius, static_cast<uint32_t>(full), 0, shift);
}

BoxWeights fractionalBoxWeights(float radius) {
  const double whole = std::floor(radius);
  const int shift = shiftFor(510 * static_cast<uint64_t>(std::ceil(radius)) + 255);
  const auto full =
      static_cast<uint32_t>(std::ldexp(1.0, shift) / (2.0 * double{radius} + 1.0) + 0.5);
  const auto edge = static_cast<uint32_t>(full * (double{radius} - whole) + 0.5);
  return makeWeights(static_cast<int64_t>(whole), full, edge, shift);
}

void averagingBlur(BITMAPINFOHEADER* workHeader, uint8_t* workBits,
                   const BITMAPINFOHEADER* imageHeader, uint8_t* imageBits, int32_t radius) {
  if (radius < 1) return;
  if (workHeader == nullptr || imageHeader == nullptr) return;
  if (workBits == nullptr || imageBits == nullptr) return;
  if (workHeader->biWidth != imageHeader->biWidth) return;
  if (workHeader->biHeight != imageHeader->biHeight) return;

  const int32_t width = imageHeader->biWidth, height = imageHeader->biHeight;
  constexpr int bytesPerPixel = 3;
  const int64_t stride = CalcStrideFromBitCount(width, 8 * bytesPerPixel);
  if (width <= 0 || height <= 0 || !isAddressable(workBits, stride, height) ||
      !isAddressable(imageBits, stride, height)) {
    return;
  }
  const SwappedSize swapped(*workHeader);
  // Not rounded to 4 bytes, so that the transposed rows fit in the image's size.
  const int64_t workStride = height * stride / width;
  const Rows image = {imageBits, stride, width, height, bytesPerPixel};
  const Rows work = {workBits, workStride, height, width, bytesPerPixel};
  const BoxWeights weights = boxWeights(radius);
  blurPass(image, work, {0, 0, width, height}, weights);
  blurPass(work, image, {0, 0, height, width}, weights);
}

void avgBlurUni(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                const BlurRectangle& rectangle, int32_t horizontalRadius, int32_t verticalRadius) {
  if (horizontalRadius < 1 || verticalRadius < 1) return;
  blurRectangle(rowsPair(sourceHeader, sourceBits, transposedHeader, transposedBits), rectangle,
                boxWeights(horizontalRadius), boxWeights(verticalRadius));
}

void avgBlurUniFloat(const BITMAPINFOHEADER* sourceHeader, uint8_t* sourceBits,
                     const BITMAPINFOHEADER* transposedHeader, uint8_t* transposedBits,
                     const BlurRectangle& rectangle, float horizontalRadius, float verticalRadius) {
  // Written so that not-a-number fails too.
  const auto isUsable = [](float radius) { return radius >= 0.0f && radius < 2147483648.0f; };
  if (!isUsable(horizontalRadius) || !isUsable(verticalRadius)) return;
  blurRectangle(rowsPair(sourceHeader, sourceBits, transposedHeader, transposedBits), rectangle,
                fractionalBoxWeights(horizontalRadius), fractionalBoxWeights(verticalRadius));
}

}  // namespace kvl
