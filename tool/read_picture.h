// A picture that an operation needs besides its input.
#pragma once

#include <string>

#include "dib.h"

namespace kvl::tool {

// Throws Error for what cannot be read, and for a clip; `option` is what named the file.
Dib readPicture(const std::string& option, const std::string& path);

}  // namespace kvl::tool
