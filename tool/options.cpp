#include "options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <limits>

namespace kvl::tool {
namespace {

// The whole of `text` as a number of the range. Nothing compares with not-a-number.
template <typename T>
std::optional<T> parseNumber(const std::string& text, T lowest, T highest) {
  T value{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  if (!(value >= lowest && value <= highest)) return std::nullopt;
  return value;
}

// The parts between the commas of `text`.
std::vector<std::string> splitList(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t comma = text.find(','); comma != std::string::npos; comma = text.find(',', start)) {
    parts.push_back(text.substr(start, comma - start));
    start = comma + 1;
  }
  parts.push_back(text.substr(start));
  return parts;
}

std::optional<Point> parsePoint(const std::string& text, RealRange range) {
  const std::vector<std::string> parts = splitList(text);
  if (parts.size() != 2) return std::nullopt;
  const std::optional<double> x = parseNumber(parts[0], range.lowest, range.highest);
  const std::optional<double> y = parseNumber(parts[1], range.lowest, range.highest);
  if (!x || !y) return std::nullopt;
  return Point{*x, *y};
}

std::optional<std::vector<double>> parseReals(const std::string& text, size_t count,
                                              RealRange range) {
  std::vector<double> values;
  for (const std::string& part : splitList(text)) {
    const std::optional<double> value = parseNumber(part, range.lowest, range.highest);
    if (!value) return std::nullopt;
    values.push_back(*value);
  }
  return values.size() == count ? std::optional(values) : std::nullopt;
}

std::optional<Colour> parseColour(const std::string& text) {
  constexpr size_t digits = 6;
  unsigned value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, 16);
  if (text.size() != digits || error != std::errc() || stop != end) return std::nullopt;
  const auto byte = [&](int shift) { return static_cast<int>(value >> shift & 0xFF); };
  return Colour{byte(16), byte(8), byte(0)};
}

std::string toText(const Colour& colour) {
  char text[8];
  std::snprintf(text, sizeof text, "%02x%02x%02x", colour.red & 0xFF, colour.green & 0xFF,
                colour.blue & 0xFF);
  return text;
}

std::optional<Rectangle> parseRectangle(const std::string& text) {
  constexpr int lowest[] = {0, 0, 1, 1};
  const std::vector<std::string> parts = splitList(text);
  int values[4] = {};
  if (parts.size() != std::size(values)) return std::nullopt;
  for (size_t i = 0; i < parts.size(); ++i) {
    const auto value = parseNumber(parts[i], lowest[i], std::numeric_limits<int>::max());
    if (!value) return std::nullopt;
    values[i] = *value;
  }
  return Rectangle{values[0], values[1], values[2], values[3]};
}

std::optional<Edges> parseEdges(const std::string& text) {
  constexpr double farthest = 1e6;
  const std::vector<std::string> parts = splitList(text);
  double values[4] = {};
  if (parts.size() != std::size(values)) return std::nullopt;
  for (size_t i = 0; i < parts.size(); ++i) {
    const auto value = parseNumber(parts[i], -farthest, farthest);
    if (!value) return std::nullopt;
    values[i] = *value;
  }
  if (values[0] >= values[2] || values[1] >= values[3]) return std::nullopt;
  return Edges{values[0], values[1], values[2], values[3]};
}

std::optional<Size> parseSize(const std::string& text) {
  constexpr int largest = 32768;
  const size_t cross = text.find('x');
  if (cross == std::string::npos) return std::nullopt;
  const auto width = parseNumber(text.substr(0, cross), 1, largest);
  const auto height = parseNumber(text.substr(cross + 1), 1, largest);
  if (!width || !height) return std::nullopt;
  return Size{*width, *height};
}

// The shortest text without an exponent that reads as the same number.
std::string toText(double value) {
  char text[400];
  return std::string(text,
                     std::to_chars(text, text + sizeof text, value, std::chars_format::fixed).ptr);
}

std::string bounds(RealRange range) {
  return toText(range.lowest) + ".." + toText(range.highest);
}

std::string fromTo(RealRange range) {
  return "from " + toText(range.lowest) + " to " + toText(range.highest) + " (" + range.unit + ")";
}

std::string describe(const std::string& help, const std::string& unit, const std::string& range,
                     const std::string& standard) {
  return help + " [" + unit + ", " + range + ", default " + standard + "]";
}

// Adds an option whose value `parse` reads: an optional that is empty where the text is not what
// was `expected`.
template <typename T, typename Parse>
void addParsed(CLI::App& command, const std::string& name, T& value, const std::string& placeholder,
               const std::string& description, const std::string& expected, Parse parse) {
  command
      .add_option_function<std::string>(
          name, [&value, parse](const std::string& text) { value = *parse(text); }, description)
      ->option_text(placeholder)
      ->check([parse, expected](const std::string& text) {
        return parse(text) ? std::string() : "'" + text + "' is not " + expected;
      });
}

template <typename T>
void addRealTo(CLI::App& command, const std::string& name, T& value, RealRange range,
               const std::string& help, const std::string& standard) {
  addParsed(command, name, value, "N", describe(help, range.unit, bounds(range), standard),
            "a number " + fromTo(range), [range](const std::string& text) {
              return parseNumber(text, range.lowest, range.highest);
            });
}

}  // namespace

