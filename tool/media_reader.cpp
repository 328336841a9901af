#include "media_reader.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "error.h"
#include "interrupt.h"

namespace kvl::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStreamFormat = "yuv4mpegpipe";

// FFmpeg's TIFF decoder takes an unknown tag, of which sound files have many, for an error.
constexpr std::string_view kHarmless = "Unknown or unsupported tag";

// Damage that FFmpeg works around shows in its messages alone. This prints nothing and hands errors
// to the reader whose context they are about.
void collectComplaint(void* source, int level, const char* format, va_list arguments) {
  if (source == nullptr || level > AV_LOG_ERROR) return;
  const AVClass* kind = *static_cast<const AVClass**>(source);
  void* reader = nullptr;
  if (kind == avformat_get_class()) reader = static_cast<AVFormatContext*>(source)->opaque;
  if (kind == avcodec_get_class()) reader = static_cast<AVCodecContext*>(source)->opaque;
  if (reader == nullptr || std::string_view(format).starts_with(kHarmless)) return;
  char text[256];
  std::vsnprintf(text, sizeof text, format, arguments);
  auto& complaint = *static_cast<std::string*>(reader);
  complaint = text;
  while (complaint.ends_with('\n') || complaint.ends_with('.')) complaint.pop_back();
}

// The decoder makes up what is missing of a JPEG. Within a scan FF D9 is nothing but the end
// marker.
bool jpegHasEnd(const AVPacket& packet) {
  const std::string_view bytes(reinterpret_cast<const char*>(packet.data),
                               static_cast<size_t>(packet.size));
  const size_t lastScan = bytes.rfind("\xFF\xDA");
  return lastScan != bytes.npos && bytes.find("\xFF\xD9", lastScan) != bytes.npos;
}

}  // namespace

MediaReader::MediaReader(const std::string& path)
    : name_(inputName(path)),
      packet_(allocated(av_packet_alloc())),
      frame_(allocated(av_frame_alloc())) {
  av_log_set_callback(collectComplaint);
  openInput(path);
  openDecoder();
  readTraits();
  checkIndex();
}

void MediaReader::failDamaged(const std::string& detail) const {
  throw Error(name_, "truncated or damaged (" + detail + ")");
}

void MediaReader::failRead(int code) const {
  throwIfInterrupted();
  if (code == AVERROR(ENOMEM)) throw std::bad_alloc();
  failDamaged(complaint_.empty() ? ffmpegReason(code) : complaint_);
}

void MediaReader::openInput(const std::string& path) {
  const bool stream = path == "-";
  if (!stream) {
    std::error_code unknown;
    const fs::file_status status = fs::status(path, unknown);
    if (fs::is_directory(status)) throw Error(name_, "is a directory");
    if (fs::is_regular_file(status) && fs::file_size(path, unknown) == 0) {
      throw Error(name_, "is empty");
    }
  }

  // Opened here and without a name, the file is known by its contents; and a name such as
  // "http:x" or "a%d.png" is a file's name and nothing more.
  AVIOContext* io = nullptr;
  const AVIOInterruptCB callback = interruptCallback();
  const std::string url = stream ? "pipe:0" : "file:" + path;
  const int opened = avio_open2(&io, url.c_str(), AVIO_FLAG_READ, &callback, nullptr);
  if (opened < 0) throw Error(name_, ffmpegReason(opened));
  io_.reset(io);

  AVFormatContext* context = allocated(avformat_alloc_context());
  context->pb = io;
  context->opaque = &complaint_;
  context->interrupt_callback = callback;
  context->error_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK;
  Dictionary options;
  av_dict_set(options.address(), "protocol_whitelist", "file", 0);
  const AVInputFormat* format = stream ? av_find_input_format(kStreamFormat) : nullptr;
  const int known = avformat_open_input(&context, nullptr, format, options.address());
  if (known < 0) {
    throwIfInterrupted();
    if (stream) throw Error(name_, "not a Y4M stream");
    if (complaint_.empty()) throw Error(name_, "not a picture or clip of a known format");
    failRead(known);
  }
  input_.reset(context);

  traits_.isClip = !std::string_view(context->iformat->name).ends_with("_pipe");
  if (!traits_.isClip && avio_size(io) > 0) {
    // One file is one picture: a parser would look for several and drop what is cut off.
    context->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
  }
  const int analysed = avformat_find_stream_info(context, nullptr);
  if (analysed < 0) failRead(analysed);
}

