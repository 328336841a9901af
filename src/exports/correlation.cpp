#include "correlation/brightening_search.h"
#include "correlation/grey_conversion.h"
#include "correlation/squared_search.h"
#include "kvl/kvl.h"

void KVL_ConvertFrameToGray(const uint8_t* source, int32_t sourceStride, uint8_t* destination,
                            int32_t destinationStride, int32_t width, int32_t height) {
  kvl::convertFrameToGray(source, sourceStride, destination, destinationStride, width, height);
}

void KVL_Convert2Gray(const BITMAPINFOHEADER* source, uint8_t* destination,
                      const CorrelationOptions* options) {
  kvl::convertToGray(source, destination, options);
}

CorrelationVector KVL_CalcCorrelationNormal(int64_t* bestScore, const uint8_t* imageA,
                                            int32_t strideA, const uint8_t* imageB, int32_t strideB,
                                            const uint8_t* mask, int32_t width, int32_t height,
                                            const RECT* block, int32_t range) {
  return kvl::correlationNormal(
      {bestScore, imageA, strideA, imageB, strideB, mask, width, height, block}, range);
}

CorrelationVector KVL_CalcCorrelationIterativ(int64_t* bestScore, const uint8_t* imageA,
                                              int32_t strideA, const uint8_t* imageB,
                                              int32_t strideB, const uint8_t* mask, int32_t width,
                                              int32_t height, const RECT* block, const POINT* start,
                                              int32_t maxSteps, int32_t limit,
                                              int64_t* scoreTable) {
  return kvl::correlationIterativ(
      {bestScore, imageA, strideA, imageB, strideB, mask, width, height, block}, start, maxSteps,
      limit, scoreTable);
}

CorrelationVector KVL_CalcCorrelationNorm(CorrelationBlockResult* result, const uint8_t* imageA,
                                          const uint8_t* imageB, int32_t range,
                                          const CorrelationOptions* options, uint32_t* scoreTable) {
  return kvl::correlationNorm({result, imageA, imageB, options}, range, scoreTable);
}

CorrelationVector KVL_CalcCorrelationIt(CorrelationBlockResult* result, const uint8_t* imageA,
                                        const uint8_t* imageB, int32_t range, uint8_t stopAtLimit,
                                        const CorrelationOptions* options, uint32_t* scoreTable,
                                        uint32_t* firstLimitBlock) {
  return kvl::correlationIt({result, imageA, imageB, options}, range, stopAtLimit != 0, scoreTable,
                            firstLimitBlock);
}

CorrelationVector KVL_CalcCorrelationSub(CorrelationBlockResult* result, const uint8_t* imageA,
                                         const uint8_t* imageB, const CorrelationVector* centre,
                                         const CorrelationOptions* options) {
  return kvl::correlationSub({result, imageA, imageB, options}, centre);
}
