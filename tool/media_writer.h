// Pictures and clips out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "colour_conversion.h"
#include "ffmpeg_handles.h"
#include "media_reader.h"
#include "output_format.h"
#include "part_file.h"

namespace kvl::tool {

// Encodes pictures of the size of the first, and with alpha if that has it, into a file, or to
// standard output for "-". The file has its name only after finish(); without it nothing stays
// behind.
class MediaWriter {
 public:
  MediaWriter(const std::string& path, const Dib& first, const SourceTraits& source);

  // `time` counts the source's time base, and grows. Formats of a constant rate only keep the
  // order.
  void write(const Dib& picture, int64_t time);

  void finish();

 private:
  void openEncoder(const OutputFormat& format, const SourceTraits& source);
  void openOutput(const OutputFormat& format, const SourceTraits& source);
  void encode(const AVFrame* frame);
  void check(int code) const;

  std::string name_;
  Size size_;
  bool withAlpha_;
  AVRational frameRate_;
  bool constantRate_;
  int64_t written_ = 0;
  std::optional<PartFile> part_;
  IoContext io_;
  OutputContext output_;
  AVStream* stream_ = nullptr;
  CodecContext encoder_;
  Packet packet_;
  Frame frame_;
  ColourConverter colours_;
};

}  // namespace kvl::tool
