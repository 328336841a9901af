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
                      uint8_t* work, uint64_t workBytes, WorkOwner owner) {
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
  const bool tooNarrow =
      isTooNarrow(s.scaleX, s.srcRectWidth) || isTooNarrow(s.scaleY, s.srcRectHeight);
  plan.source = sourceBits;
  plan.destination = destinationBits;
  plan.intermediate = work;
  if (!tooNarrow && (!isConsistent(s) || !isAddressable(plan))) return KVL_E_INVALIDARG;
  if (owner == WorkOwner::host) FastFill(work, 0, s.totalBytes);
  if (tooNarrow) return KVL_E_FAIL;

  plan.horizontal = horizontalAxis(s);
  plan.vertical = verticalAxis(s);
  if (isEmpty(plan.horizontal) || isEmpty(plan.vertical)) return KVL_S_OK;
  uint8_t* const weights = work + s.intermediateBytes;
  auto* const columnEdges = reinterpret_cast<SampleEdge*>(weights);
  auto* const rowEdges = columnEdges + plan.horizontal.sampleCount + 1;
  plan.halves = halves(plan.horizontal) && halves(plan.vertical);
  if (!plan.halves && !interpolates(s.scaleX)) findEdges(plan.horizontal, columnEdges);
  if (!plan.halves && !interpolates(s.scaleY)) findEdges(plan.vertical, rowEdges);
  plan.columnEdges = columnEdges;
  plan.rowEdges = rowEdges;
  plan.border = weights + s.weightBytes;
  resample(plan);
  return KVL_S_OK;
}

}  // namespace kvl
