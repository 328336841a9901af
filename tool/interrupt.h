// Ctrl-C and its kin: the command stops at the next safe point and leaves no half-written file.
#pragma once

extern "C" {
#include <libavformat/avio.h>
}

namespace kvl::tool {

// Thrown at a safe point after a signal asked the command to stop.
struct Interrupted {
  int signal;
};

// From here on SIGINT, SIGTERM and SIGHUP only set a flag. A closed pipe and a file-size limit
// become write errors, which are reported, instead of ending the process.
void catchSignals();

void throwIfInterrupted();

// Makes FFmpeg give up reads and writes that wait while a signal asks to stop.
AVIOInterruptCB interruptCallback();

}  // namespace kvl::tool
