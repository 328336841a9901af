// `kvl jpeg encode` and `kvl jpeg decode`.
#pragma once

#include <optional>
#include <string>

#include "options.h"

namespace CLI {
class App;
}

namespace kvl::tool {

class JpegCommand {
 public:
  explicit JpegCommand(CLI::App& parser);
  JpegCommand(const JpegCommand&) = delete;
  JpegCommand& operator=(const JpegCommand&) = delete;

  void runIfParsed();

 private:
  void addCommonOptions(CLI::App& command, const std::string& input, const std::string& output);
  void encode();
  void decode();

  CLI::App* encode_;
  CLI::App* decode_;
  std::string input_;
  std::string output_;
  int quality_ = 90;
  std::string sampling_ = "420";
  int bandRows_ = 0;
  bool grey_ = false;
  bool progressive_ = false;
  std::optional<Rectangle> crop_;
  int threads_ = 0;
  int repeat_ = 1;
  bool time_ = false;
};

}  // namespace kvl::tool
