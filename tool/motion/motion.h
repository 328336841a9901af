// `kvl motion`: what moved between two pictures, or from frame to frame of a clip.
#pragma once

#include "command.h"

namespace kvl::tool {

void addMotion(CLI::App& parser, Commands& commands);

}  // namespace kvl::tool
