// A subcommand of kvl: each adds itself to the parser and to the list.
#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <vector>

namespace kvl::tool {

struct Command {
  CLI::App* parser;
  std::function<void()> run;  // once the parser has found it and filled its options
};
using Commands = std::vector<Command>;

}  // namespace kvl::tool
