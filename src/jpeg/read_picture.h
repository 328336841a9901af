// What the two reading routines share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/parallel.h"
#include "jpeg/layout.h"
#include "kvl/kvl.h"

namespace kvl {

struct JpegFile {
  const KVL_JpegDecoder* decoder;
  const uint8_t* data;
  size_t dataSize;
  const KVL_JpegReadOptions* options;
};

// Where the pixels go: `bits` is that of the top left one, `step` leads to the row below.
struct PixelTarget {
  uint8_t* bits;
  ptrdiff_t step;
  int bitCount;
};

bool isUsable(const JpegFile& file);

// A picture that the coder has opened. The team has the call's own size for as long as it lives.
class JpegPicture {
 public:
  explicit JpegPicture(const JpegFile& file);
  JpegPicture(const JpegPicture&) = delete;
  JpegPicture& operator=(const JpegPicture&) = delete;

  // Each returns a status; after one that is not 0, nothing but end() may follow.

  // Opens the file, reads its header and cuts `crop` to the picture.
  int32_t open();

  // Reads the top left `width` x `height` pixels of the crop; `rows` counts those that are there.
  int32_t read(int32_t width, int32_t height, const PixelTarget& target, int32_t& rows);

  // Closes what open() has opened, and returns the status of the whole.
  int32_t end(int32_t status);

  const JpegLayout& layout() const { return layout_; }
  const RECT& crop() const { return crop_; }

 private:
  int32_t readHeader();
  bool cutCrop();

  const JpegFile& file_;
  const KVL_JpegReadOptions options_;
  const TeamSizeScope team_;
  bool opened_ = false;
  JpegLayout layout_ = {};
  RECT crop_ = {};
};

}  // namespace kvl
