#include "error.h"

extern "C" {
#include <libavutil/error.h>
}

namespace kvl::tool {

std::string inputName(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

std::string outputName(const std::string& path) {
  return path == "-" ? "standard output" : path;
}

std::string ffmpegReason(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

}  // namespace kvl::tool
