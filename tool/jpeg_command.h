// `kvl jpeg encode` and `kvl jpeg decode`.
#pragma once

#include "command.h"

namespace kvl::tool {

void addJpeg(CLI::App& parser, Commands& commands);

}  // namespace kvl::tool
