// `kvl convert`: pictures and clips into raw frames, and raw frames into pictures.
#pragma once

#include "command.h"

namespace kvl::tool {

void addConvert(CLI::App& parser, Commands& commands);

}  // namespace kvl::tool
