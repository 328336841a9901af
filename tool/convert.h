// `kvl convert`: pictures and clips into raw frames, and raw frames into pictures.
#pragma once

#include <optional>
#include <string>

#include "options.h"
#include "raw_frame.h"

namespace CLI {
class App;
}

namespace kvl::tool {

struct ConvertOptions {
  std::string input;
  std::string output;
  std::string to = "i420";
  std::string from = "picture";
  std::optional<Size> size;
  RawColours colours;
  int threads = 0;  // 0: the library's own choice
};

void addConvertOptions(CLI::App& command, ConvertOptions& options);

void convert(const ConvertOptions& options);

}  // namespace kvl::tool
