#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

void selectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                            const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                            int32_t threshold, float gain);

void modifiedSelectiveSharpenSimple(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                                    const BITMAPINFOHEADER* destinationHeader,
                                    uint8_t* destinationBits, int32_t threshold, float gain);

void selectiveSharpen(const BITMAPINFOHEADER* sourceHeader, const uint8_t* sourceBits,
                      const BITMAPINFOHEADER* destinationHeader, uint8_t* destinationBits,
                      int32_t threshold, float gain);

}  // namespace kvl
