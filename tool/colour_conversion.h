// Between FFmpeg's frames and the library's pictures.
#pragma once

#include "dib.h"
#include "ffmpeg_handles.h"

namespace kvl::tool {

// The matrix that a YUV picture of this size is taken to have when nothing says which: BT.601 up to
// standard-definition size, BT.709 above.
AVColorSpace usualMatrix(Size size);

// Converts pixel formats, keeping the size. Matrix and range of each side are what its frame says;
// RGB to RGB of 8 bits only reorders bytes. Keeps its tables between frames of one kind.
class ColourConverter {
 public:
  // Alpha is dropped, unless `withAlpha`: then the target has it, opaque where the source has none.
  void toDib(const AVFrame& source, Dib& target, bool withAlpha = false);

  // `target` has its format, size, matrix and range set and its buffers allocated.
  void fromDib(const Dib& source, AVFrame& target);

 private:
  struct Side {
    int format;
    int matrix;
    int fullRange;

    bool operator==(const Side&) const = default;
  };

  static Side sideOf(const AVFrame& frame);
  void convert(const AVFrame& source, AVFrame& target);
  AVFrame& packedFrame(Size size, bool withAlpha);

  Frame packed_;
  Scaler scaler_;
  Size size_;
  Side from_{};
  Side to_{};
};

}  // namespace kvl::tool
