// Owning pointers to FFmpeg's objects.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <new>

namespace kvl::tool {

// Calls one of FFmpeg's functions that free an object and clear the pointer to it.
template <auto Free>
struct FreeByAddress {
  template <typename T>
  void operator()(T* object) const {
    Free(&object);
  }
};

struct FreeOutputContext {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};

struct FreeScaler {
  void operator()(SwsContext* context) const { sws_freeContext(context); }
};

using Frame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using CodecContext = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using InputContext = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using OutputContext = std::unique_ptr<AVFormatContext, FreeOutputContext>;
using IoContext = std::unique_ptr<AVIOContext, FreeByAddress<avio_closep>>;
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

// FFmpeg's allocating functions return null when memory is short.
template <typename T>
T* allocated(T* object) {
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

class Dictionary {
 public:
  Dictionary() = default;
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;
  ~Dictionary() { av_dict_free(&entries_); }

  AVDictionary** address() { return &entries_; }

 private:
  AVDictionary* entries_ = nullptr;
};

}  // namespace kvl::tool
