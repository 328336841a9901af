#include "core/debug_output.h"

#include <cstdarg>
#include <cstdio>

#include "core/platform.h"

namespace kvl {

void DebugPrintf(const char* format, ...) {
  char line[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (length < 0 || length >= static_cast<int>(sizeof line)) return;
  g_platform.debugOutput(line);
}

}  // namespace kvl