void MediaReader::openDecoder() {
  const AVCodec* codec = nullptr;
  const int index = av_find_best_stream(input_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (index < 0 || codec == nullptr) throw Error(name_, "holds no picture that can be decoded");
  for (unsigned i = 0; i < input_->nb_streams; ++i) {
    if (static_cast<int>(i) != index) input_->streams[i]->discard = AVDISCARD_ALL;
  }
  stream_ = input_->streams[index];

  decoder_.reset(allocated(avcodec_alloc_context3(codec)));
  if (avcodec_parameters_to_context(decoder_.get(), stream_->codecpar) < 0) throw std::bad_alloc();
  decoder_->pkt_timebase = stream_->time_base;
  decoder_->err_recognition = AV_EF_CRCCHECK;
  if (codec->id != AV_CODEC_ID_TIFF) decoder_->err_recognition |= AV_EF_EXPLODE;
  decoder_->thread_count = traits_.isClip ? 0 : 1;
  // With a thread a frame, this decoder's first error ends in an assertion of FFmpeg.
  if (codec->id == AV_CODEC_ID_MPEG4) decoder_->thread_type = FF_THREAD_SLICE;
  // A clip is decoded on several threads, which must not share a string.
  if (!traits_.isClip) decoder_->opaque = &complaint_;
  const int opened = avcodec_open2(decoder_.get(), codec, nullptr);
  if (opened < 0) failRead(opened);
}

void MediaReader::readTraits() {
  traits_.size = {stream_->codecpar->width, stream_->codecpar->height};
  traits_.timeBase = stream_->time_base;
  const AVRational rate = av_guess_frame_rate(input_.get(), stream_, nullptr);
  if (rate.num > 0 && rate.den > 0) traits_.frameRate = rate;
  traits_.sampleAspectRatio = av_guess_sample_aspect_ratio(input_.get(), stream_, nullptr);
  traits_.primaries = stream_->codecpar->color_primaries;
  traits_.transfer = stream_->codecpar->color_trc;

  size_t bytes = 0;
  const uint8_t* matrix = av_stream_get_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, &bytes);
  if (matrix != nullptr) traits_.displayMatrix.assign(matrix, matrix + bytes);

  traits_.frames = stream_->nb_frames;
  if (traits_.frames == 0 && stream_->duration > 0) {
    traits_.frames =
        av_rescale_q(stream_->duration, stream_->time_base, av_inv_q(traits_.frameRate));
  } else if (traits_.frames == 0 && input_->duration > 0) {
    traits_.frames = av_rescale_q(input_->duration, AV_TIME_BASE_Q, av_inv_q(traits_.frameRate));
  }
}

// A file cut between two frames reads as one that merely ends; its index still names the others.
void MediaReader::checkIndex() const {
  const int64_t fileSize = avio_size(io_.get());
  if (!traits_.isClip || fileSize <= 0) return;
  const int entries = avformat_index_get_entries_count(stream_);
  for (int i = 0; i < entries; ++i) {
    const AVIndexEntry* entry = avformat_index_get_entry(stream_, i);
    if (entry->pos + entry->size > fileSize) failDamaged("frames lie beyond the end of the file");
  }
}

const AVFrame* MediaReader::next() {
  if (!traits_.isClip && lastTime_ >= 0) return nullptr;
  for (;;) {
    throwIfInterrupted();
    const int received = avcodec_receive_frame(decoder_.get(), frame_.get());
    if (received == AVERROR_EOF) return nullptr;
    if (received == 0) break;
    if (received != AVERROR(EAGAIN)) failRead(received);
    const bool more = readPacket();
    const int sent = avcodec_send_packet(decoder_.get(), more ? packet_.get() : nullptr);
    av_packet_unref(packet_.get());
    if (sent < 0 && sent != AVERROR_EOF) failRead(sent);
  }
  if ((frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame_->decode_error_flags != 0) {
    failDamaged("a frame could not be decoded whole");
  }
  if (!traits_.isClip && !complaint_.empty()) failDamaged(complaint_);
  if (sws_isSupportedInput(static_cast<AVPixelFormat>(frame_->format)) == 0) {
    throw Error(name_, "its pixel format cannot be converted");
  }
  const Size size = {frame_->width, frame_->height};
  if (lastTime_ >= 0 && size != traits_.size) throw Error(name_, "its frames change their size");
  traits_.size = size;
  stampFrame();
  return frame_.get();
}

bool MediaReader::readPacket() {
  for (;;) {
    const int read = av_read_frame(input_.get(), packet_.get());
    if (read == AVERROR_EOF) {
      checkEnd();
      return false;
    }
    if (read < 0) failRead(read);
    if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0) failDamaged("a frame is cut short");
    if (packet_->stream_index == stream_->index) break;
    av_packet_unref(packet_.get());
  }
  packetEnd_ = packet_->pos + packet_->size;
  const bool jpeg = decoder_->codec_id == AV_CODEC_ID_MJPEG;
  if (jpeg && !traits_.isClip && !jpegHasEnd(*packet_)) failDamaged("the end is missing");
  return true;
}

void MediaReader::checkEnd() const {
  throwIfInterrupted();
  if (!complaint_.empty()) failDamaged(complaint_);
  if (io_->error < 0) failDamaged(ffmpegReason(io_->error));
  const bool y4m = std::string_view(input_->iformat->name) == kStreamFormat;
  if (y4m && packetEnd_ >= 0 && avio_tell(io_.get()) != packetEnd_) {
    failDamaged("the last frame is cut short");
  }
}

void MediaReader::stampFrame() {
  const int64_t step =
      std::max<int64_t>(1, av_rescale_q(1, av_inv_q(traits_.frameRate), traits_.timeBase));
  const int64_t stamp = frame_->best_effort_timestamp;
  if (firstTime_ == AV_NOPTS_VALUE && stamp != AV_NOPTS_VALUE) firstTime_ = stamp;
  int64_t time = stamp == AV_NOPTS_VALUE ? -1 : stamp - firstTime_;
  if (time <= lastTime_) time = lastTime_ < 0 ? 0 : lastTime_ + step;
  frame_->pts = time;
  lastTime_ = time;
}

}  // namespace kvl::tool
