#include "raw_frame.h"

#include <algorithm>
#include <cstring>

#include "error.h"

namespace kvl::tool {
namespace {

enum class Kind { packed, luma, planes, rgb };

struct Layout {
  const char* name;
  const GUID* subtype;  // what KVL_ConvertYUVToRgb24 takes; null where it takes nothing alike
  Kind kind;
  uint32_t mode;     // of KVL_RtyConvert
  bool vFirst;       // the plane of V before that of U
  bool interleaved;  // U and V in one plane
  bool subtypeHasVFirst;
};

constexpr Layout kLayouts[] = {
    {"yuy2", &KVL_SUBTYPE_YUY2, Kind::packed, 0, false, false, false},
    {"uyvy", &KVL_SUBTYPE_UYVY, Kind::packed, 0, false, false, false},
    {"y", nullptr, Kind::luma, 0, false, false, false},
    {"i420", &KVL_SUBTYPE_I420, Kind::planes, KVL_RTY_420_BOX, false, false, false},
    {"yv12", &KVL_SUBTYPE_YV12, Kind::planes, KVL_RTY_420_BOX, true, false, true},
    {"nv12", &KVL_SUBTYPE_NV12, Kind::planes, KVL_RTY_420_BOX, false, true, false},
    {"yuv422p", &KVL_SUBTYPE_YV16, Kind::planes, KVL_RTY_422, false, false, true},
    {"yuv444p", &KVL_SUBTYPE_YV24, Kind::planes, KVL_RTY_444, false, false, true},
    {"rgb32", nullptr, Kind::rgb, 0, false, false, false},
};

const Layout& layoutOf(const std::string& name) {
  return *std::ranges::find_if(kLayouts, [&](const Layout& one) { return name == one.name; });
}

size_t area(int32_t width, int32_t height) {
  return static_cast<size_t>(width) * static_cast<size_t>(height);
}

int32_t halfOf(int32_t length) {
  return (length + 1) / 2;
}

Size chromaSize(const Layout& layout, Size size) {
  return {layout.mode == KVL_RTY_444 ? size.width : halfOf(size.width),
          layout.mode == KVL_RTY_420_BOX ? halfOf(size.height) : size.height};
}

ColorConversionParams blockOf(const RawColours& colours) {
  ColorConversionParams block;
  KVL_FillColorConversionParams(&block,
                                colours.matrix == "bt709"    ? KVL_MATRIX_BT709
                                : colours.matrix == "bt2020" ? KVL_MATRIX_BT2020
                                                             : KVL_MATRIX_BT601,
                                colours.range == "full" ? KVL_RANGE_FULL : KVL_RANGE_STUDIO);
  return block;
}

// The library's vector and scalar arithmetic differ, and which pixels get which depends on the
// width. Made wider to whole blocks of 32 pixels, by repeating its last column, a picture is all of
// one arithmetic, the one whose chroma is centred on 128 in every layout; with an even height, 4:2:0
// leaves no row out.
class PaddedPicture {
 public:
  explicit PaddedPicture(const Dib& picture)
      : size_{(picture.size().width + 31) / 32 * 32, (picture.size().height + 1) / 2 * 2} {
    BITMAPINFOHEADER header = picture.header;
    header.biWidth = size_.width;
    header.biHeight = size_.height;
    header.biClrUsed = 0;
    bytes_.resize(sizeof header + area(3 * size_.width, size_.height));
    std::memcpy(bytes_.data(), &header, sizeof header);
    uint8_t* to = bytes_.data() + sizeof header;
    for (int32_t y = size_.height - 1; y >= 0; --y) {
      const uint8_t* from = picture.rowFromTop(std::min(y, picture.size().height - 1));
      to = std::copy_n(from, 3 * static_cast<size_t>(picture.size().width), to);
      for (int32_t x = picture.size().width; x < size_.width; ++x) {
        to = std::copy_n(from + 3 * static_cast<size_t>(picture.size().width - 1), 3, to);
      }
    }
  }

  Size size() const { return size_; }
  SIZE extent() const { return {size_.width, size_.height}; }
  // Of the rows in memory, which begin with the picture's lowest.
  int32_t stride() const { return 3 * size_.width; }
  const BITMAPINFOHEADER* header() const {
    return reinterpret_cast<const BITMAPINFOHEADER*>(bytes_.data());
  }
  const uint8_t* lowest() const { return bytes_.data() + sizeof(BITMAPINFOHEADER); }
  const uint8_t* top() const { return lowest() + area(stride(), size_.height - 1); }

