// Frames without a header, as FFmpeg's rawvideo and most hosts lay them out: rows from the top, no
// padding, planes one behind the other. The conversions are the library's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "dib.h"

namespace kvl::tool {

// The names of the layouts, and of those that have enough in them to make a picture.
const std::vector<std::string>& rawLayouts();
const std::vector<std::string>& rawSourceLayouts();

size_t rawFrameBytes(const std::string& layout, Size size);

struct RawColours {
  std::string matrix = "bt601";
  std::string range = "studio";
};

// Throws a usage Error where the library cannot make that layout with these colours.
void checkRawColours(const std::string& layout, const RawColours& colours);

std::vector<uint8_t> toRawFrame(const Dib& picture, const std::string& layout,
                                const RawColours& colours);

// `picture` has the frame's size.
void fromRawFrame(const std::vector<uint8_t>& frame, const std::string& layout,
                  const RawColours& colours, Dib& picture);

}  // namespace kvl::tool
