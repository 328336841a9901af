#include "options.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <charconv>

namespace kvl::tool {
namespace {

bool isIntegerIn(const std::string& text, IntegerRange range) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end && value >= range.lowest && value <= range.highest;
}

}  // namespace

void addInteger(CLI::App& command, const std::string& name, int& value, IntegerRange range,
                const std::string& help, const std::string& defaultText) {
  const std::string lowest = std::to_string(range.lowest);
  const std::string highest = std::to_string(range.highest);
  const std::string standard = defaultText.empty() ? std::to_string(value) : defaultText;
  const std::string unit = range.unit;
  command
      .add_option(
          name, value,
          help + " [" + unit + ", " + lowest + ".." + highest + ", default " + standard + "]")
      ->option_text("N")
      ->check([=](const std::string& text) {
        if (isIntegerIn(text, range)) return std::string();
        return "'" + text + "' is not a whole number of " + unit + " from " + lowest + " to " +
               highest;
      });
}

void addSwitch(CLI::App& command, const std::string& name, bool& value, const std::string& help) {
  command.add_flag(name, value, help + " [switch, on or off, default off]");
}

}  // namespace kvl::tool
