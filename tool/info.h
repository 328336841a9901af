// `kvl info`: what the library's initialisation finds on this machine.
#pragma once

#include "command.h"

namespace kvl::tool {

void addInfo(CLI::App& parser, Commands& commands);

}  // namespace kvl::tool
