#include "core/cpu_features.h"

#include "core/platform.h"

namespace kvl {

uint8_t g_hasSSE2 = 0;
uint8_t g_hasSSSE3 = 0;
uint8_t g_hasSSE41 = 0;
uint8_t g_hasSSE42 = 0;
uint8_t g_hasAVX = 0;
uint8_t g_hasAVX2 = 0;

namespace {

uint8_t bit(uint32_t word, int index) {
  return static_cast<uint8_t>((word >> index) & 1);
}

}  // namespace

void DetectCpuFeatures() {
  g_hasSSE2 = g_hasSSSE3 = g_hasSSE41 = g_hasSSE42 = g_hasAVX = g_hasAVX2 = 0;
  if (g_platform.cpuid(0, 0).eax < 1) return;

  const CpuidRegisters basic = g_platform.cpuid(1, 0);
  g_hasSSE2 = bit(basic.edx, 26);
  g_hasSSSE3 = bit(basic.ecx, 0) & bit(basic.ecx, 9);
  g_hasSSE41 = bit(basic.ecx, 19);
  g_hasAVX = bit(basic.ecx, 28);
  g_hasSSE42 = bit(basic.ecx, 20);
  // Leaf 7 is asked for unchecked: the flag is a record, instructionSet() makes its own check.
  g_hasAVX2 = bit(g_platform.cpuid(7, 0).ebx, 5);
}

}  // namespace kvl
