// `kvl motion`: what moved between two pictures, or from frame to frame of a clip.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace kvl::tool {

struct MotionOptions {
  std::string input;
  std::string second;
  int block = 16;
  int range = 12;
  std::string search = "full";
  std::string format = "text";
  std::string arrows;
  std::string stabilise;
  int smooth = 15;
  int threads = 0;  // 0: the library's own choice
  bool time = false;
};

void addMotionOptions(CLI::App& command, MotionOptions& options);

void motion(const MotionOptions& options);

}  // namespace kvl::tool
