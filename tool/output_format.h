// What can be written, by the extension of the output's name.
#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <string>

#include "dib.h"

namespace kvl::tool {

struct OutputFormat {
  const char* extensions;  // lower case, separated by spaces
  bool isClip;
  bool constantRate;  // holds frames at one rate and no times
  const char* muxer;
  const char* muxerOptions;
  const char* encoder;
  const char* encoderOptions;
  AVPixelFormat pixels;
  AVPixelFormat pixelsOfOddSizes;
  AVPixelFormat pixelsWithAlpha;  // none where the format has no alpha
  AVColorSpace matrix;            // unspecified: the usual one of the size
  AVColorRange range;
};

// The format for a path; "-" is a Y4M stream. Throws a usage Error for an unknown extension.
const OutputFormat& outputFormat(const std::string& path);

// The same for pictures with alpha. Throws a usage Error also for a format that holds none.
const OutputFormat& outputFormatWithAlpha(const std::string& path);

// Help text on inputs and outputs.
extern const char* const kFormatsHelp;

}  // namespace kvl::tool
