#include "core/instruction_set.h"

#include <algorithm>

#include "core/cpu_features.h"
#include "core/platform.h"

namespace kvl {
namespace {

InstructionSet g_found = InstructionSet::scalar;
InstructionSet g_limit = InstructionSet::avx2;

// The processor has AVX2 and the operating system saves the wide registers.
bool canUseAvx2() {
  if (g_platform.cpuid(0, 0).eax < 7) return false;
  constexpr uint32_t osxsave = 1u << 27, avx = 1u << 28, avx2 = 1u << 5;
  if ((g_platform.cpuid(1, 0).ecx & (osxsave | avx)) != (osxsave | avx)) return false;
  constexpr uint64_t xmmAndYmm = 6;
  if ((g_platform.enabledRegisterState() & xmmAndYmm) != xmmAndYmm) return false;
  return (g_platform.cpuid(7, 0).ebx & avx2) != 0;
}

InstructionSet highestLevel() {
  if (!g_hasSSE2) return InstructionSet::scalar;
  if (!g_hasSSSE3) return InstructionSet::sse2;
  if (!g_hasSSE41) return InstructionSet::ssse3;
  return canUseAvx2() ? InstructionSet::avx2 : InstructionSet::sse41;
}

}  // namespace

void detectInstructionSet() {
  const InstructionSet found = highestLevel();
  if (found != g_found) g_found = found;
}

void limitInstructionSet(InstructionSet highest) {
  g_limit = highest;
}

InstructionSet instructionSet() {
  return std::min(g_found, g_limit);
}

}  // namespace kvl
