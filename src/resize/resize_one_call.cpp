#include "resize/resize_one_call.h"

#include "core/platform.h"
#include "resize/resize_execution.h"
#include "resize/resize_setup.h"

namespace kvl {
namespace {

// The work buffer of all one-call resizes, and the lock that they take turns by.
class SharedWork {
 public:
  SharedWork() = default;
  ~SharedWork() { g_platform.release(buffer_); }
  SharedWork(const SharedWork&) = delete;
  SharedWork& operator=(const SharedWork&) = delete;

  CriticalSection& lock() { return lock_; }

  // At least `bytes` of memory, or null. Only under the lock.
  uint8_t* reserve(uint64_t bytes) {
    if (buffer_ != nullptr && size_ >= bytes) return buffer_;
    g_platform.release(buffer_);
    buffer_ = static_cast<uint8_t*>(g_platform.allocate(bytes));
    size_ = buffer_ != nullptr ? bytes : 0;
    return buffer_;
  }

 private:
  CriticalSection lock_;
  uint8_t* buffer_ = nullptr;
  uint64_t size_ = 0;
};

// Made by whichever thread comes first while others wait, and released with the library.
SharedWork& sharedWork() {
  static SharedWork work;
  return work;
}

// A fork waits for the resize that is under way, so that the child has a whole buffer.
const bool g_forksWait =
    (atFork([] { sharedWork().lock().enter(); }, [] { sharedWork().lock().leave(); },
            [] { sharedWork().lock().renew(); }),
     true);

}  // namespace

int32_t resizeInOneCall(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                        const double* sourceRect, const BITMAPINFOHEADER* destinationHeader,
                        uint8_t* destinationBits, const RECT* destinationRect, uint32_t flags) {
  if (destinationRect == nullptr) return KVL_E_INVALIDARG;
  ResizeSetup setup = {};
  RECT clip = *destinationRect;
  uint64_t needed = 0;
  const int32_t status =
      setupResize(sourceHeader, sourceRect, destinationHeader, &clip, flags, &setup, &needed);
  // A resize that leaves nothing to draw counts as an invalid call here.
  if (status != KVL_S_OK) return KVL_E_INVALIDARG;

  SharedWork& shared = sharedWork();
  const Entered entered(shared.lock());
  uint8_t* work = shared.reserve(needed);
  if (work == nullptr) return KVL_E_OUTOFMEMORY;
  return executeResize(&setup, sourceBits, destinationBits, work, needed, WorkOwner::library);
}

}  // namespace kvl
