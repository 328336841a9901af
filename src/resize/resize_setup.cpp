#include "resize/resize_setup.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <tuple>

#include "core/bitmap.h"
#include "core/platform.h"
#include "core/rounding.h"

namespace kvl {
namespace {

constexpr uint32_t compressionRgb = 0;
// First words of the media-subtype GUIDs for 24-bit and 8-bit RGB, used as compression codes.
constexpr uint32_t subtypeRgb24 = 0xE436EB7D;
constexpr uint32_t subtypeRgb8 = 0xE436EB7A;

constexpr uint32_t borderFlag = 1;

bool isResizable(const BITMAPINFOHEADER* header, uint16_t bitCount, uint32_t subtype) {
  return header != nullptr && header->biBitCount == bitCount &&
         (header->biCompression == compressionRgb || header->biCompression == subtype) &&
         header->biWidth >= 1 && header->biHeight >= 1;
}

bool isResizableRgb24(const BITMAPINFOHEADER* header) {
  return isResizable(header, 24, subtypeRgb24);
}

bool isResizableGrey(const BITMAPINFOHEADER* header) {
  return isResizable(header, 8, subtypeRgb8);
}

// Rectangles from the host can lie anywhere: these sums wrap, as they do on the machine.
int32_t wrappingAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int32_t wrappingSubtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

bool overlapsSource(const ResizeSetup& s) {
  return s.srcLeft < s.srcRight && s.srcTop < s.srcBottom && s.srcRight > 0 &&
         s.srcLeft < s.srcWidth && s.srcBottom > 0 && s.srcTop < s.srcHeight;
}

void deriveScales(ResizeSetup& s) {
  s.srcRectWidth = s.srcRight - s.srcLeft;
  s.srcRectHeight = s.srcBottom - s.srcTop;
  s.scaleX = s.srcRectWidth / (s.dstClip.right - s.dstClip.left);
  s.scaleY = s.srcRectHeight / (s.dstClip.bottom - s.dstClip.top);
}

void deriveOffsets(ResizeSetup& s, const RECT& covered) {
  const auto srcHeight = static_cast<int32_t>(s.srcHeight);
  const auto dstHeight = static_cast<int32_t>(s.dstHeight);
  s.dstFirstColumn = std::max<int32_t>(s.dstClip.left, 0);
  s.dstBottomSkip = s.dstClip.bottom < dstHeight ? dstHeight - s.dstClip.bottom : 0;
  s.srcFirstColumn = std::max<int32_t>(covered.left, 0);
  s.srcBottomSkip = covered.bottom < srcHeight ? wrappingSubtract(srcHeight, covered.bottom) : 0;

  int32_t dstRows = s.dstClip.top > 0 ? dstHeight - s.dstClip.top : dstHeight;
  if (s.srcLeft < 0) {
    s.dstFirstColumn = wrappingAdd(s.dstFirstColumn, RoundToInt(-s.srcLeft / s.scaleX, 0.0));
  }
  if (s.srcBottom > srcHeight) {
    s.dstBottomSkip =
        wrappingAdd(s.dstBottomSkip, RoundToInt((s.srcBottom - srcHeight) / s.scaleY, 0.0));
  }
  if (s.srcTop < 0) dstRows = wrappingSubtract(dstRows, RoundToInt(-s.srcTop / s.scaleY, 0.0));
  s.dstRowCount = wrappingSubtract(dstRows, s.dstBottomSkip);

  const int32_t srcRight = std::min<int32_t>(covered.right, s.srcWidth);
  const int32_t srcRows = covered.top > 0 ? srcHeight - covered.top : srcHeight;
  s.srcColumnCount = wrappingSubtract(srcRight, s.srcFirstColumn);
  s.srcRowCount = wrappingSubtract(srcRows, s.srcBottomSkip);
}

// False where the weight area does not fit in 32 bits.
bool deriveSizes(ResizeSetup& s, const RECT& covered) {
  const auto clipHeight = static_cast<uint64_t>(s.dstClip.bottom - s.dstClip.top);
  s.intermediateStride = ((clipHeight + 1) * s.bytesPerPixel + 15) & ~uint64_t{15};
  s.intermediateBytes = static_cast<uint64_t>(s.srcWidth) * s.intermediateStride;

  const int64_t longest = std::max({s.srcWidth, static_cast<int32_t>(s.srcHeight),
                                    wrappingSubtract(covered.right, covered.left),
                                    wrappingSubtract(covered.bottom, covered.top)});
  const int64_t weightBytes = 8 * longest + 8;
  if (weightBytes > INT32_MAX) return false;
  s.weightBytes = static_cast<uint64_t>(weightBytes);

  const uint64_t border =
      (uint64_t{s.srcHeight} + static_cast<uint64_t>(s.srcWidth)) * s.bytesPerPixel * 2;
  s.totalBytes = (s.borderBuffers != 0 ? border : 0) + s.weightBytes + s.intermediateBytes;
  return true;
}

// Fills what follows from the rectangles, the four sizes, the bytes a pixel and the border flag.
// False where the rectangle is not finite or the weight area too large.
bool derive(ResizeSetup& s) {
  deriveScales(s);
  if (!std::isfinite(s.srcRectWidth) || !std::isfinite(s.srcRectHeight)) return false;
  const RECT covered = calcIntegerRect(s.srcLeft, s.srcTop, s.srcRectWidth, s.srcRectHeight, 1.0);
  deriveOffsets(s, covered);
  return deriveSizes(s, covered);
}

auto derivedFields(const ResizeSetup& s) {
  return std::tie(s.totalBytes, s.intermediateBytes, s.weightBytes, s.intermediateStride, s.scaleX,
                  s.scaleY, s.srcRectWidth, s.srcRectHeight, s.dstFirstColumn, s.dstBottomSkip,
                  s.srcFirstColumn, s.srcBottomSkip, s.dstRowCount, s.srcRowCount,
                  s.srcColumnCount);
}

// The host's record without its bytes of padding, which are never written.
void store(const ResizeSetup& s, ResizeSetup* setup) {
  const auto copy = [&](size_t first, size_t last) {
    std::memcpy(reinterpret_cast<uint8_t*>(setup) + first,
                reinterpret_cast<const uint8_t*>(&s) + first, last - first);
  };
  copy(0, offsetof(ResizeSetup, bytesPerPixel) + sizeof s.bytesPerPixel);
  copy(offsetof(ResizeSetup, dstStride), offsetof(ResizeSetup, borderBuffers) + 1);
}

}  // namespace

RECT calcIntegerRect(double x, double y, double width, double height, double mode) {
  const double nearest = 0.5;
  const double down = mode == 1.0 ? 0.0 : mode == 0.0 ? 1.0 : nearest;
  const double up = mode == 1.0 ? 1.0 : mode == 0.0 ? 0.0 : nearest;
  return {RoundToInt(x, down), RoundToInt(y, down), RoundToInt(x + width, up),
          RoundToInt(y + height, up)};
}

int32_t setupResize(const BITMAPINFOHEADER* sourceHeader, const double* sourceRect,
                    const BITMAPINFOHEADER* destinationHeader, RECT* destinationRect,
                    uint32_t flags, ResizeSetup* setup, uint64_t* neededBytes) {
  if (setup == nullptr || sourceHeader == nullptr) return KVL_E_INVALIDARG;
  const bool rgb24 = isResizableRgb24(sourceHeader) && isResizableRgb24(destinationHeader);
  const bool grey = isResizableGrey(sourceHeader) && isResizableGrey(destinationHeader);
  if (!rgb24 && !grey) return KVL_E_INVALIDARG;
  if (sourceRect == nullptr) return KVL_E_INVALIDARG;

  ResizeSetup s = {};
  s.srcLeft = sourceRect[0];
  s.srcTop = sourceRect[1];
  s.srcRight = sourceRect[2];
  s.srcBottom = sourceRect[3];
  s.dstWidth = destinationHeader->biWidth;
  s.dstHeight = static_cast<uint32_t>(destinationHeader->biHeight);
  s.srcWidth = sourceHeader->biWidth;
  s.srcHeight = static_cast<uint32_t>(sourceHeader->biHeight);
  if (!overlapsSource(s)) return KVL_S_FALSE;

  if (destinationRect == nullptr) return KVL_E_INVALIDARG;
  const RECT whole = {0, 0, destinationHeader->biWidth, destinationHeader->biHeight};
  if (!intersectRect(*destinationRect, *destinationRect, whole)) return KVL_S_FALSE;
  s.dstClip = *destinationRect;
  s.bytesPerPixel = rgb24 ? 3 : 1;
  s.borderBuffers = (flags & borderFlag) != 0;
  s.dstStride = CalcDibStride(destinationHeader);
  s.srcStride = CalcDibStride(sourceHeader);
  if (!derive(s)) return KVL_E_INVALIDARG;
  store(s, setup);
  if (neededBytes != nullptr) *neededBytes = s.totalBytes;
  return KVL_S_OK;
}

bool isConsistent(const ResizeSetup& setup) {
  const RECT& clip = setup.dstClip;
  if (setup.srcWidth < 1 || setup.dstWidth < 1 || setup.srcHeight < 1 || setup.dstHeight < 1 ||
      setup.srcHeight > INT32_MAX || setup.dstHeight > INT32_MAX) {
    return false;
  }
  if (isRectEmpty(clip) || clip.left < 0 || clip.top < 0 || clip.right > setup.dstWidth ||
      clip.bottom > static_cast<int32_t>(setup.dstHeight) || !overlapsSource(setup)) {
    return false;
  }
  const auto holdsRow = [&](uint64_t stride, int32_t width) {
    return stride <= INT64_MAX && stride >= static_cast<uint64_t>(width) * setup.bytesPerPixel;
  };
  if (!holdsRow(setup.srcStride, setup.srcWidth) || !holdsRow(setup.dstStride, setup.dstWidth)) {
    return false;
  }
  ResizeSetup again = setup;
  return derive(again) && derivedFields(again) == derivedFields(setup);
}

}  // namespace kvl
