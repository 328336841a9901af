#include "alpha/colour_and_alpha.h"

#include "alpha/rows.h"
#include "core/bitmap.h"

namespace kvl {

ColourAndAlpha colourAndAlpha(const BITMAPINFOHEADER* colourHeader, uint8_t* colourBits,
                              const BITMAPINFOHEADER* alphaHeader, const uint8_t* alphaBits) {
  constexpr ColourAndAlpha nothing{};
  if (colourHeader == nullptr || colourBits == nullptr || alphaHeader == nullptr ||
      alphaBits == nullptr) {
    return nothing;
  }
  if (colourHeader->biWidth < 0) {
    g_strideOverflow.store(1, std::memory_order_relaxed);
    return nothing;
  }
  const auto colourStride = static_cast<int64_t>(CalcDibStride(colourHeader));
  const auto alphaStride = static_cast<int64_t>(CalcDibStride(alphaHeader));
  if (colourStride == 0 || alphaStride == 0) return nothing;
  const int32_t height = colourHeader->biHeight;
  if (height == INT32_MIN) return nothing;
  return {colourBits,  colourStride,          alphaBits,
          alphaStride, colourHeader->biWidth, height < 0 ? -height : height};
}

bool isUsable(const ColourAndAlpha& image) {
  return image.colour != nullptr && image.alpha != nullptr && image.width > 0 && image.lines > 0 &&
         rowsAreAddressable(image.colour, image.colourStride, int64_t{image.width} * 3,
                            image.lines) &&
         rowsAreAddressable(image.alpha, image.alphaStride, image.width, image.lines);
}

}  // namespace kvl
