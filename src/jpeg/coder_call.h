// Calls into the host's coder.
#pragma once

#include <cstdint>

#include "core/platform.h"
#include "kvl/kvl.h"

namespace kvl {

CriticalSection& coderLock();

// call() while no other function of a coder runs, and its status. Coders are not taken to be
// thread-safe, nor two coders to be independent of each other.
template <class Call>
int32_t callCoder(const Call& call) {
  const Entered entered(coderLock());
  try {
    return call();
  } catch (...) {
    return KVL_JPEG_BAD_CODER;
  }
}

// Ends a picture that was opened: with finish where all went well, else, or when that fails, with
// error. Returns the status of the whole.
template <class Coder>
int32_t endPicture(const Coder& coder, int32_t status) {
  if (status == KVL_JPEG_OK) status = callCoder([&] { return coder.finish(coder.user); });
  if (status != KVL_JPEG_OK && coder.error != nullptr) {
    callCoder([&] {
      coder.error(coder.user, status);
      return KVL_JPEG_OK;
    });
  }
  return status;
}

}  // namespace kvl
