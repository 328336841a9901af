// Command-line options whose help states unit, range and default.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dib.h"

namespace CLI {
class App;
}

namespace kvl::tool {

struct IntegerRange {
  const char* unit;
  int lowest;
  int highest;
};

struct RealRange {
  const char* unit;
  double lowest;
  double highest;
};

struct Point {
  double x;
  double y;
};

// 0 .. 255 each.
struct Colour {
  int red;
  int green;
  int blue;
};

// In pixels, counted from the top left of the picture.
struct Rectangle {
  int left;
  int top;
  int width;
  int height;
};

// Edges in pixels from the picture's top left; right and bottom are exclusive.
struct Edges {
  double left;
  double top;
  double right;
  double bottom;
};

// Adds `--name N`. The help line ends in "[unit, lowest..highest, default value]", where the
// default is what `value` holds now, or `defaultText` where a number would not tell.
void addInteger(CLI::App& command, const std::string& name, int& value, IntegerRange range,
                const std::string& help, const std::string& defaultText = "");

// The same for numbers with a fraction. Infinities and not-a-number are refused.
void addReal(CLI::App& command, const std::string& name, double& value, RealRange range,
             const std::string& help);
void addReal(CLI::App& command, const std::string& name, std::optional<double>& value,
             RealRange range, const std::string& help, const std::string& defaultText);

// Adds `--name N,N,..` of `count` numbers of the one range.
void addReals(CLI::App& command, const std::string& name, std::optional<std::vector<double>>& value,
              size_t count, const std::string& placeholder, RealRange range,
              const std::string& help, const std::string& defaultText);

// Adds `--name TEXT`, such as a file's path. `placeholder` also stands where numbers have their
// unit, in lower case.
void addText(CLI::App& command, const std::string& name, std::string& value,
             const std::string& placeholder, const std::string& help,
             const std::string& defaultText);

// Adds `--name X,Y`, both of the one range.
void addPoint(CLI::App& command, const std::string& name, std::optional<Point>& value,
              RealRange range, const std::string& help, const std::string& defaultText);

// Adds `--name L,T,W,H`, of at least one pixel and with no side negative.
void addRectangle(CLI::App& command, const std::string& name, std::optional<Rectangle>& value,
                  const std::string& help, const std::string& defaultText);

// Adds `--name RRGGBB`, in hexadecimal digits.
void addColour(CLI::App& command, const std::string& name, Colour& value, const std::string& help);

// Adds `--name L,T,R,B`, where left < right and top < bottom. Edges may lie outside the picture.
void addEdges(CLI::App& command, const std::string& name, std::optional<Edges>& value,
              const std::string& help, const std::string& defaultText);

// Adds `--name WxH`, of 1 to 32768 pixels each.
void addSize(CLI::App& command, const std::string& name, std::optional<Size>& value,
             const std::string& help, const std::string& defaultText);

// Adds `--name WORD`, one of `words`. `kind` stands where numbers have their unit.
void addChoice(CLI::App& command, const std::string& name, std::string& value,
               const std::string& kind, const std::vector<std::string>& words,
               const std::string& help);

// Adds `--name`, which is off unless given.
void addSwitch(CLI::App& command, const std::string& name, bool& value, const std::string& help);

}  // namespace kvl::tool
