#include "interrupt.h"

#include <csignal>
#include <initializer_list>

namespace kvl::tool {
namespace {

volatile std::sig_atomic_t g_signal = 0;

void rememberSignal(int number) {
  g_signal = number;
}

int stopRequested(void*) {
  return g_signal != 0;
}

}  // namespace

void catchSignals() {
  struct sigaction remember = {};
  // Without SA_RESTART a read that waits for a pipe returns, and the callback is asked.
  remember.sa_handler = rememberSignal;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &remember, nullptr);

  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  for (const int number : {SIGPIPE, SIGXFSZ}) sigaction(number, &ignore, nullptr);
}

void throwIfInterrupted() {
  if (g_signal != 0) throw Interrupted{g_signal};
}

AVIOInterruptCB interruptCallback() {
  return {stopRequested, nullptr};
}

}  // namespace kvl::tool