 private:
  Size size_;
  std::vector<uint8_t> bytes_;
};

struct Plane {
  std::vector<uint8_t> bytes;
  size_t stride;
};

// The first `rowBytes` bytes of the first `rows` rows.
void append(std::vector<uint8_t>& frame, const Plane& plane, size_t rowBytes, int32_t rows) {
  for (int32_t y = 0; y < rows; ++y) {
    const uint8_t* row = plane.bytes.data() + static_cast<size_t>(y) * plane.stride;
    frame.insert(frame.end(), row, row + rowBytes);
  }
}

Plane convertPacked(const PaddedPicture& picture, const std::string& layout,
                    const RawColours& colours) {
  const SIZE size = picture.extent();
  Plane plane{std::vector<uint8_t>(area(2 * size.cx, size.cy)), static_cast<size_t>(2 * size.cx)};
  if (layout == "uyvy") {
    KVL_CopyRgbBmpToYUYVFrame(picture.header(), {0, 0}, plane.bytes.data(), size, 2 * size.cx,
                              {0, 0}, size, colours.matrix == "bt601");
  } else {
    const ColorConversionParams block = blockOf(colours);
    KVL_ConvertRgb24ToYUY2(picture.lowest(), picture.stride(), size, plane.bytes.data(),
                           2 * size.cx, size, {0, 0}, {0, 0}, size, &block);
  }
  return plane;
}

Plane convertLuma(const PaddedPicture& picture, const RawColours& colours) {
  const SIZE size = picture.extent();
  Plane plane{std::vector<uint8_t>(area(size.cx, size.cy)), static_cast<size_t>(size.cx)};
  const ColorConversionParams block = blockOf(colours);
  KVL_ConvertRgb24ToY(picture.top(), -picture.stride(), plane.bytes.data(), size.cx, size.cx,
                      size.cy, &block);
  return plane;
}

Plane convertRgb32(const PaddedPicture& picture) {
  const SIZE size = picture.extent();
  Plane plane{std::vector<uint8_t>(area(4 * size.cx, size.cy)), static_cast<size_t>(4 * size.cx)};
  KVL_CopyRgbBmpToRGBFrame(picture.header(), {0, 0}, plane.bytes.data(), {0, 0}, 4 * size.cx,
                           size.cy, size);
  return plane;
}

// Y, U and V.
std::vector<Plane> convertPlanes(const PaddedPicture& picture, const Layout& layout,
                                 const RawColours& colours) {
  const Size size = picture.size(), chroma = chromaSize(layout, size);
  const size_t lumaBytes = area(size.width, size.height);
  const size_t chromaBytes = area(chroma.width, chroma.height);
  std::vector<uint8_t> all(lumaBytes + 2 * chromaBytes);
  const auto slices = static_cast<size_t>(KVL_GetNumOpenMPThreads()) * 2;
  std::vector<uint8_t> scratch(2 * slices * static_cast<size_t>(size.width));
  RtyConvertRecord record{};
  const ColorConversionParams block = blockOf(colours);
  KVL_SetRtyConvertColors(&record, &block);
  record.mode = layout.mode;
  record.width = record.yStride = record.scratchRowSize = static_cast<uint32_t>(size.width);
  record.height = static_cast<uint32_t>(size.height);
  record.srcStride = -picture.stride();
  record.uStride = record.vStride = static_cast<uint32_t>(chroma.width);
  record.uPlaneOffset = static_cast<uint32_t>(lumaBytes);
  record.vPlaneOffset = static_cast<uint32_t>(lumaBytes + chromaBytes);
  record.scratchA = scratch.data();
  record.scratchB = scratch.data() + scratch.size() / 2;
  KVL_RtyConvert(&record, picture.top(), all.data());
  const auto plane = [&](size_t at, size_t bytes, int32_t width) {
    const uint8_t* first = all.data() + at;
    return Plane{{first, first + bytes}, static_cast<size_t>(width)};
  };
  return {plane(0, lumaBytes, size.width), plane(lumaBytes, chromaBytes, chroma.width),
          plane(lumaBytes + chromaBytes, chromaBytes, chroma.width)};
}

Plane interleave(const Plane& u, const Plane& v) {
  Plane pairs{{}, 2 * u.stride};
  for (size_t i = 0; i < u.bytes.size(); ++i) {
    pairs.bytes.insert(pairs.bytes.end(), {u.bytes[i], v.bytes[i]});
  }
  return pairs;
}

std::vector<std::string> namesOf(bool sourcesOnly) {
  std::vector<std::string> names;
  for (const Layout& layout : kLayouts) {
    if (!sourcesOnly || layout.subtype != nullptr) names.emplace_back(layout.name);
  }
  return names;
}

// Rows of `rowBytes` bytes with as many bytes behind them as make them `wide`, the last repeated.
const uint8_t* appendRows(std::vector<uint8_t>& to, const uint8_t* from, size_t rowBytes,
                          size_t wide, int32_t rows) {
  for (int32_t y = 0; y < rows; ++y, from += rowBytes) {
    to.insert(to.end(), from, from + rowBytes);
    to.insert(to.end(), wide - rowBytes, from[rowBytes - 1]);
  }
  return from;
}

}  // namespace

const std::vector<std::string>& rawLayouts() {
  static const std::vector<std::string> names = namesOf(false);
  return names;
}

const std::vector<std::string>& rawSourceLayouts() {
  static const std::vector<std::string> names = namesOf(true);
  return names;
}

size_t rawFrameBytes(const std::string& name, Size size) {
  const Layout& layout = layoutOf(name);
  switch (layout.kind) {
    case Kind::packed:
      return area(4 * halfOf(size.width), size.height);
    case Kind::luma:
      return area(size.width, size.height);
    case Kind::rgb:
      return area(4 * size.width, size.height);
    case Kind::planes:
      break;
  }
  const Size chroma = chromaSize(layout, size);
  return area(size.width, size.height) + 2 * area(chroma.width, chroma.height);
}

void checkRawColours(const std::string& layout, const RawColours& colours) {
  if (layout == "uyvy" && colours.matrix == "bt2020") {
    throw Error("--matrix", "the library makes uyvy of bt601 and bt709 alone", usage);
  }
  if (layoutOf(layout).kind == Kind::packed && colours.range == "full") {
    throw Error("--range", "the library makes " + layout + " of studio range alone", usage);
  }
}

std::vector<uint8_t> toRawFrame(const Dib& picture, const std::string& name,
                                const RawColours& colours) {
  const Layout& layout = layoutOf(name);
  const PaddedPicture padded(picture);
  const Size size = picture.size();
  std::vector<uint8_t> frame;
  frame.reserve(rawFrameBytes(name, size));
  switch (layout.kind) {
    case Kind::packed:
      append(frame, convertPacked(padded, name, colours),
             4 * static_cast<size_t>(halfOf(size.width)), size.height);
      return frame;
    case Kind::luma:
      append(frame, convertLuma(padded, colours), static_cast<size_t>(size.width), size.height);
      return frame;
    case Kind::rgb:
      append(frame, convertRgb32(padded), 4 * static_cast<size_t>(size.width), size.height);
      return frame;
    case Kind::planes:
      break;
  }
  const std::vector<Plane> planes = convertPlanes(padded, layout, colours);
  const Size chroma = chromaSize(layout, size);
  const auto chromaBytes = static_cast<size_t>(chroma.width);
  append(frame, planes[0], static_cast<size_t>(size.width), size.height);
  if (layout.interleaved) {
    append(frame, interleave(planes[1], planes[2]), 2 * chromaBytes, chroma.height);
  } else {
    append(frame, planes[layout.vFirst ? 2 : 1], chromaBytes, chroma.height);
    append(frame, planes[layout.vFirst ? 1 : 2], chromaBytes, chroma.height);
  }
  return frame;
}

void fromRawFrame(const std::vector<uint8_t>& frame, const std::string& name,
                  const RawColours& colours, Dib& picture) {
  const Layout& layout = layoutOf(name);
  const Size size = picture.size();
  // The library's planes have rows of an even width.
  std::vector<uint8_t> source;
  if (layout.kind == Kind::planes) {
    const auto width = static_cast<size_t>(size.width), even = (width + 1) / 2 * 2;
    const Size chroma = chromaSize(layout, size);
    const size_t rowBytes = static_cast<size_t>(chroma.width) * (layout.interleaved ? 2 : 1);
    const size_t wide = layout.mode == KVL_RTY_444 ? even : rowBytes;
    const uint8_t* first = appendRows(source, frame.data(), width, even, size.height);
    const uint8_t* second = first + rowBytes * static_cast<size_t>(chroma.height);
    if (layout.interleaved) {
      appendRows(source, first, rowBytes, wide, chroma.height);
    } else {
      const bool swapped = layout.vFirst != layout.subtypeHasVFirst;
      appendRows(source, swapped ? second : first, rowBytes, wide, chroma.height);
      appendRows(source, swapped ? first : second, rowBytes, wide, chroma.height);
    }
  } else {
    source = frame;
  }
  const ColorConversionParams block = blockOf(colours);
  KVL_ConvertYUVToRgb24(layout.subtype, source.data(), 4 * halfOf(size.width),
                        {size.width, size.height}, picture.bits.data(),
                        static_cast<int32_t>(picture.stride()), &block);
}

}  // namespace kvl::tool
