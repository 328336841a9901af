#include "convert/combine_half_frames.h"

#include "core/bitmap.h"
#include "core/parallel.h"
#include "core/pixel_memory.h"

namespace kvl {

void combineHalfFrames(const BITMAPINFOHEADER* header, uint8_t* destination, const uint8_t* source,
                       int32_t secondField) {
  if (header == nullptr || destination == nullptr || source == nullptr) return;
  const auto stride = static_cast<int64_t>(CalcDibStride(header));
  if (stride == 0 || !isAddressable(source, stride, header->biHeight) ||
      !isAddressable(destination, stride, header->biHeight)) {
    return;
  }
  const int64_t first = secondField != 0 ? stride : 0;
  parallelStatic(header->biHeight / 2, [=](int32_t k) {
    const int64_t row = first + int64_t{2} * k * stride;
    FastCopy(destination + row, source + row, static_cast<uint64_t>(stride));
  });
}

}  // namespace kvl
