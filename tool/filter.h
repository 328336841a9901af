// Runs one operation over a picture or a clip.
#pragma once

#include <CLI/App.hpp>
#include <string>

#include "operation.h"

namespace kvl::tool {

struct FilterOptions {
  std::string input;
  std::string second;
  std::string output;
  int threads = 0;  // 0: the library's own choice
  int repeat = 1;
  bool time = false;
};

// The arguments that every operation takes.
void addFilterOptions(CLI::App& command, const Operation& operation, FilterOptions& options);

void filter(const std::string& name, Operation& operation, FilterOptions options);

}  // namespace kvl::tool