void addInteger(CLI::App& command, const std::string& name, int& value, IntegerRange range,
                const std::string& help, const std::string& defaultText) {
  const std::string lowest = std::to_string(range.lowest);
  const std::string highest = std::to_string(range.highest);
  const std::string standard = defaultText.empty() ? std::to_string(value) : defaultText;
  const std::string unit = range.unit;
  addParsed(
      command, name, value, "N", describe(help, unit, lowest + ".." + highest, standard),
      "a whole number of " + unit + " from " + lowest + " to " + highest,
      [range](const std::string& text) { return parseNumber(text, range.lowest, range.highest); });
}

void addReal(CLI::App& command, const std::string& name, double& value, RealRange range,
             const std::string& help) {
  addRealTo(command, name, value, range, help, toText(value));
}

void addReal(CLI::App& command, const std::string& name, std::optional<double>& value,
             RealRange range, const std::string& help, const std::string& defaultText) {
  addRealTo(command, name, value, range, help, defaultText);
}

void addReals(CLI::App& command, const std::string& name, std::optional<std::vector<double>>& value,
              size_t count, const std::string& placeholder, RealRange range,
              const std::string& help, const std::string& defaultText) {
  addParsed(command, name, value, placeholder,
            describe(help, range.unit, bounds(range) + " each", defaultText),
            std::to_string(count) + " numbers " + fromTo(range) + ", with commas between them",
            [count, range](const std::string& text) { return parseReals(text, count, range); });
}

void addText(CLI::App& command, const std::string& name, std::string& value,
             const std::string& placeholder, const std::string& help,
             const std::string& defaultText) {
  std::string kind = placeholder;
  for (char& letter : kind) letter = static_cast<char>(std::tolower(letter));
  addParsed(
      command, name, value, placeholder, describe(help, kind, "any path", defaultText), "a " + kind,
      [](const std::string& text) { return text.empty() ? std::nullopt : std::optional(text); });
}

void addPoint(CLI::App& command, const std::string& name, std::optional<Point>& value,
              RealRange range, const std::string& help, const std::string& defaultText) {
  addParsed(command, name, value, "X,Y",
            describe(help, range.unit, bounds(range) + " each", defaultText),
            "X,Y, two numbers " + fromTo(range),
            [range](const std::string& text) { return parsePoint(text, range); });
}

void addRectangle(CLI::App& command, const std::string& name, std::optional<Rectangle>& value,
                  const std::string& help, const std::string& defaultText) {
  addParsed(command, name, value, "L,T,W,H",
            describe(help, "pixels", "left and top 0.., width and height 1..", defaultText),
            "LEFT,TOP,WIDTH,HEIGHT, whole numbers of pixels, the last two above 0", parseRectangle);
}

void addColour(CLI::App& command, const std::string& name, Colour& value, const std::string& help) {
  addParsed(command, name, value, "RRGGBB",
            describe(help, "hexadecimal", "000000..ffffff", toText(value)),
            "RRGGBB, six hexadecimal digits", parseColour);
}

void addEdges(CLI::App& command, const std::string& name, std::optional<Edges>& value,
              const std::string& help, const std::string& defaultText) {
  addParsed(command, name, value, "L,T,R,B",
            describe(help, "pixels", "-1000000..1000000 each", defaultText),
            "LEFT,TOP,RIGHT,BOTTOM, numbers of pixels that enclose an area", parseEdges);
}

void addSize(CLI::App& command, const std::string& name, std::optional<Size>& value,
             const std::string& help, const std::string& defaultText) {
  addParsed(command, name, value, "WxH", describe(help, "pixels", "1..32768 each", defaultText),
            "WIDTHxHEIGHT, whole numbers of pixels from 1 to 32768", parseSize);
}

void addChoice(CLI::App& command, const std::string& name, std::string& value,
               const std::string& kind, const std::vector<std::string>& words,
               const std::string& help) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : "|") + word;
  addParsed(command, name, value, "WORD", describe(help, kind, list, value), "one of " + list,
            [words](const std::string& text) {
              const bool known = std::ranges::find(words, text) != words.end();
              return known ? std::optional(text) : std::nullopt;
            });
}

void addSwitch(CLI::App& command, const std::string& name, bool& value, const std::string& help) {
  command.add_flag(name, value, describe(help, "switch", "on or off", "off"));
}

}  // namespace kvl::tool
