#include "jpeg/coder_call.h"

namespace kvl {
namespace {

// Not an OpenMP critical section: a fork while another thread is inside a coder must not wait for
// it, which may itself be waiting for the child, and the child would find such a section taken
// forever.
CriticalSection g_lock;
const bool g_lockRenewed = (atFork(nullptr, nullptr, [] { g_lock.renew(); }), true);

}  // namespace

CriticalSection& coderLock() {
  return g_lock;
}

}  // namespace kvl
