// Pictures and clips in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dib.h"
#include "ffmpeg_handles.h"

namespace kvl::tool {

// What of a source an output takes over besides the pixels.
struct SourceTraits {
  bool isClip = false;
  Size size;
  AVRational timeBase{1, 25};
  AVRational frameRate{25, 1};
  AVRational sampleAspectRatio{0, 1};
  AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
  AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
  // The container's rotation of the clip, as FFmpeg's display matrix; empty for none.
  std::vector<uint8_t> displayMatrix;
  // An estimate; 0 when there is none.
  int64_t frames = 0;
};

// Reads one file, or a Y4M stream from standard input for "-". What a file is, its contents tell
// and not its name. Throws Error on anything missing, unknown, truncated or damaged: nothing is
// concealed.
class MediaReader {
 public:
  explicit MediaReader(const std::string& path);

  const SourceTraits& traits() const { return traits_; }

  // The next frame, or null at the end. Its pts counts traits().timeBase from 0 and always grows.
  // Valid until the next call.
  const AVFrame* next();

 private:
  void openInput(const std::string& path);
  void openDecoder();
  void readTraits();
  void checkIndex() const;
  bool readPacket();
  void checkEnd() const;
  void stampFrame();
  [[noreturn]] void failDamaged(const std::string& detail) const;
  [[noreturn]] void failRead(int code) const;

  std::string name_;
  // What FFmpeg complained of last.
  std::string complaint_;
  IoContext io_;
  InputContext input_;
  AVStream* stream_ = nullptr;
  CodecContext decoder_;
  Packet packet_;
  Frame frame_;
  SourceTraits traits_;
  int64_t packetEnd_ = -1;
  int64_t firstTime_ = AV_NOPTS_VALUE;
  int64_t lastTime_ = -1;
  bool drained_ = false;
};

}  // namespace kvl::tool
