#pragma once

namespace kvl::tool {

// Prints to standard output what the library's initialisation finds on this machine.
void printInfo();

}  // namespace kvl::tool
