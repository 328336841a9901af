#include "resize/resize_execution.h"

#include "core/bitmap.h"
#include "core/pixel_memory.h"
#include "resize/resize_passes.h"
#include "resize/resize_setup.h"

namespace kvl {
namespace {

// A shrinking axis needs a pixel at least.
bool isTooNarrow(double scale, double rectangle) {
  return !interpolates(scale) && rectangle < 1.0;
}

bool isAddressable(const ResizePlan& plan) {
  const ResizeSetup& s = plan.setup;
  return kvl::isAddressable(plan.source, static_cast<int64_t>(s.srcStride), s.srcHeight) &&
         kvl::isAddressable(plan.destination, static_cast<int64_t>(s.dstStride), s.dstHeight) &&
         s.totalBytes <= INT64_MAX &&
         kvl::isAddressable(plan.intermediate, static_cast<int64_t>(s.totalBytes), 1);
}

bool isEmpty(const ResizeAxis& axis) {
  return axis.outputCount <= 0 || axis.sampleCount <= 0;
}

}  // namespace

int32_t executeResize(const ResizeSetup* setup, const uint8_t* sourceBits, uint8_t* destinationBits,
                      uint8_t* work, uint64_t workBytes) {
  if (setup == nullptr) return KVL_E_INVALIDARG;
  // A copy, so that what was checked is what is used.
  ResizePlan plan = {};
  plan.setup = *setup;
  const ResizeSetup& s = plan.setup;
  if (s.bytesPerPixel != 1 && s.bytesPerPixel != 3) return KVL_E_INVALIDARG;
  if (sourceBits == nullptr || destinationBits == nullptr || work == nullptr ||
      workBytes < s.totalBytes) {
    return KVL_E_INVALIDARG;
  }
  if (isTooNarrow(s.scaleX, s.srcRectWidth) || isTooNarrow(s.scaleY, s.srcRectHeight)) {
    FastFill(work, 0, s.totalBytes);
    return KVL_E_FAIL;
  }
  plan.source = sourceBits;
  plan.destination = destinationBits;
  plan.intermediate = work;
  if (!isConsistent(s) || !isAddressable(plan)) return KVL_E_INVALIDARG;

  uint8_t* const weights = work + s.intermediateBytes;
  plan.weights = reinterpret_cast<WeightEntry*>(weights);
  plan.border = weights + s.weightBytes;
  plan.horizontal = horizontalAxis(s);
  plan.vertical = verticalAxis(s);
  plan.kernels = resizeKernels(instructionSet());
  if (isEmpty(plan.horizontal) || isEmpty(plan.vertical)) {
    FastFill(work, 0, s.totalBytes);
    return KVL_S_OK;
  }

  // The work buffer ends up as if it had been cleared as a whole, but the rows of the intermediate
  // image that the first pass fills are not written twice.
  const auto rows = static_cast<uint64_t>(plan.horizontal.highest - plan.horizontal.lowest) + 1;
  const uint64_t filled = rows * s.intermediateStride;
  FastFill(work + filled, 0, s.totalBytes - filled);
  if (!interpolates(s.scaleY)) buildAveragingWeights(plan.vertical, plan.weights);
  resampleVertically(plan);
  if (!interpolates(s.scaleX)) buildAveragingWeights(plan.horizontal, plan.weights);
  resampleHorizontally(plan);
  return KVL_S_OK;
}

}  // namespace kvl
