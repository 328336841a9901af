// The subcommands that run one operation over a picture or a clip.
#pragma once

#include "command.h"

namespace kvl::tool {

void addOperations(CLI::App& parser, Commands& commands);

}  // namespace kvl::tool
