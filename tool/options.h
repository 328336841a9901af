// Command-line options whose help states unit, range and default.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace kvl::tool {

struct IntegerRange {
  const char* unit;
  int lowest;
  int highest;
};

// Adds `--name N`. The help line ends in "[unit, lowest..highest, default value]", where the
// default is what `value` holds now, or `defaultText` where a number would not tell.
void addInteger(CLI::App& command, const std::string& name, int& value, IntegerRange range,
                const std::string& help, const std::string& defaultText = "");

// Adds `--name`, which is off unless given.
void addSwitch(CLI::App& command, const std::string& name, bool& value, const std::string& help);

}  // namespace kvl::tool
