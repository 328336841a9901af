// Diagnostic lines for whoever debugs the host.
#pragma once

namespace kvl {

// Formats one line of at most 1,023 characters and hands it to the platform's debug output; a
// longer one is dropped. On Windows that is OutputDebugStringA, on Linux the standard error stream,
// and only where the environment variable KVL_DEBUG is set.
[[gnu::format(printf, 1, 2)]] void DebugPrintf(const char* format, ...);

}  // namespace kvl
