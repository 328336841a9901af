#include "kvl/kvl.h"
#include "resize/resize_execution.h"
#include "resize/resize_one_call.h"
#include "resize/resize_setup.h"

int32_t KVL_SetupResizeDib(const BITMAPINFOHEADER* sourceHeader, const double* sourceRect,
                           const BITMAPINFOHEADER* destinationHeader, RECT* destinationRect,
                           uint32_t flags, ResizeSetup* setup, uint64_t* neededBytes) {
  return kvl::setupResize(sourceHeader, sourceRect, destinationHeader, destinationRect, flags,
                          setup, neededBytes);
}

int32_t KVL_CalcResizeDib(const ResizeSetup* setup, const uint8_t* sourceBits,
                          uint8_t* destinationBits, uint8_t* work, uint64_t workBytes) {
  return kvl::executeResize(setup, sourceBits, destinationBits, work, workBytes,
                            kvl::WorkOwner::host);
}

void KVL_EndResizeDib() {}

int32_t KVL_ResizeDIB_CPP(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                          const double* sourceRect, const BITMAPINFOHEADER* destinationHeader,
                          uint8_t* destinationBits, const RECT* destinationRect, uint32_t flags) {
  return kvl::resizeInOneCall(sourceHeader, sourceBits, sourceRect, destinationHeader,
                              destinationBits, destinationRect, flags);
}

int32_t KVL_ResizeDIB_RGB24_CPP(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                const double* sourceRect, const BITMAPINFOHEADER* destinationHeader,
                                uint8_t* destinationBits, const RECT* destinationRect,
                                uint32_t flags) {
  return kvl::resizeInOneCall(sourceHeader, sourceBits, sourceRect, destinationHeader,
                              destinationBits, destinationRect, flags);
}
