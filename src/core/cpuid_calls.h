// The two processor instructions of feature discovery, the same on both platforms.
#pragma once

#include <cpuid.h>

#include "core/platform.h"

namespace kvl {

inline CpuidRegisters executeCpuid(uint32_t leaf, uint32_t subleaf) {
  CpuidRegisters r;
  __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
  return r;
}

inline uint64_t readEnabledRegisterState() {
  uint32_t low, high;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (uint64_t{high} << 32) | low;
}

}  // namespace kvl
