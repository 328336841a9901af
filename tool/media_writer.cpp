#include "media_writer.h"

#include <cstring>

#include "error.h"
#include "interrupt.h"

namespace kvl::tool {
namespace {

// `text` holds name=value pairs separated by colons.
void addOptions(Dictionary& options, const char* text) {
  if (av_dict_parse_string(options.address(), text, "=", ":", 0) < 0) throw std::bad_alloc();
}

bool isOdd(Size size) {
  return size.width % 2 != 0 || size.height % 2 != 0;
}

}  // namespace

MediaWriter::MediaWriter(const std::string& path, const Dib& first, const SourceTraits& source)
    : name_(outputName(path)),
      size_(first.size()),
      withAlpha_(first.hasAlpha()),
      frameRate_(source.frameRate),
      constantRate_(outputFormat(path).constantRate),
      packet_(allocated(av_packet_alloc())),
      frame_(allocated(av_frame_alloc())) {
  const OutputFormat& format = withAlpha_ ? outputFormatWithAlpha(path) : outputFormat(path);
  std::string url = "pipe:1";
  if (path != "-") {
    part_.emplace(path);
    url = "file:" + part_->path();
  }
  AVFormatContext* context = nullptr;
  check(avformat_alloc_output_context2(&context, nullptr, format.muxer, url.c_str()));
  output_.reset(context);
  openEncoder(format, source);
  openOutput(format, source);
}

void MediaWriter::check(int code) const {
  if (code >= 0) return;
  throwIfInterrupted();
  if (code == AVERROR(ENOMEM)) throw std::bad_alloc();
  throw Error(name_, "cannot be written (" + ffmpegReason(code) + ")");
}

void MediaWriter::openEncoder(const OutputFormat& format, const SourceTraits& source) {
  const AVCodec* codec = avcodec_find_encoder_by_name(format.encoder);
  if (codec == nullptr) {
    throw Error(name_, std::string("the installed FFmpeg has no encoder ") + format.encoder);
  }
  encoder_.reset(allocated(avcodec_alloc_context3(codec)));
  encoder_->width = size_.width;
  encoder_->height = size_.height;
  encoder_->pix_fmt = withAlpha_     ? format.pixelsWithAlpha
                      : isOdd(size_) ? format.pixelsOfOddSizes
                                     : format.pixels;
  encoder_->colorspace =
      format.matrix == AVCOL_SPC_UNSPECIFIED ? usualMatrix(size_) : format.matrix;
  encoder_->color_range = format.range;
  encoder_->color_primaries =
      source.primaries == AVCOL_PRI_UNSPECIFIED ? AVCOL_PRI_BT709 : source.primaries;
  encoder_->color_trc =
      source.transfer == AVCOL_TRC_UNSPECIFIED ? AVCOL_TRC_BT709 : source.transfer;
  encoder_->time_base = constantRate_ ? av_inv_q(frameRate_) : source.timeBase;
  encoder_->framerate = source.frameRate;
  encoder_->sample_aspect_ratio = source.sampleAspectRatio;
  encoder_->thread_count = format.isClip ? 0 : 1;
  if ((output_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
    encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  Dictionary options;
  addOptions(options, format.encoderOptions);
  check(avcodec_open2(encoder_.get(), codec, options.address()));

  frame_->format = encoder_->pix_fmt;
  frame_->width = size_.width;
  frame_->height = size_.height;
  frame_->colorspace = encoder_->colorspace;
  frame_->color_range = encoder_->color_range;
  frame_->quality = encoder_->global_quality;
}

void MediaWriter::openOutput(const OutputFormat& format, const SourceTraits& source) {
  stream_ = allocated(avformat_new_stream(output_.get(), nullptr));
  check(avcodec_parameters_from_context(stream_->codecpar, encoder_.get()));
  stream_->time_base = encoder_->time_base;
  stream_->avg_frame_rate = source.frameRate;
  stream_->sample_aspect_ratio = source.sampleAspectRatio;
  if (!source.displayMatrix.empty()) {
    const size_t bytes = source.displayMatrix.size();
    uint8_t* matrix = allocated(av_stream_new_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, bytes));
    std::memcpy(matrix, source.displayMatrix.data(), bytes);
  }

  AVIOContext* io = nullptr;
  const AVIOInterruptCB callback = interruptCallback();
  check(avio_open2(&io, output_->url, AVIO_FLAG_WRITE, &callback, nullptr));
  io_.reset(io);
  output_->pb = io;
  output_->interrupt_callback = callback;
  Dictionary options;
  addOptions(options, format.muxerOptions);
  check(avformat_write_header(output_.get(), options.address()));
}

void MediaWriter::write(const Dib& picture, int64_t time) {
  if (picture.size() != size_) throw Error(name_, "its frames change their size");
  // Encoders keep frames: each picture gets buffers of its own.
  const Frame frame(allocated(av_frame_alloc()));
  if (av_frame_copy_props(frame.get(), frame_.get()) < 0) throw std::bad_alloc();
  frame->format = frame_->format;
  frame->width = frame_->width;
  frame->height = frame_->height;
  frame->pts = constantRate_ ? written_ : time;
  ++written_;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
  colours_.fromDib(picture, *frame);
  encode(frame.get());
}

void MediaWriter::encode(const AVFrame* frame) {
  check(avcodec_send_frame(encoder_.get(), frame));
  for (;;) {
    throwIfInterrupted();
    const int received = avcodec_receive_packet(encoder_.get(), packet_.get());
    if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) return;
    check(received);
    packet_->stream_index = stream_->index;
    av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
    if (packet_->duration <= 0) {
      packet_->duration = av_rescale_q(1, av_inv_q(frameRate_), stream_->time_base);
    }
    check(av_interleaved_write_frame(output_.get(), packet_.get()));
  }
}

void MediaWriter::finish() {
  encode(nullptr);
  check(av_write_trailer(output_.get()));
  output_->pb = nullptr;
  AVIOContext* io = io_.release();
  const int pending = io->error;
  const int closed = avio_closep(&io);
  check(pending);
  check(closed);
  throwIfInterrupted();
  if (part_) part_->keep();
}

}  // namespace kvl::tool
