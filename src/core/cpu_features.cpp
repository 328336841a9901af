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

int bit(uint32_t word, int index) {
  return static_cast<int>((word >> index) & 1);
}

void store(uint8_t& flag, int value) {
  if (flag != value) flag = static_cast<uint8_t>(value);
}

}  // namespace

void DetectCpuFeatures() {
  CpuidRegisters basic = {}, extended = {};
  if (g_platform.cpuid(0, 0).eax >= 1) {
    basic = g_platform.cpuid(1, 0);
    // Asked for unchecked: the flag is a record, instructionSet() makes its own check.
    extended = g_platform.cpuid(7, 0);
  }
  store(g_hasSSE2, bit(basic.edx, 26));
  store(g_hasSSSE3, bit(basic.ecx, 0) & bit(basic.ecx, 9));
  store(g_hasSSE41, bit(basic.ecx, 19));
  store(g_hasAVX, bit(basic.ecx, 28));
  store(g_hasSSE42, bit(basic.ecx, 20));
  store(g_hasAVX2, bit(extended.ebx, 5));
}

}  // namespace kvl
