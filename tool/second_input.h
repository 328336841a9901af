// The second input of an operation that takes two.
#pragma once

#include <string>

#include "colour_conversion.h"
#include "media_reader.h"

namespace kvl::tool {

// A picture stands beside every frame of a clip; a clip goes with a clip, frame by frame.
class SecondInput {
 public:
  SecondInput(const std::string& path, bool firstIsClip);

  // The next frame. Throws Error when there is none, or none of this size.
  const Dib& next(Size size);

 private:
  std::string name_;
  MediaReader reader_;
  ColourConverter colours_;
  Dib frame_;
};

}  // namespace kvl::tool
