// Instruction-set flags as the processor reports them. All are 0 until initialisation.
#pragma once

#include <cstdint>

namespace kvl {

extern uint8_t g_hasSSE2;
extern uint8_t g_hasSSSE3;
extern uint8_t g_hasSSE41;
// Recorded facts; no routine is gated by these three.
extern uint8_t g_hasSSE42;
extern uint8_t g_hasAVX;
extern uint8_t g_hasAVX2;

void DetectCpuFeatures();

}  // namespace kvl
