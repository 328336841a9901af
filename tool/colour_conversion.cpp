#include "colour_conversion.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <cstring>

namespace kvl::tool {
namespace {

constexpr Size kLargestStandardDefinition = {1024, 576};
constexpr int kScalerFlags =
    SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT;

const AVPixFmtDescriptor& descriptorOf(int format) {
  return *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
}

bool isRgb(int format) {
  return (descriptorOf(format).flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

// Grey, with or without alpha, uses the full range unless the frame says otherwise.
bool isFullRange(const AVFrame& frame, int format) {
  if (frame.color_range == AVCOL_RANGE_UNSPECIFIED && descriptorOf(format).nb_components < 3) {
    return true;
  }
  return format != frame.format || frame.color_range == AVCOL_RANGE_JPEG;
}

// The formats that carry the full range in their name are old names; the scaler wants the plain
// format and the range apart.
int withoutRange(int format) {
  switch (format) {
    case AV_PIX_FMT_YUVJ411P:
      return AV_PIX_FMT_YUV411P;
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    default:
      return format;
  }
}

// One row as 24-bit pixels without alpha, or with it as 32-bit ones.
void unpackRow(const uint8_t* packed, bool withAlpha, Dib& target, int32_t y) {
  const auto width = static_cast<size_t>(target.header.biWidth);
  uint8_t* pixel = target.rowFromTop(y);
  if (!withAlpha) {
    std::memcpy(pixel, packed, 3 * width);
    return;
  }
  uint8_t* alpha = target.alphaFromTop(y);
  for (size_t x = 0; x < width; ++x, packed += 4, pixel += 3) {
    std::memcpy(pixel, packed, 3);
    alpha[x] = packed[3];
  }
}

void packRow(const Dib& source, int32_t y, uint8_t* packed) {
  const auto width = static_cast<size_t>(source.header.biWidth);
  const uint8_t* pixel = source.rowFromTop(y);
  if (!source.hasAlpha()) {
    std::memcpy(packed, pixel, 3 * width);
    return;
  }
  const uint8_t* alpha = source.alphaFromTop(y);
  for (size_t x = 0; x < width; ++x, packed += 4, pixel += 3) {
    std::memcpy(packed, pixel, 3);
    packed[3] = alpha[x];
  }
}

}  // namespace

AVColorSpace usualMatrix(Size size) {
  const bool standardDefinition = size.width <= kLargestStandardDefinition.width &&
                                  size.height <= kLargestStandardDefinition.height;
  return standardDefinition ? AVCOL_SPC_SMPTE170M : AVCOL_SPC_BT709;
}

ColourConverter::Side ColourConverter::sideOf(const AVFrame& frame) {
  const int format = withoutRange(frame.format);
  if (isRgb(format)) return {format, AVCOL_SPC_RGB, 1};
  const bool unknown = frame.colorspace == AVCOL_SPC_UNSPECIFIED ||
                       frame.colorspace == AVCOL_SPC_RGB || frame.colorspace == AVCOL_SPC_RESERVED;
  const int matrix = unknown ? usualMatrix({frame.width, frame.height}) : frame.colorspace;
  return {format, matrix, isFullRange(frame, format) ? 1 : 0};
}

void ColourConverter::convert(const AVFrame& source, AVFrame& target) {
  const Size size = {source.width, source.height};
  const Side from = sideOf(source);
  const Side to = sideOf(target);
  if (scaler_ == nullptr || size != size_ || from != from_ || to != to_) {
    scaler_.reset(allocated(sws_getContext(
        size.width, size.height, static_cast<AVPixelFormat>(from.format), size.width, size.height,
        static_cast<AVPixelFormat>(to.format), kScalerFlags, nullptr, nullptr, nullptr)));
    constexpr int kUnity = 1 << 16;
    // Refused for pairs that need no matrix, such as RGB to RGB.
    sws_setColorspaceDetails(scaler_.get(), sws_getCoefficients(from.matrix), from.fullRange,
                             sws_getCoefficients(to.matrix), to.fullRange, 0, kUnity, kUnity);
    size_ = size;
    from_ = from;
    to_ = to;
  }
  sws_scale(scaler_.get(), source.data, source.linesize, 0, size.height, target.data,
            target.linesize);
}

// The scaler may write past a row's end, which FFmpeg's own frames leave room for and the rows of a
// DIB do not: pictures go through such a frame.
AVFrame& ColourConverter::packedFrame(Size size, bool withAlpha) {
  const int format = withAlpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24;
  if (packed_ == nullptr || packed_->width != size.width || packed_->height != size.height ||
      packed_->format != format) {
    packed_.reset(allocated(av_frame_alloc()));
    packed_->format = format;
    packed_->width = size.width;
    packed_->height = size.height;
    if (av_frame_get_buffer(packed_.get(), 0) < 0) throw std::bad_alloc();
  }
  return *packed_;
}

void ColourConverter::toDib(const AVFrame& source, Dib& target, bool withAlpha) {
  const Size size = {source.width, source.height};
  AVFrame& packed = packedFrame(size, withAlpha);
  convert(source, packed);
  target.resize(size);
  if (withAlpha) target.addAlpha();
  for (int32_t y = 0; y < size.height; ++y) {
    unpackRow(packed.data[0] + ptrdiff_t{y} * packed.linesize[0], withAlpha, target, y);
  }
}

void ColourConverter::fromDib(const Dib& source, AVFrame& target) {
  AVFrame& packed = packedFrame(source.size(), source.hasAlpha());
  for (int32_t y = 0; y < source.header.biHeight; ++y) {
    packRow(source, y, packed.data[0] + ptrdiff_t{y} * packed.linesize[0]);
  }
  convert(packed, target);
}

}  // namespace kvl::tool
