#include "convert/media_subtype.h"

#include <cstring>

#include "core/bitmap.h"

namespace kvl {
namespace {

struct NamedSubtype {
  const GUID* guid;
  Subtype subtype;
};

constexpr NamedSubtype subtypes[] = {
    {&KVL_SUBTYPE_YUY2, Subtype::yuy2},   {&KVL_SUBTYPE_UYVY, Subtype::uyvy},
    {&KVL_SUBTYPE_YVYU, Subtype::yvyu},   {&KVL_SUBTYPE_YV12, Subtype::yv12},
    {&KVL_SUBTYPE_IYUV, Subtype::iyuv},   {&KVL_SUBTYPE_I420, Subtype::iyuv},
    {&KVL_SUBTYPE_NV12, Subtype::nv12},   {&KVL_SUBTYPE_YV16, Subtype::yv16},
    {&KVL_SUBTYPE_YV24, Subtype::yv24},   {&KVL_SUBTYPE_RGB24, Subtype::rgb24},
    {&KVL_SUBTYPE_RGB32, Subtype::rgb32}, {&KVL_SUBTYPE_RGB8, Subtype::rgb8},
};

}  // namespace

Subtype subtypeOf(const GUID* guid) {
  if (guid == nullptr) return Subtype::unknown;
  for (const NamedSubtype& known : subtypes) {
    if (std::memcmp(guid, known.guid, sizeof(GUID)) == 0) return known.subtype;
  }
  return Subtype::unknown;
}

PlanarLayout planarLayout(Subtype subtype, SIZE size) {
  const int64_t rows = size.cy;
  const int64_t halfRows = (rows + 1) / 2;
  const int64_t halfWidth = (int64_t{size.cx} + 1) / 2;
  const int64_t evenWidth = 2 * halfWidth;
  switch (subtype) {
    case Subtype::nv12:
      return {evenWidth, rows, evenWidth, halfRows, 1};
    case Subtype::yv16:
      return {evenWidth, rows, halfWidth, rows, 2};
    case Subtype::yv24:
      return {evenWidth, rows, evenWidth, rows, 2};
    default:
      return {evenWidth, rows, halfWidth, halfRows, 2};
  }
}

bool isAddressable(const void* bits, const PlanarLayout& layout) {
  // The first test keeps the product of the second from overflowing.
  return isAddressable(bits, layout.lumaStride, layout.lumaRows) &&
         isAddressable(bits, layout.bytes(), 1);
}

}  // namespace kvl
